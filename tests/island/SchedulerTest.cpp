#include "island/Scheduler.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace pelmora {
namespace {

using S = SessionState;
constexpr double now = 1'700'000'000;

SessionRecord record(Source source, std::string id, S state, double stateAge, double silence = 0,
                     const char* tool = nullptr, const char* event = nullptr) {
    SessionRecord made = SessionRecord::make(source, std::move(id), "/Users/ann/app", now);
    made.state = state;
    made.stateSince = now - stateAge;
    made.updatedAt = now - silence;
    made.tool = tool ? std::optional<std::string>(tool) : std::nullopt;
    made.lastEvent = event ? std::optional<std::string>(event) : std::nullopt;
    return made;
}

// "hidden", or the display state with " quiet" when it is.
std::string shownAs(const SessionRecord& made, const SchedulerConfig& config = {},
                    const Scheduler::Acknowledged& acknowledged = {}) {
    const auto item = Scheduler::display(made, now, config, acknowledged);
    return !item ? "hidden" : std::string(rawValue(item->display)) + (item->quiet ? " quiet" : "");
}

// Primary first, then bubbles, then overflow.
std::vector<IslandItem> items(const IslandLayout& layout) {
    std::vector<IslandItem> all(layout.primary ? 1 : 0, layout.primary.value_or(IslandItem{}));
    all.insert(all.end(), layout.bubbles.begin(), layout.bubbles.end());
    all.insert(all.end(), layout.overflow.begin(), layout.overflow.end());
    return all;
}
std::vector<std::string> ids(const IslandLayout& layout) {
    std::vector<std::string> all;
    std::ranges::transform(items(layout), std::back_inserter(all), &IslandItem::id);
    return all;
}

TEST(Scheduler, ValuesAndDisplayAtEveryBoundarySecond) {
    EXPECT_TRUE(fromRaw<DisplayState>("compacting") && !fromRaw<DisplayState>("Done"));
    EXPECT_TRUE(needsAttention(DisplayState::failed) && !needsAttention(DisplayState::stale));
    EXPECT_EQ(IslandItem{record(Source::codex, "a", S::done, 0)}.id(), "codex-a");

    struct Case {
        Source source;
        S state;
        double stateAge, silence;
        const char* tool;
        std::string shown;
    } const cases[] = {
        {Source::claude, S::idle, 0, 0, nullptr, "hidden"},
        {Source::claude, S::ended, 0, 0, nullptr, "hidden"},
        {Source::claude, S::done, 3.9, 0, nullptr, "done"},
        {Source::claude, S::done, 4, 0, nullptr, "hidden"},
        {Source::claude, S::working, 9e3, 600, nullptr, "working"},
        {Source::claude, S::working, 9e3, 600.5, nullptr, "stale"},
        {Source::update, S::working, 9e3, 600.5, nullptr, "working"},
        {Source::service, S::working, 9e3, 600.5, nullptr, "working"},
        {Source::codex, S::compacting, 9e3, 600, nullptr, "compacting"},
        {Source::service, S::compacting, 9e3, 600.5, nullptr, "stale"},
        {Source::claude, S::awaiting, 120, 9e3, nullptr, "awaiting"},
        {Source::claude, S::awaiting, 121, 0, nullptr, "awaiting quiet"},
        {Source::claude, S::awaiting, 1800, 0, nullptr, "awaiting quiet"},
        {Source::claude, S::awaiting, 1801, 0, nullptr, "stale"},
        {Source::service, S::failed, 9e3, 0, nullptr, "failed"},
        {Source::git, S::done, 1e6, 1e6, "Clipboard", "done"},
        {Source::git, S::done, 1e6, 1e6, "Alert", "done"},
        {Source::git, S::done, 89.9, 0, "Changes", "done"},
        {Source::git, S::done, 90, 0, "Usage", "hidden"},
        {Source::git, S::done, 4, 0, "Commit", "hidden"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(shownAs(record(c.source, "s", c.state, c.stateAge, c.silence, c.tool)), c.shown)
            << rawValue(c.source) << " " << rawValue(c.state) << " " << c.stateAge;
    }
    SessionRecord portDown = record(Source::service, "db", S::failed, 14.9);
    portDown.port = 5432;
    EXPECT_EQ(shownAs(portDown), "failed");
    portDown.stateSince -= 0.1;
    EXPECT_EQ(shownAs(portDown), "hidden");
    SchedulerConfig longDone; // the longer of the two lingers holds for changes
    longDone.doneLinger = 100;
    EXPECT_EQ(shownAs(record(Source::git, "c", S::done, 99.9, 0, "Changes"), longDone), "done");
}

TEST(Scheduler, AcknowledgementCoversOneState) {
    SessionRecord failed = record(Source::build, "42", S::failed, 0);
    EXPECT_EQ(Scheduler::ackKey(failed), "build-42@1700000000.0");
    failed.stateSince += 0.25;
    EXPECT_EQ(Scheduler::ackKey(failed), "build-42@1700000000.25");
    const Scheduler::Acknowledged dismissed{"build-42@1700000000.25", "git-c@1699999995.0"};
    EXPECT_EQ(shownAs(failed, {}, dismissed), "hidden");
    failed.stateSince += 30; // failed again
    EXPECT_EQ(shownAs(failed, {}, dismissed), "failed");
    EXPECT_EQ(shownAs(record(Source::git, "c", S::done, 5, 0, "Changes"), {}, dismissed), "hidden");
    EXPECT_EQ(shownAs(record(Source::git, "c", S::done, 5, 0, "Alert"), {}, dismissed), "done");
}

TEST(Scheduler, RankTieBreaksBubblesAndPick) {
    // In the order the island must show them, fed in reverse.
    const std::vector<std::pair<SessionRecord, double>> ranked = {
        {record(Source::claude, "longest", S::awaiting, 40, 50), 0}, // waiting longest first
        {record(Source::claude, "waiting", S::awaiting, 30), 0},
        {record(Source::build, "broken", S::failed, 1), 1},
        {record(Source::git, "fail", S::done, 1, 1, "Alert", "fail"), 1.2},
        {record(Source::git, "clip", S::working, 1, 1, "Clipboard"), 1.5},
        {record(Source::codex, "busy", S::working, 9, 1), 2}, // most recently active first
        {record(Source::codex, "squeeze", S::compacting, 9, 2), 2},
        {record(Source::qwen, "quiet", S::working, 9e3, 900), 3},
        {record(Source::git, "act", S::done, 1, 1, "Alert", "action"), 3.5},
        {record(Source::pi, "finished", S::done, 1, 1), 4},
        {record(Source::git, "info", S::done, 1, 2, "Alert"), 4},
    };
    std::vector<SessionRecord> reversed;
    std::vector<std::string> expected;
    for (const auto& [made, rank] : ranked) {
        EXPECT_EQ(Scheduler::rank(*Scheduler::display(made, now, {}, {})), rank) << made.key();
        reversed.insert(reversed.begin(), made);
        expected.push_back(made.key());
    }
    SchedulerConfig wide;
    wide.maxBubbles = 100;
    EXPECT_EQ(ids(Scheduler::layout(reversed, now, wide, {}, {})), expected);

    std::vector<SessionRecord> five;
    for (int i = 0; i < 5; ++i) {
        five.push_back(record(Source::codex, std::to_string(i), S::working, 100, i));
    }
    SchedulerConfig noBubbles; // the generated records below try every other count
    noBubbles.maxBubbles = -2;
    EXPECT_EQ(Scheduler::layout(five, now, {}, {}, {}).overflow.size(), 1u);
    EXPECT_EQ(Scheduler::layout(five, now, noBubbles, {}, {}).overflow.size(), 4u);
    const ManualPick pick{"codex-2", now - 100, now - 10};
    EXPECT_EQ(ids(Scheduler::layout(five, now, {}, {}, pick)),
              (std::vector<std::string>{"codex-2", "codex-0", "codex-1", "codex-3", "codex-4"}));
    // The picked session moved on: the pick lapses.
    EXPECT_EQ(Scheduler::layout(five, now, {}, {}, ManualPick{"codex-2", now - 99, now - 10})
                  .primary->id(),
              "codex-0");
    // A request older than the pick does not take the place back; a newer one does.
    five.push_back(record(Source::claude, "older", S::awaiting, 11));
    EXPECT_EQ(Scheduler::layout(five, now, {}, {}, pick).primary->id(), "codex-2");
    five.push_back(record(Source::claude, "newer", S::awaiting, 9));
    EXPECT_EQ(Scheduler::layout(five, now, {}, {}, pick).primary->id(), "claude-older");
    EXPECT_EQ(Scheduler::layout({}, now, {}, {}, pick), IslandLayout::empty());
}

// Random records in random orders: the layout is a stable sort of what
// display shows, each session once, whatever order the records came in.
TEST(Scheduler, GeneratedRecordsKeepTheLayoutInvariants) {
    std::mt19937 random(20240611);
    const auto any = [&](const auto& choices) { return choices[random() % std::size(choices)]; };
    const Source sources[] = {Source::claude, Source::service, Source::update, Source::git};
    const S states[] = {S::idle,   S::working, S::awaiting, S::compacting,
                        S::failed, S::done,    S::ended};
    const char* tools[] = {"Clipboard", "Alert", "Changes", "Usage", "Bash", nullptr};
    const char* events[] = {"fail", "action", "Stop"};
    const double ages[] = {0, 3, 4, 60, 120, 121, 600, 601, 1800, 1801};
    for (int round = 0; round < 300; ++round) {
        std::vector<SessionRecord> records(random() % 40);
        for (SessionRecord& made : records) {
            made = record(any(sources), std::to_string(random() % 12), any(states), any(ages),
                          any(ages), any(tools), any(events));
            if (made.source == Source::git && made.state == S::awaiting) {
                made.tool = "Bash"; // an awaiting notice: the one pair order ranks both ways
            }
        }
        SchedulerConfig config;
        config.maxBubbles = static_cast<int>(random() % 5);
        std::optional<ManualPick> pick;
        if (!records.empty() && random() % 2) {
            const SessionRecord& chosen = any(records);
            pick = ManualPick{chosen.key(), chosen.stateSince, now - any(ages)};
        }
        std::set<std::string> expected;
        for (const SessionRecord& made : records) {
            if (Scheduler::display(made, now, config, {})) {
                expected.insert(made.key());
            }
        }
        const IslandLayout shown = Scheduler::layout(records, now, config, {}, pick);
        const std::vector<std::string> all = ids(shown);
        EXPECT_EQ(std::multiset(all.begin(), all.end()),
                  std::multiset(expected.begin(), expected.end()));
        EXPECT_EQ(shown.bubbles.size(),
                  std::min<std::size_t>(config.maxBubbles, all.size() - !shown.isEmpty()));

        std::vector<SessionRecord> shuffled = records;
        std::shuffle(shuffled.begin(), shuffled.end(), random);
        const std::vector<IslandItem> sorted = items(shown);
        const std::vector<IslandItem> again =
            items(Scheduler::layout(shuffled, now, config, {}, pick));
        ASSERT_EQ(again.size(), sorted.size());
        const auto position = [&](const IslandItem& item) {
            return std::find(records.begin(), records.end(), item.record) - records.begin();
        };
        for (std::size_t i = 0; i < sorted.size(); ++i) {
            // Only equals may trade places, and among them input order holds.
            EXPECT_FALSE(Scheduler::order(sorted[i], again[i]) ||
                         Scheduler::order(again[i], sorted[i]));
            if (i > 1) {
                EXPECT_FALSE(Scheduler::order(sorted[i], sorted[i - 1]));
                EXPECT_TRUE(Scheduler::order(sorted[i - 1], sorted[i]) ||
                            position(sorted[i - 1]) < position(sorted[i]));
            }
        }
    }
}

} // namespace
} // namespace pelmora
