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

namespace pelmora::NumberText {

// The shortest text that reads back to the same double, as a JSON number:
// 1700000000 (no ".0"), 0.5, 1.5e+300. Not finite values give "0".
std::string shortest(double value);
// The language's default text form, which always shows a fraction or an
// exponent: 1700000000.0, 0.5, 1e-05, 1.2345678901234568e+17.
std::string defaultForm(double value);

} // namespace pelmora::NumberText
