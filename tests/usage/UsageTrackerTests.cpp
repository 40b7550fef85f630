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

TEST(UsageWindow, KindNamesOnlyExactLengthsAndCalendarMonths) {
    auto kindOf = [](int minutes) { return UsageWindow{"w", Source::codex, minutes, 0, 0}.kind(); };
    EXPECT_EQ(kindOf(300), UsageWindow::Kind::fiveHours());
    EXPECT_EQ(kindOf(1'440), UsageWindow::Kind::day());
    EXPECT_EQ(kindOf(10'080), UsageWindow::Kind::week());
    EXPECT_EQ(kindOf(40'320), UsageWindow::Kind::month());
    EXPECT_EQ(kindOf(43'200), UsageWindow::Kind::month());
    EXPECT_EQ(kindOf(44'640), UsageWindow::Kind::month());
    EXPECT_EQ(kindOf(44'641), UsageWindow::Kind::other(44'641));
    EXPECT_EQ(kindOf(40'319), UsageWindow::Kind::other(40'319));
    EXPECT_EQ(kindOf(301), UsageWindow::Kind::other(301));
    EXPECT_NE(kindOf(301), kindOf(302));
}

TEST(UsageWindow, PercentIsZeroOnceTheWindowHasReset) {
    UsageWindow w = window(90, "w", now);
    EXPECT_EQ(w.percent(now - 1), 90);
    EXPECT_EQ(w.percent(now), 0);
    EXPECT_EQ(w.percent(now + 1), 0);
}

TEST(UsageWindow, JSONUsesFieldNamesAndRejectsBadFields) {
    UsageWindow w{"codex.primary", Source::codex, 10'080, 42.5, 1'795'946'400};
    EXPECT_EQ(OrderedJSON::serializeCompact(w.toJSON()),
              R"({"agent":"codex","id":"codex.primary","minutes":10080,)"
              R"("resetsAt":1795946400,"usedPercent":42.5})");
    EXPECT_EQ(UsageWindow::fromJSON(w.toJSON()), w);

    auto decode = [](std::string_view text) {
        return UsageWindow::fromJSON(OrderedJSON::parse(text));
    };
    EXPECT_EQ(decode(R"({"id":"x","agent":"grok","minutes":60,"usedPercent":1,"resetsAt":2})"),
              (UsageWindow{"x", Source::grok, 60, 1, 2}));
    EXPECT_FALSE(
        decode(R"({"id":"x","agent":"cursor","minutes":60,"usedPercent":1,"resetsAt":2})"));
    EXPECT_FALSE(decode(R"({"id":"x","agent":"grok","minutes":1.5,"usedPercent":1,"resetsAt":2})"));
    EXPECT_FALSE(
        decode(R"({"id":"x","agent":"grok","minutes":1e12,"usedPercent":1,"resetsAt":2})"));
    EXPECT_FALSE(
        decode(R"({"id":"x","agent":"grok","minutes":60,"usedPercent":"1","resetsAt":2})"));
    EXPECT_FALSE(decode(R"({"id":"x","agent":"grok","minutes":60,"usedPercent":1})"));
    EXPECT_FALSE(decode(R"([1,2])"));
}

TEST(UsageStage, ThresholdsAndOrder) {
    EXPECT_EQ(stageFor(-5), UsageStage::none);
    EXPECT_EQ(stageFor(79.99), UsageStage::none);
    EXPECT_EQ(stageFor(80), UsageStage::warn80);
    EXPECT_EQ(stageFor(94.99), UsageStage::warn80);
    EXPECT_EQ(stageFor(95), UsageStage::warn95);
    EXPECT_EQ(stageFor(99.89), UsageStage::warn95);
    EXPECT_EQ(stageFor(99.9), UsageStage::exhausted);
    EXPECT_EQ(stageFor(140), UsageStage::exhausted);

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
    UsageWindow higher = window(96);
    EXPECT_EQ(tracker.update(now, {higher}), std::vector{reached(UsageStage::warn95, higher)});

    UsageTracker fresh;
    UsageWindow out = window(99.9);
    EXPECT_EQ(fresh.update(now, {window(10, "other"), out}),
              std::vector{reached(UsageStage::exhausted, out)});
    EXPECT_EQ(fresh.stages.at("other"), UsageStage::none);

    // An empty reading still counts as the first one.
    UsageTracker empty;
    EXPECT_TRUE(empty.update(now, {}).empty());
    EXPECT_TRUE(empty.seen);
    UsageWindow warn = window(81);
    EXPECT_EQ(empty.update(now, {warn}), std::vector{reached(UsageStage::warn80, warn)});
}

TEST(UsageTracker, ResetIsAnnouncedOnlyOnLeavingExhaustion) {
    UsageTracker tracker;
    tracker.update(now, {window(100)});

    // The stored reading still says 100 %, but its reset time has passed.
    UsageWindow stale = window(100, "claude.five_hour", now);
    EXPECT_EQ(tracker.update(now, {stale}), std::vector{reset(stale)});

    tracker.update(now, {window(100)});
    UsageWindow partly = window(97);
    EXPECT_EQ(tracker.update(now, {partly}), std::vector{reset(partly)});
    EXPECT_TRUE(tracker.update(now, {window(82)}).empty());
    EXPECT_TRUE(tracker.update(now, {window(82)}).empty());
    EXPECT_TRUE(tracker.update(now, {window(5)}).empty());
    // A fall from a warning is silent, so the next climb is news again.
    UsageWindow again = window(96);
    EXPECT_EQ(tracker.update(now, {again}), std::vector{reached(UsageStage::warn95, again)});
}

TEST(UsageTracker, WindowsWithOneIdCompareWithTheOneBefore) {
    UsageTracker tracker;
    tracker.update(now, {});
    UsageWindow first = window(85), second = window(100), third = window(50);
    EXPECT_EQ(tracker.update(now, {first, second, third}),
              (std::vector{reached(UsageStage::warn80, first),
                           reached(UsageStage::exhausted, second), reset(third)}));
    EXPECT_EQ(tracker.stages.size(), 1u);
    EXPECT_EQ(tracker.stages.at("claude.five_hour"), UsageStage::none);
}
