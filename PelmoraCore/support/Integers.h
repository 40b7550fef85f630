#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "support/Ascii.h"

namespace pelmora {

// A whole text as a decimal integer of type Int: an optional "+" or "-" sign,
// then one or more ASCII digits, nothing else (no blanks, no "0x", no
// fraction). Out of range for Int gives none, never a wrapped value; so does
// any "-" for an unsigned Int, "-0" included.
//
//     parseInteger<std::int32_t>("+42") == 42
//     parseInteger<std::int32_t>("2147483648") == std::nullopt
template <class Int> std::optional<Int> parseInteger(std::string_view text) {
    // from_chars reads a "-" itself but refuses a "+"; a digit must follow
    // either, so that "+-1" and "--1" are refused too.
    const std::size_t sign = text.starts_with('+') || text.starts_with('-') ? 1 : 0;
    if (text.size() == sign || !Ascii::isDigit(text[sign])) {
        return std::nullopt;
    }
    if (text.front() == '+') {
        text.remove_prefix(1);
    }
    Int value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

} // namespace pelmora
