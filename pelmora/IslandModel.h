#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "alert/AlertRecords.h"
#include "island/Scheduler.h"
#include "session/SessionStore.h"

// The island as a terminal shows it: the sessions in the folder, the alerts
// that arrived on the alert socket, and what the person did about them (the
// items they dismissed and the one they picked). The scheduler decides the
// layout; this adds what only a live caller knows, such as which agents
// have died without telling their hooks.
//
//     IslandModel island(PelmoraPaths::sessionsDirectory());
//     island.rescan();                     // whenever the folder changes
//     island.checkProcesses(Time::now());  // on the timer
//     const IslandLayout shown = island.layout(Time::now());
namespace pelmora::cli {

struct IslandCounts {
    std::size_t waiting = 0; // awaiting, the agent alive
    std::size_t failed = 0;
    std::size_t working = 0; // working or compacting, the agent alive
    std::size_t gone = 0;
    bool operator==(const IslandCounts&) const = default;
};

class IslandModel {
public:
    // How often one agent process is looked for, at most.
    static constexpr double processCheckInterval = 3;

    explicit IslandModel(std::filesystem::path sessionsDirectory, SchedulerConfig config = {});

    // Reads the folder again through the store's cache: only files whose
    // date or size changed are read.
    void rescan();
    // Looks again at the named session files alone (a change notice named
    // them), so a change costs a stat of one file, not of the whole folder.
    void reread(const std::set<std::string>& names);
    // Files that could not be read as sessions at the last rescan.
    std::size_t unreadable() const { return unreadable_; }

    // Shows an alert as the app does: a "git" notice whose tool is "Alert",
    // ranked by its level, for `ttl` seconds (0: until dismissed). One with
    // the id of an alert on show takes its place.
    void addAlert(const AlertRequest& alert, double now);

    // Looks for the agent process of each running session (at most every
    // processCheckInterval seconds per session).
    void checkProcesses(double now);
    // A working, waiting or compacting session whose agent process has
    // exited: its hooks will never say so, so it would run forever.
    bool isGone(const SessionRecord& record) const;

    // The scheduler's layout now; alerts past their time are dropped first,
    // and a pick that no longer holds is forgotten.
    IslandLayout layout(double now);
    IslandCounts counts(const IslandLayout& layout) const;

    // Tab: the next item in the scheduler's order becomes the primary; from
    // the last, the scheduler's own choice comes back.
    void pickNext(double now);
    // x: dismisses the primary when it can be dismissed; false otherwise.
    bool dismissPrimary(double now);
    // A failure, a gone session, an alert, a changes or usage notice.
    bool canDismiss(const IslandItem& item) const;
    static bool isAlert(const SessionRecord& record);

private:
    // The records of a scan or reread, and what follows from them.
    void take(std::vector<SessionStore::LoadResult> results);

    struct Alert {
        SessionRecord record;
        std::optional<double> expiresAt;
    };
    struct Liveness {
        std::optional<std::int32_t> pid;
        std::optional<double> startTime;
        bool alive = true;
        double checkedAt = 0;
    };

    const std::vector<SessionRecord>& input();

    std::filesystem::path directory_;
    SchedulerConfig config_;
    SessionStore::LoadCache cache_;
    std::vector<SessionRecord> records_;
    std::size_t unreadable_ = 0;
    std::vector<Alert> alerts_;
    std::size_t alertsMade_ = 0;
    std::unordered_map<std::string, Liveness> liveness_;
    Scheduler::Acknowledged acknowledged_;
    std::optional<ManualPick> pick_;
    // What the scheduler is given: the live records and the alerts, rebuilt
    // only when one of them changes, not on every tick of the clock.
    std::vector<SessionRecord> input_;
    bool inputStale_ = true;
};

} // namespace pelmora::cli
