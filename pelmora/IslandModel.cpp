#include "IslandModel.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "hook/ProcessInspector.h"

namespace pelmora::cli {
namespace {

bool runs(const SessionRecord& record) {
    return record.state == SessionState::working || record.state == SessionState::awaiting ||
           record.state == SessionState::compacting;
}

} // namespace

bool IslandModel::isAlert(const SessionRecord& record) {
    return record.source == Source::git && record.tool == "Alert";
}

IslandModel::IslandModel(std::filesystem::path sessionsDirectory, SchedulerConfig config)
    : directory_(std::move(sessionsDirectory)), config_(config) {}

void IslandModel::rescan() {
    take(SessionStore::loadAll(directory_, cache_));
}

void IslandModel::reread(const std::set<std::string>& names) {
    take(SessionStore::reload(directory_, cache_, names));
}

void IslandModel::take(std::vector<SessionStore::LoadResult> results) {
    records_.clear();
    unreadable_ = 0;
    for (SessionStore::LoadResult& result : results) {
        if (result.record) {
            records_.push_back(std::move(*result.record));
        } else if (result.kind == SessionStore::LoadResult::Kind::corrupt) {
            ++unreadable_;
        }
    }
    // A dismissal covers one state of one session; once neither is on file
    // it can never match again.
    Scheduler::Acknowledged current;
    std::unordered_set<std::string> keys;
    for (const SessionRecord& record : records_) {
        std::string key = Scheduler::ackKey(record);
        if (acknowledged_.contains(key)) {
            current.insert(std::move(key));
        }
        keys.insert(record.key());
    }
    acknowledged_ = std::move(current);
    std::erase_if(liveness_, [&](const auto& entry) { return !keys.contains(entry.first); });
    inputStale_ = true;
}

void IslandModel::addAlert(const AlertRequest& alert, double now) {
    std::string sessionID = "alert-";
    if (alert.id) {
        sessionID += *alert.id;
    } else {
        sessionID += '#';
        sessionID += std::to_string(++alertsMade_);
    }
    std::erase_if(alerts_, [&](const Alert& shown) { return shown.record.sessionID == sessionID; });
    SessionRecord record =
        SessionRecord::make(Source::git, sessionID, alert.open.value_or(""), now);
    record.state = SessionState::done;
    record.tool = "Alert";
    // The scheduler ranks an alert by its level, which it reads here.
    record.lastEvent = std::string(rawValue(alert.level));
    record.title = alert.title;
    if (!alert.body.empty()) {
        record.summary = alert.body;
    }
    alerts_.push_back(
        {std::move(record), alert.ttl > 0 ? std::optional<double>(now + alert.ttl) : std::nullopt});
    inputStale_ = true;
}

void IslandModel::checkProcesses(double now) {
    for (const SessionRecord& record : records_) {
        if (!runs(record) || !record.pid) {
            continue;
        }
        Liveness& known = liveness_[record.key()];
        if (known.pid == record.pid && known.startTime == record.pidStartTime &&
            now - known.checkedAt < processCheckInterval && now >= known.checkedAt) {
            continue;
        }
        const bool alive = ProcessInspector::isAlive(*record.pid, record.pidStartTime);
        if (alive != known.alive) {
            inputStale_ = true;
        }
        known = {record.pid, record.pidStartTime, alive, now};
    }
}

bool IslandModel::isGone(const SessionRecord& record) const {
    if (!runs(record) || !record.pid) {
        return false;
    }
    const auto known = liveness_.find(record.key());
    return known != liveness_.end() && !known->second.alive && known->second.pid == record.pid &&
           known->second.startTime == record.pidStartTime;
}

const std::vector<SessionRecord>& IslandModel::input() {
    if (inputStale_) {
        input_.clear();
        for (const SessionRecord& record : records_) {
            // A gone session the person dismissed stays out until it runs again.
            if (!(isGone(record) && acknowledged_.contains(Scheduler::ackKey(record)))) {
                input_.push_back(record);
            }
        }
        for (const Alert& alert : alerts_) {
            input_.push_back(alert.record);
        }
        inputStale_ = false;
    }
    return input_;
}

IslandLayout IslandModel::layout(double now) {
    if (std::erase_if(alerts_, [now](const Alert& alert) {
            return alert.expiresAt && *alert.expiresAt <= now;
        }) > 0) {
        inputStale_ = true;
    }
    IslandLayout shown = Scheduler::layout(input(), now, config_, acknowledged_, pick_);
    if (pick_ && (!shown.primary || shown.primary->id() != pick_->key)) {
        pick_.reset();
    }
    return shown;
}

IslandCounts IslandModel::counts(const IslandLayout& layout) const {
    IslandCounts counts;
    auto count = [&](const IslandItem& item) {
        if (isGone(item.record)) {
            ++counts.gone;
        } else if (item.display == DisplayState::awaiting) {
            ++counts.waiting;
        } else if (item.display == DisplayState::failed) {
            ++counts.failed;
        } else if (item.display == DisplayState::working ||
                   item.display == DisplayState::compacting) {
            ++counts.working;
        }
    };
    if (layout.primary) {
        count(*layout.primary);
    }
    std::for_each(layout.bubbles.begin(), layout.bubbles.end(), count);
    std::for_each(layout.overflow.begin(), layout.overflow.end(), count);
    return counts;
}

void IslandModel::pickNext(double now) {
    const IslandLayout shown = layout(now);
    if (!shown.primary) {
        return;
    }
    // The scheduler's own order, which a pick does not change, so that Tab
    // walks every item once instead of swapping the first two.
    const IslandLayout natural = Scheduler::layout(input(), now, config_, acknowledged_, {});
    std::vector<const IslandItem*> order{&*natural.primary};
    for (const IslandItem& item : natural.bubbles) {
        order.push_back(&item);
    }
    for (const IslandItem& item : natural.overflow) {
        order.push_back(&item);
    }
    const auto current = std::find_if(order.begin(), order.end(), [&](const IslandItem* item) {
        return item->id() == shown.primary->id();
    });
    const std::size_t next =
        current == order.end() ? 0 : (static_cast<std::size_t>(current - order.begin()) + 1);
    if (next == 0 || next >= order.size()) {
        pick_.reset();
        return;
    }
    pick_ = ManualPick{order[next]->id(), order[next]->record.stateSince, now};
}

bool IslandModel::canDismiss(const IslandItem& item) const {
    const SessionRecord& record = item.record;
    return isAlert(record) || item.display == DisplayState::failed || isGone(record) ||
           (record.source == Source::git && (record.tool == "Changes" || record.tool == "Usage"));
}

bool IslandModel::dismissPrimary(double now) {
    const IslandLayout shown = layout(now);
    if (!shown.primary || !canDismiss(*shown.primary)) {
        return false;
    }
    const SessionRecord& record = shown.primary->record;
    if (isAlert(record)) {
        std::erase_if(alerts_, [&](const Alert& alert) {
            return alert.record.sessionID == record.sessionID;
        });
    } else {
        acknowledged_.insert(Scheduler::ackKey(record));
    }
    inputStale_ = true;
    return true;
}

} // namespace pelmora::cli
