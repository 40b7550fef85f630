#pragma once

#include <optional>
#include <string>
#include <string_view>

// Timestamps are double seconds since 1970-01-01 00:00 UTC throughout.
namespace pelmora::Time {

double now();

// ISO 8601 / RFC 3339: "2026-11-22T10:15:30Z", with optional fractional
// seconds and a "Z" or "+hh:mm" / "-hh:mm" / "+hhmm" offset.
std::optional<double> parseISO8601(std::string_view text);
// UTC with a "Z" and no fraction: "2026-11-22T10:15:30Z".
std::string formatISO8601(double seconds);

} // namespace pelmora::Time
