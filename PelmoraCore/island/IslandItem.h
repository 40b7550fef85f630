#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "session/SessionRecord.h"
#include "support/Enum.h"

// What the notch island shows: one session in full (the primary), a few
// more as bubbles beside it, and the rest counted as overflow. Plain values;
// the Scheduler decides their contents.
namespace pelmora {

// How the island shows a session now. Declared in the order of urgency the
// island uses for its styles, which is not the scheduler's rank.
enum class DisplayState { awaiting, failed, working, compacting, stale, done };

std::string_view rawValue(DisplayState state);
// Exactly the six raw values, case-sensitive.
template <> std::optional<DisplayState> fromRaw<DisplayState>(std::string_view raw);

// The agent waits for the user, or something failed that nobody has dismissed.
constexpr bool needsAttention(DisplayState state) {
    return state == DisplayState::awaiting || state == DisplayState::failed;
}

struct IslandItem {
    SessionRecord record;
    DisplayState display = DisplayState::working;
    // Shown without drawing attention: an awaiting item that has waited long.
    bool quiet = false;

    bool operator==(const IslandItem&) const = default;

    // "<source raw value>-<session id>", e.g. "claude-abc": the session's
    // identity on the island and the key of a user's manual pick.
    std::string id() const { return record.key(); }
};

struct IslandLayout {
    std::optional<IslandItem> primary;
    std::vector<IslandItem> bubbles;
    std::vector<IslandItem> overflow;

    bool operator==(const IslandLayout&) const = default;

    // No primary, no bubbles, no overflow.
    static IslandLayout empty() { return {}; }
    // The scheduler never fills bubbles or overflow without a primary, so
    // the primary alone decides.
    bool isEmpty() const { return !primary.has_value(); }
};

} // namespace pelmora
