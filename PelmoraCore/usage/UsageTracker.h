#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hook/Source.h"
#include "json/JSONValue.h"

namespace pelmora {

struct JSONDecodeFailure;

// One rate-limit window of one agent's subscription, as last read.
struct UsageWindow {
    // The window's length as a person names it. Only `other` carries its
    // length; for the named cases `minutes` stays 0 so that two kinds are
    // equal exactly when they name the same length.
    struct Kind {
        enum class Case { other, fiveHours, day, week, month };
        Case tag = Case::other;
        int minutes = 0;

        static constexpr Kind other(int length) { return {Case::other, length}; }
        static constexpr Kind fiveHours() { return {Case::fiveHours, 0}; }
        static constexpr Kind day() { return {Case::day, 0}; }
        static constexpr Kind week() { return {Case::week, 0}; }
        static constexpr Kind month() { return {Case::month, 0}; }

        bool operator==(const Kind&) const = default;
    };

    std::string id;
    Source agent = Source::claude;
    int minutes = 0;
    double usedPercent = 0;
    double resetsAt = 0;

    bool operator==(const UsageWindow&) const = default;

    // Exactly 300, 1,440 or 10,080 minutes, or 28 to 31 days; anything else
    // is `other`.
    Kind kind() const;
    // A reading taken before the window reset says nothing about it now.
    double percent(double at) const;

    // Keys are the field names, agent as its raw value, resetsAt as seconds
    // since 1970.
    JSONValue toJSON() const;
    // std::nullopt when a field is missing, of the wrong type, out of range,
    // or the agent is unknown; the first such field in `*failure` when given.
    static std::optional<UsageWindow> fromJSON(const JSONValue& json,
                                               JSONDecodeFailure* failure = nullptr);
};

// Scoped enumerations compare by their underlying values, so `<` orders the
// stages by raw value.
enum class UsageStage : int { none = 0, warn80 = 80, warn95 = 95, exhausted = 100 };

constexpr int rawValue(UsageStage stage) {
    return static_cast<int>(stage);
}
std::optional<UsageStage> usageStageFromRaw(int raw);

// 99.9 rather than 100 counts as exhausted, so that a figure rounded to one
// decimal already reads as used up.
UsageStage stageFor(double percent);

struct UsageEvent {
    struct Kind {
        enum class Case { reached, reset };
        Case tag = Case::reset;
        // The stage reached; `none` for a reset.
        UsageStage stage = UsageStage::none;

        static constexpr Kind reached(UsageStage to) { return {Case::reached, to}; }
        static constexpr Kind reset() { return {Case::reset, UsageStage::none}; }

        bool operator==(const Kind&) const = default;
    };

    Kind kind;
    // The reading that caused the event.
    UsageWindow window;

    bool operator==(const UsageEvent&) const = default;
};

// Turns successive readings into announcements: each climb to a higher
// stage once, and the end of an exhausted window. Owned by its caller and
// never persisted, so the first reading after a start is mostly silent.
struct UsageTracker {
    std::map<std::string, UsageStage> stages;
    bool seen = false;

    bool operator==(const UsageTracker&) const = default;

    // At most one event per window, in the windows' order.
    std::vector<UsageEvent> update(double now, const std::vector<UsageWindow>& windows);
};

} // namespace pelmora
