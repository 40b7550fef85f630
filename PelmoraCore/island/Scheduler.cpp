#include "island/Scheduler.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "support/NumberText.h"

namespace pelmora::Scheduler {
namespace {

enum class Notice { none, clipboard, alert, changes };

// The app's own notices ride on git records, named by their tool word.
Notice noticeOf(const SessionRecord& record) {
    if (record.source != Source::git || !record.tool) {
        return Notice::none;
    }
    const std::string& tool = *record.tool;
    if (tool == "Clipboard") {
        return Notice::clipboard;
    }
    if (tool == "Alert") {
        return Notice::alert;
    }
    if (tool == "Changes" || tool == "Usage") {
        return Notice::changes;
    }
    return Notice::none;
}

std::optional<DisplayState> doneDisplay(const SessionRecord& record, double stateAge,
                                        const SchedulerConfig& config,
                                        const Acknowledged& acknowledged) {
    switch (noticeOf(record)) {
    case Notice::clipboard:
    case Notice::alert:
        // These stay until the app removes their record.
        return DisplayState::done;
    case Notice::changes:
        if (stateAge >= std::max(config.doneLinger, config.changesLinger) ||
            acknowledged.contains(ackKey(record))) {
            return std::nullopt;
        }
        return DisplayState::done;
    case Notice::none:
        break;
    }
    if (stateAge < config.doneLinger) {
        return DisplayState::done;
    }
    return std::nullopt;
}

// What `order` compares, taken once per item so that sorting a thousand
// records does not rebuild ids or re-read tool words.
struct SortKey {
    double rank;
    bool awaiting;
    double stateSince;
    double updatedAt;
};

SortKey sortKey(const IslandItem& item) {
    return {rank(item), item.display == DisplayState::awaiting, item.record.stateSince,
            item.record.updatedAt};
}

bool before(const SortKey& a, const SortKey& b) {
    if (a.rank != b.rank) {
        return a.rank < b.rank;
    }
    if (a.awaiting) {
        return a.stateSince < b.stateSince; // longest waiting first
    }
    return a.updatedAt > b.updatedAt; // most recently active first
}

// A session's identity without building its id string.
struct SessionIdentity {
    Source source;
    std::string_view sessionID;
    bool operator==(const SessionIdentity&) const = default;
};
struct SessionIdentityHash {
    std::size_t operator()(const SessionIdentity& identity) const {
        return std::hash<std::string_view>()(identity.sessionID) * 31 +
               static_cast<std::size_t>(identity.source);
    }
};

SessionIdentity identityOf(const IslandItem& item) {
    return {item.record.source, item.record.sessionID};
}

bool matchesKey(const IslandItem& item, std::string_view key) {
    const std::string_view source = rawValue(item.record.source);
    return key.size() == source.size() + 1 + item.record.sessionID.size() &&
           key.starts_with(source) && key[source.size()] == '-' &&
           key.substr(source.size() + 1) == item.record.sessionID;
}

} // namespace

std::optional<IslandItem> display(const SessionRecord& record, double now,
                                  const SchedulerConfig& config, const Acknowledged& acknowledged) {
    const double stateAge = now - record.stateSince;
    const double silence = now - record.updatedAt;
    std::optional<DisplayState> shown;
    bool quiet = false;
    switch (record.state) {
    case SessionState::idle:
    case SessionState::ended:
        break;
    case SessionState::working:
        // Updates and services report only when something changes, so their
        // silence says nothing about whether they still run.
        shown = silence <= config.staleAfter || record.source == Source::update ||
                        record.source == Source::service
                    ? DisplayState::working
                    : DisplayState::stale;
        break;
    case SessionState::awaiting:
        if (stateAge <= config.awaitingStaleAfter) {
            shown = DisplayState::awaiting;
            quiet = stateAge > config.awaitingQuietAfter;
        } else {
            shown = DisplayState::stale;
        }
        break;
    case SessionState::compacting:
        shown = silence > config.staleAfter ? DisplayState::stale : DisplayState::compacting;
        break;
    case SessionState::failed:
        if (acknowledged.contains(ackKey(record))) {
            break;
        }
        // A service whose port went down is news only for a moment.
        if (record.source == Source::service && record.port && stateAge >= config.portDownLinger) {
            break;
        }
        shown = DisplayState::failed;
        break;
    case SessionState::done:
        shown = doneDisplay(record, stateAge, config, acknowledged);
        break;
    }
    if (!shown) {
        return std::nullopt;
    }
    return IslandItem{record, *shown, quiet};
}

std::string ackKey(const SessionRecord& record) {
    std::string key = record.key();
    key += '@';
    key += NumberText::defaultForm(record.stateSince);
    return key;
}

double rank(const IslandItem& item) {
    // A notice keeps its rank whatever state its record is in.
    switch (noticeOf(item.record)) {
    case Notice::clipboard:
        return 1.5;
    case Notice::alert:
        if (item.record.lastEvent == "fail") {
            return 1.2;
        }
        if (item.record.lastEvent == "action") {
            return 3.5;
        }
        return 4.0;
    case Notice::changes:
    case Notice::none:
        break;
    }
    switch (item.display) {
    case DisplayState::awaiting:
        return 0;
    case DisplayState::failed:
        return 1;
    case DisplayState::working:
    case DisplayState::compacting:
        return 2;
    case DisplayState::stale:
        return 3;
    case DisplayState::done:
        return 4;
    }
    return 4;
}

bool order(const IslandItem& a, const IslandItem& b) {
    return before(sortKey(a), sortKey(b));
}

IslandLayout layout(std::span<const SessionRecord> records, double now,
                    const SchedulerConfig& config, const Acknowledged& acknowledged,
                    const std::optional<ManualPick>& pick) {
    std::vector<IslandItem> items;
    std::vector<std::pair<SortKey, std::size_t>> sorted;
    for (const SessionRecord& record : records) {
        if (std::optional<IslandItem> item = display(record, now, config, acknowledged)) {
            sorted.emplace_back(sortKey(*item), items.size());
            items.push_back(std::move(*item));
        }
    }
    if (items.empty()) {
        return IslandLayout::empty();
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return before(a.first, b.first); });

    std::size_t primary = sorted.front().second;
    if (pick) {
        const auto picked = std::find_if(sorted.begin(), sorted.end(), [&](const auto& entry) {
            const IslandItem& item = items[entry.second];
            return item.record.stateSince == pick->stateSince && matchesKey(item, pick->key);
        });
        // Something more urgent that began after the user chose wins the
        // place back; something more urgent that was already there when the
        // user chose does not.
        const auto overrides = [&](const auto& entry) {
            const IslandItem& item = items[entry.second];
            return entry.first.rank < picked->first.rank &&
                   item.record.stateSince > pick->pickedAt && !matchesKey(item, pick->key);
        };
        if (picked != sorted.end() && std::none_of(sorted.begin(), sorted.end(), overrides)) {
            primary = picked->second;
        }
    }

    // Which items to show is settled before any is moved out, since the
    // identities seen so far point into the items' own strings.
    std::vector<std::size_t> rest;
    std::unordered_set<SessionIdentity, SessionIdentityHash> placed{identityOf(items[primary])};
    for (const auto& entry : sorted) {
        if (placed.insert(identityOf(items[entry.second])).second) {
            rest.push_back(entry.second);
        }
    }

    IslandLayout result;
    result.primary = std::move(items[primary]);
    const std::size_t bubbleCount =
        std::min(rest.size(), static_cast<std::size_t>(std::max(config.maxBubbles, 0)));
    result.bubbles.reserve(bubbleCount);
    result.overflow.reserve(rest.size() - bubbleCount);
    for (std::size_t i = 0; i < rest.size(); ++i) {
        (i < bubbleCount ? result.bubbles : result.overflow).push_back(std::move(items[rest[i]]));
    }
    return result;
}

} // namespace pelmora::Scheduler
