#pragma once

#include <optional>
#include <span>
#include <string>
#include <unordered_set>

#include "island/IslandItem.h"
#include "session/SessionRecord.h"

// Which sessions the island shows, in which state and order, from the
// stored records and the time alone: the same records, `now`,
// configuration, acknowledged set and pick always give the same layout.
// Nothing is kept between calls; the caller re-runs the layout on a timer
// and whenever the records change.
//
//     IslandLayout shown = Scheduler::layout(records, now, {}, dismissed, pick);
//
// Records of source `git` whose `tool` is "Clipboard", "Alert", "Changes" or
// "Usage" are the app's own notices and follow rules of their own.
namespace pelmora {

// The app's settings, all durations in seconds.
struct SchedulerConfig {
    double doneLinger = 4;            // an ordinary finished turn or run
    double changesLinger = 90;        // a "Changes" or "Usage" notice (at least doneLinger)
    double portDownLinger = 15;       // a failed service that has a port
    double staleAfter = 600;          // silence before working or compacting turns stale
    double awaitingQuietAfter = 120;  // waiting before an awaiting item goes quiet
    double awaitingStaleAfter = 1800; // waiting before an awaiting item turns stale
    int maxBubbles = 3;               // below zero counts as zero

    bool operator==(const SchedulerConfig&) const = default;
};

// The user's choice of primary item. It holds while the picked session
// stays in the state it was picked in.
struct ManualPick {
    std::string key;   // the picked item's id
    double stateSince; // the picked session's stateSince when it was picked
    double pickedAt;   // when the user picked it

    bool operator==(const ManualPick&) const = default;
};

namespace Scheduler {

// Acknowledgement keys (ackKey) of the failures and notices the user
// dismissed. The caller keeps it.
using Acknowledged = std::unordered_set<std::string>;

// How one session shows now; none when it is not shown at all. Every
// comparison decides the boundary second as follows: done lingers while
// younger than doneLinger; working and compacting stay so at exactly
// staleAfter of silence; awaiting is quiet only beyond awaitingQuietAfter
// and still awaiting at exactly awaitingStaleAfter.
std::optional<IslandItem> display(const SessionRecord& record, double now,
                                  const SchedulerConfig& config, const Acknowledged& acknowledged);

// Every record's item, stably sorted by `order`; the primary is the first
// unless `pick` holds, the next maxBubbles items are bubbles and the rest
// overflow. A session appears once: of several records with one id, only
// the first in that order is shown.
IslandLayout layout(std::span<const SessionRecord> records, double now,
                    const SchedulerConfig& config, const Acknowledged& acknowledged,
                    const std::optional<ManualPick>& pick);

// "<source>-<session id>@<stateSince in the default text form of a
// double>", e.g. "build-42@1700000000.0": a dismissal covers only the state
// that was dismissed, so the same session failing again shows again.
std::string ackKey(const SessionRecord& record);

// Lower is shown first: awaiting 0, failed 1, a "fail" alert 1.2, a
// clipboard notice 1.5, working and compacting 2, stale 3, an "action"
// alert 3.5, done and other alerts 4.
double rank(const IslandItem& item);

// Whether `a` goes before `b`: the lower rank; on equal ranks, when a is
// awaiting, the one waiting longer, otherwise the one updated last. Only
// a's state chooses the tie-break, so an awaiting "Clipboard" or "Alert"
// notice (which nothing writes) is the one case where this is not a strict
// weak order.
bool order(const IslandItem& a, const IslandItem& b);

} // namespace Scheduler
} // namespace pelmora
