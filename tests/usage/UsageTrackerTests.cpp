#include <gtest/gtest.h>

#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"
#include "usage/UsageTracker.h"

using namespace pelmora;

namespace {

constexpr double now = 1'795'341'600; // 2026-11-22T10:00:00Z

UsageWindow window(double percent, double resetsAt = now + 3600) {
    return {"claude.five_hour", Source::claude, 300, percent, resetsAt};
}

UsageEvent reached(UsageStage stage, double percent) {
    return {UsageEvent::Kind::reached(stage), window(percent)};
}

} // namespace

TEST(UsageWindow, KindPercentStagesAndJSON) {
    using Kind = UsageWindow::Kind;
    const auto kindOf = [](int minutes) {
        return UsageWindow{"w", Source::codex, minutes, 0, 0}.kind();
    };
    EXPECT_EQ(kindOf(300), Kind::fiveHours());
    EXPECT_EQ(kindOf(1'440), Kind::day());
    EXPECT_EQ(kindOf(10'080), Kind::week());
    EXPECT_TRUE(kindOf(40'320) == Kind::month() && kindOf(44'640) == Kind::month());
    EXPECT_EQ(kindOf(44'641), Kind::other(44'641));
    // Once the reset time has come, the last reading no longer holds.
    EXPECT_EQ(window(42.5, now).percent(now - 1), 42.5);
    EXPECT_EQ(window(42.5, now).percent(now), 0);
    // clang-format off
    const std::pair<double, UsageStage> stages[] = {
        {79.99, UsageStage::none}, {80, UsageStage::warn80}, {95, UsageStage::warn95},
        {99.89, UsageStage::warn95}, {99.9, UsageStage::exhausted}, {140, UsageStage::exhausted}};
    // clang-format on
    for (const auto& [percent, stage] : stages) {
        EXPECT_EQ(stageFor(percent), stage) << percent;
    }
    EXPECT_TRUE(UsageStage::warn95 < UsageStage::exhausted && !usageStageFromRaw(90));
    EXPECT_EQ(usageStageFromRaw(95), UsageStage::warn95);

    const UsageWindow w{"codex.primary", Source::codex, 10'080, 42.5, now};
    EXPECT_EQ(OrderedJSON::serializeCompact(w.toJSON()),
              R"({"agent":"codex","id":"codex.primary","minutes":10080,)"
              R"("resetsAt":1795341600,"usedPercent":42.5})");
    EXPECT_EQ(UsageWindow::fromJSON(w.toJSON()), w);
    JSONDecodeFailure failure;
    EXPECT_FALSE(UsageWindow::fromJSON(
        OrderedJSON::parse(R"({"id":"x","agent":"grok","minutes":1.5,"usedPercent":1})"),
        &failure));
    EXPECT_EQ(failure.text(), "minutes: expected an integer from -2147483648 to 2147483647");
}

TEST(UsageTracker, AnnouncesEachClimbOnceAndTheEndOfExhaustion) {
    // The first reading is silent but for exhaustion; an empty one still counts.
    UsageTracker tracker;
    EXPECT_TRUE(tracker.update(now, {window(85)}).empty());
    EXPECT_EQ(tracker.update(now, {window(96)}), std::vector{reached(UsageStage::warn95, 96)});
    UsageTracker fresh;
    EXPECT_EQ(fresh.update(now, {window(99.9)}), std::vector{reached(UsageStage::exhausted, 99.9)});
    UsageTracker empty;
    EXPECT_TRUE(empty.update(now, {}).empty());
    EXPECT_EQ(empty.update(now, {window(81)}), std::vector{reached(UsageStage::warn80, 81)});

    // Leaving exhaustion is news, by a lower figure or by the reset time
    // passing; falling from a warning is silent, so the next climb is news.
    const UsageEvent::Kind reset = UsageEvent::Kind::reset();
    EXPECT_EQ(fresh.update(now, {window(100, now)}),
              (std::vector<UsageEvent>{{reset, window(100, now)}}));
    fresh.update(now, {window(100)});
    EXPECT_EQ(fresh.update(now, {window(97)}), (std::vector<UsageEvent>{{reset, window(97)}}));
    EXPECT_TRUE(fresh.update(now, {window(82)}).empty());
    EXPECT_TRUE(fresh.update(now, {window(5)}).empty());
    EXPECT_EQ(fresh.update(now, {window(96)}), std::vector{reached(UsageStage::warn95, 96)});

    // Windows with one id compare with the one before them in the same reading.
    EXPECT_EQ(empty.update(now, {window(85), window(100), window(50)}),
              (std::vector<UsageEvent>{reached(UsageStage::exhausted, 100), {reset, window(50)}}));
    EXPECT_EQ(empty.stages,
              (std::map<std::string, UsageStage>{{"claude.five_hour", UsageStage::none}}));
}
