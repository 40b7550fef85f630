#include <gtest/gtest.h>

#include "json/OrderedJSON.h"
#include "usage/UsageTracker.h"

using namespace pelmora;

namespace {

constexpr double now = 1'795'341'600; // 2026-11-22T10:00:00Z

UsageWindow window(double percent, std::string id = "claude.five_hour",
                   double resetsAt = now + 3600) {
    return {std::move(id), Source::claude, 300, percent, resetsAt};
}

UsageEvent reached(UsageStage stage, const UsageWindow& w) {
    return {UsageEvent::Kind::reached(stage), w};
}

UsageEvent reset(const UsageWindow& w) {
    return {UsageEvent::Kind::reset(), w};
}

} // namespace

TEST(UsageWindow, KindPercentAndJSON) {
    auto kindOf = [](int minutes) { return UsageWindow{"w", Source::codex, minutes, 0, 0}.kind(); };
    EXPECT_EQ(kindOf(300), UsageWindow::Kind::fiveHours());
    EXPECT_EQ(kindOf(1'440), UsageWindow::Kind::day());
    EXPECT_EQ(kindOf(10'080), UsageWindow::Kind::week());
    for (int month : {40'320, 43'200, 44'640}) {
        EXPECT_EQ(kindOf(month), UsageWindow::Kind::month()) << month;
    }
    for (int other : {301, 40'319, 44'641}) {
        EXPECT_EQ(kindOf(other), UsageWindow::Kind::other(other));
    }
    EXPECT_NE(kindOf(301), kindOf(302));

    // Once the reset time has come, the last reading no longer holds.
    const UsageWindow w{"codex.primary", Source::codex, 10'080, 42.5, now};
    EXPECT_EQ(w.percent(now - 1), 42.5);
    EXPECT_EQ(w.percent(now), 0);
    EXPECT_EQ(w.percent(now + 1), 0);

    EXPECT_EQ(OrderedJSON::serializeCompact(w.toJSON()),
              R"({"agent":"codex","id":"codex.primary","minutes":10080,)"
              R"("resetsAt":1795341600,"usedPercent":42.5})");
    EXPECT_EQ(UsageWindow::fromJSON(w.toJSON()), w);
    const std::string fields = R"("id":"x","agent":"grok","minutes":60,"usedPercent":1)";
    EXPECT_EQ(UsageWindow::fromJSON(OrderedJSON::parse("{" + fields + R"(,"resetsAt":2})")),
              (UsageWindow{"x", Source::grok, 60, 1, 2}));
    for (std::string text :
         {R"({"id":"x","agent":"cursor","minutes":60,"usedPercent":1,"resetsAt":2})",
          R"({"id":"x","agent":"grok","minutes":1.5,"usedPercent":1,"resetsAt":2})",
          R"({"id":"x","agent":"grok","minutes":1e12,"usedPercent":1,"resetsAt":2})",
          R"({"id":"x","agent":"grok","minutes":60,"usedPercent":"1","resetsAt":2})", R"([1,2])"}) {
        EXPECT_FALSE(UsageWindow::fromJSON(OrderedJSON::parse(text))) << text;
    }
    EXPECT_FALSE(UsageWindow::fromJSON(OrderedJSON::parse("{" + fields + "}")));
}

TEST(UsageStage, ThresholdsAndOrder) {
    const std::pair<UsageStage, std::vector<double>> thresholds[] = {
        {UsageStage::none, {-5, 79.99}},
        {UsageStage::warn80, {80, 94.99}},
        {UsageStage::warn95, {95, 99.89}},
        {UsageStage::exhausted, {99.9, 100, 140}},
    };
    for (const auto& [stage, percents] : thresholds) {
        for (double percent : percents) {
            EXPECT_EQ(stageFor(percent), stage) << percent;
        }
    }
    EXPECT_LT(UsageStage::none, UsageStage::warn80);
    EXPECT_LT(UsageStage::warn95, UsageStage::exhausted);
    EXPECT_EQ(rawValue(UsageStage::warn95), 95);
    EXPECT_EQ(usageStageFromRaw(100), UsageStage::exhausted);
    EXPECT_FALSE(usageStageFromRaw(90));
}

TEST(UsageTracker, FirstReadingIsSilentExceptForExhaustion) {
    UsageTracker tracker;
    EXPECT_TRUE(tracker.update(now, {window(85)}).empty());
    EXPECT_EQ(tracker.stages.at("claude.five_hour"), UsageStage::warn80);
    const UsageWindow higher = window(96);
    EXPECT_EQ(tracker.update(now, {higher}), std::vector{reached(UsageStage::warn95, higher)});

    UsageTracker fresh;
    const UsageWindow out = window(99.9);
    EXPECT_EQ(fresh.update(now, {window(10, "other"), out}),
              std::vector{reached(UsageStage::exhausted, out)});
    EXPECT_EQ(fresh.stages.at("other"), UsageStage::none);

    // An empty reading still counts as the first one.
    UsageTracker empty;
    EXPECT_TRUE(empty.update(now, {}).empty());
    const UsageWindow warn = window(81);
    EXPECT_EQ(empty.update(now, {warn}), std::vector{reached(UsageStage::warn80, warn)});
}

TEST(UsageTracker, ResetIsAnnouncedOnlyOnLeavingExhaustion) {
    UsageTracker tracker;
    tracker.update(now, {window(100)});
    // The stored reading still says 100 %, but its reset time has passed.
    const UsageWindow stale = window(100, "claude.five_hour", now);
    EXPECT_EQ(tracker.update(now, {stale}), std::vector{reset(stale)});

    tracker.update(now, {window(100)});
    const UsageWindow partly = window(97);
    EXPECT_EQ(tracker.update(now, {partly}), std::vector{reset(partly)});
    for (double percent : {82.0, 82.0, 5.0}) {
        EXPECT_TRUE(tracker.update(now, {window(percent)}).empty()) << percent;
    }
    // A fall from a warning is silent, so the next climb is news again.
    const UsageWindow again = window(96);
    EXPECT_EQ(tracker.update(now, {again}), std::vector{reached(UsageStage::warn95, again)});
}

TEST(UsageTracker, WindowsWithOneIdCompareWithTheOneBefore) {
    UsageTracker tracker;
    tracker.update(now, {});
    const UsageWindow first = window(85), second = window(100), third = window(50);
    EXPECT_EQ(tracker.update(now, {first, second, third}),
              (std::vector{reached(UsageStage::warn80, first),
                           reached(UsageStage::exhausted, second), reset(third)}));
    EXPECT_EQ(tracker.stages.size(), 1u);
    EXPECT_EQ(tracker.stages.at("claude.five_hour"), UsageStage::none);
}
