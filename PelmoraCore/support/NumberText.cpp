#include "support/NumberText.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace pelmora::NumberText {

namespace {

// 24 bytes hold any shortest double in scientific form; fixed form of a value
// below 2^53 or 1e21 with up to 17 significant digits needs a few more.
constexpr std::size_t bufferSize = 64;

std::string format(double value, std::chars_format form) {
    char buffer[bufferSize];
    auto [end, error] = std::to_chars(buffer, buffer + bufferSize, value, form);
    if (error != std::errc{}) {
        return "0";
    }
    return std::string(buffer, end);
}

} // namespace

std::string shortest(double value) {
    if (!std::isfinite(value)) {
        return "0";
    }
    // Fixed notation for the magnitudes people write by hand (timestamps,
    // counts, fractions); beyond them the digits would only be zeros.
    const double magnitude = std::fabs(value);
    if (magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e21)) {
        return format(value, std::chars_format::fixed);
    }
    return format(value, std::chars_format::scientific);
}

std::string defaultForm(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    const double magnitude = std::fabs(value);
    constexpr double twoToThe53 = 9007199254740992.0;
    if (magnitude != 0 && (magnitude < 1e-4 || magnitude >= twoToThe53)) {
        return format(value, std::chars_format::scientific);
    }
    std::string text = format(value, std::chars_format::fixed);
    if (text.find('.') == std::string::npos) {
        text += ".0";
    }
    return text;
}

} // namespace pelmora::NumberText
