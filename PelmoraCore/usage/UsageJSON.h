#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "json/JSONValue.h"

// What the usage readers share in reading other programs' JSON: each helper
// gives an absent value for a missing member or one of another type, so a
// reader can skip a window without failing the others.
namespace pelmora::UsageJSON {

// The bytes as a JSON object, or none for anything else.
std::optional<JSONValue> parseObject(std::string_view bytes);

// The member `key` of `parent` when both are objects.
const JSONValue* object(const JSONValue* parent, std::string_view key);
// A numeric member as a double.
std::optional<double> number(const JSONValue* parent, std::string_view key);
// A text member holding an ISO 8601 date, as seconds since 1970.
std::optional<double> date(const JSONValue* parent, std::string_view key);
// A text member that is not empty.
const std::string* text(const JSONValue* parent, std::string_view key);

// A count of minutes rounded to the nearest whole one, when it fits an int.
std::optional<int> wholeMinutes(double minutes);

// A token that will still be accepted when the request arrives: its expiry
// must lie more than `tokenLeeway` seconds after `now`.
inline constexpr double tokenLeeway = 30;
std::optional<std::string> liveToken(const std::string* token, std::optional<double> expiresAt,
                                     double now);

// Claude reports the same two windows through its status line and its
// OAuth endpoint; both readers use these ids so the tracker sees one window.
struct ClaudeSlot {
    std::string_view key;
    std::string_view id;
    int minutes;
};
inline constexpr std::array<ClaudeSlot, 2> claudeSlots{{
    {"five_hour", "claude.five_hour", 300},
    {"seven_day", "claude.seven_day", 10'080},
}};

} // namespace pelmora::UsageJSON
