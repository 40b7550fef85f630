#include "island/Scheduler.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace pelmora {
namespace {

using enum SessionState;
using enum Source;
constexpr double now = 1'700'000'000;

SessionRecord record(Source source, std::string id, SessionState state, double stateAge,
                     double silence = 0, std::optional<std::string> tool = {},
                     std::optional<std::string> event = {}) {
    SessionRecord made = SessionRecord::make(source, std::move(id), "/", now - stateAge);
    made.state = state;
    made.updatedAt = now - silence;
    made.tool = std::move(tool);
    made.lastEvent = std::move(event);
    return made;
}

// "hidden", or the display state, with " quiet" when it is.
std::string shownAs(const SessionRecord& made, double at = now, const SchedulerConfig& config = {},
                    const Scheduler::Acknowledged& acknowledged = {}) {
    const auto item = Scheduler::display(made, at, config, acknowledged);
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
    EXPECT_EQ(IslandItem{record(codex, "a", done, 0)}.id(), "codex-a");
    SessionRecord portDown = record(service, "db", failed, 0);
    portDown.port = 5432;
    EXPECT_EQ(Scheduler::ackKey(record(build, "42", failed, -0.25)), "build-42@1700000000.25");
    const Scheduler::Acknowledged dismissed{"build-42@1700000000.0", "git-c@1700000000.0"};
    // Each record, changed last at `now`, as it shows after so many seconds
    // with the dismissals above.
    const std::pair<SessionRecord, std::vector<std::pair<double, std::string>>> timelines[] = {
        {record(claude, "s", idle, 0), {{0, "hidden"}}},
        {record(claude, "s", ended, 0), {{0, "hidden"}}},
        {record(claude, "s", done, 0), {{3.9, "done"}, {4, "hidden"}}},
        {record(claude, "s", working, 0), {{600, "working"}, {600.5, "stale"}}},
        {record(update, "s", working, 0), {{600.5, "working"}}},
        {record(service, "s", working, 0), {{600.5, "working"}}},
        {record(codex, "s", compacting, 0), {{600, "compacting"}, {600.5, "stale"}}},
        {record(service, "s", compacting, 0), {{600.5, "stale"}}},
        {record(claude, "s", awaiting, 0),
         {{120, "awaiting"}, {121, "awaiting quiet"}, {1800, "awaiting quiet"}, {1801, "stale"}}},
        {record(service, "s", failed, 0), {{9e3, "failed"}}},
        {record(build, "42", failed, 0), {{0, "hidden"}}},
        {record(build, "42", failed, -30), {{30, "failed"}}}, // failed again, later
        {record(git, "c", done, 0, 0, "Changes"), {{5, "hidden"}}},
        {portDown, {{14.9, "failed"}, {15, "hidden"}}},
        {record(git, "s", done, 0, 0, "Clipboard"), {{1e6, "done"}}},
        {record(git, "c", done, 0, 0, "Alert"), {{1e6, "done"}}},
        {record(git, "s", done, 0, 0, "Changes"), {{89.9, "done"}, {90, "hidden"}}},
        {record(git, "s", done, 0, 0, "Usage"), {{90, "hidden"}}},
        {record(git, "s", done, 0, 0, "Commit"), {{3.9, "done"}, {4, "hidden"}}},
    };
    for (const auto& [made, timeline] : timelines) {
        for (const auto& [after, shown] : timeline) {
            EXPECT_EQ(shownAs(made, now + after, {}, dismissed), shown)
                << made.key() << " " << rawValue(made.state) << " after " << after;
        }
    }
    SchedulerConfig longDone; // the longer of the two lingers holds for changes
    longDone.doneLinger = 100;
    EXPECT_EQ(shownAs(record(git, "c", done, 99.9, 0, "Changes"), now, longDone), "done");
}

TEST(Scheduler, RankTieBreaksAndPick) {
    // In the order the island must show them.
    const std::vector<std::pair<SessionRecord, double>> ranked = {
        {record(claude, "longest", awaiting, 40, 50), 0}, // waiting longest first
        {record(claude, "waiting", awaiting, 30), 0},
        {record(build, "broken", failed, 1), 1},
        {record(git, "fail", done, 1, 1, "Alert", "fail"), 1.2},
        {record(git, "clip", working, 1, 1, "Clipboard"), 1.5},
        {record(codex, "busy", working, 9, 1), 2}, // most recently active first
        {record(codex, "squeeze", compacting, 9, 2), 2},
        {record(qwen, "quiet", working, 9e3, 900), 3},
        {record(git, "act", done, 1, 1, "Alert", "action"), 3.5},
        {record(pi, "finished", done, 1, 1), 4},
        {record(git, "info", done, 1, 2, "Alert"), 4},
    };
    std::vector<SessionRecord> reversed; // so that input order cannot pass for the rule
    std::vector<std::string> expected;
    for (const auto& [made, rank] : ranked) {
        EXPECT_EQ(Scheduler::rank(*Scheduler::display(made, now, {}, {})), rank) << made.key();
        reversed.insert(reversed.begin(), made);
        expected.push_back(made.key());
    }
    const IslandLayout shown = Scheduler::layout(reversed, now, {}, {}, {});
    EXPECT_EQ(ids(shown), expected);
    EXPECT_EQ(shown.bubbles.size(), 3u);

    // A pick holds until its session changes state, or until something
    // more urgent begins after the pick; older urgent items do not count.
    const auto primary = [&](double stateAge, double pickAge) {
        const ManualPick pick{"codex-busy", now - stateAge, now - pickAge};
        return Scheduler::layout(reversed, now, {}, {}, pick).primary->id();
    };
    EXPECT_EQ(primary(9, 0.5), "codex-busy");
    EXPECT_EQ(primary(9, 1), "codex-busy"); // began in the very second of the pick
    EXPECT_EQ(primary(9.5, 0.5), "claude-longest");
    EXPECT_EQ(primary(9, 1.5), "claude-longest");
    EXPECT_EQ(Scheduler::layout({}, now, {}, {}, {}), IslandLayout::empty());
}

// Random records in random orders: the layout is a stable sort of what
// display shows, each session once, whatever order the records came in.
TEST(Scheduler, GeneratedRecordsKeepTheLayoutInvariants) {
    std::mt19937 random(20240611);
    const auto any = [&](const auto& choices) { return choices[random() % std::size(choices)]; };
    const Source sources[] = {claude, service, update, git};
    const SessionState states[] = {idle, working, awaiting, compacting, failed, done, ended};
    // Tool words and last events, the notices' and their alert levels among them.
    const std::optional<std::string> words[] = {"Clipboard", "Alert",  "Changes",   "Usage",
                                                "fail",      "action", std::nullopt};
    const double ages[] = {0, 3, 4, 60, 120, 121, 600, 601, 1800, 1801};
    for (int round = 0; round < 300; ++round) {
        std::vector<SessionRecord> records(random() % 40);
        std::set<std::string> expected;
        for (SessionRecord& made : records) {
            made = record(any(sources), std::to_string(random() % 12), any(states), any(ages),
                          any(ages), any(words), any(words));
            if (made.source == git && made.state == awaiting) {
                made.tool = "Bash"; // an awaiting notice: the one pair order ranks both ways
            }
            if (Scheduler::display(made, now, {}, {})) {
                expected.insert(made.key());
            }
        }
        SchedulerConfig config;
        config.maxBubbles = static_cast<int>(random() % 6) - 1;
        const SessionRecord chosen = records.empty() ? SessionRecord{} : any(records);
        const ManualPick pick{chosen.key(), chosen.stateSince, now - any(ages)};
        const IslandLayout shown = Scheduler::layout(records, now, config, {}, pick);
        const std::vector<std::string> all = ids(shown);
        EXPECT_EQ(std::multiset(all.begin(), all.end()),
                  std::multiset(expected.begin(), expected.end()));
        EXPECT_EQ(shown.bubbles.size(),
                  std::min<std::size_t>(std::max(config.maxBubbles, 0), all.size() - !all.empty()));

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
