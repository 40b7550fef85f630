#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace pelmora {

// A whole text as a decimal integer of type Int: an optional "+" or "-" sign,
// then one or more ASCII digits, nothing else (no blanks, no "0x", no
// fraction). Out of range for Int gives none, never a wrapped value.
//
//     parseInteger<std::int32_t>("+42") == 42
//     parseInteger<std::int32_t>("2147483648") == std::nullopt
template <class Int> std::optional<Int> parseInteger(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    // from_chars takes its own "-" but not a "+", and would accept a second sign.
    if (text.empty() || text.front() < '0' || text.front() > '9') {
        return std::nullopt;
    }
    if (negative) {
        // Parsing the sign with the digits keeps the most negative value in range.
        std::string_view signedText(text.data() - 1, text.size() + 1);
        Int value{};
        auto [end, error] =
            std::from_chars(signedText.data(), signedText.data() + signedText.size(), value);
        if (error != std::errc() || end != signedText.data() + signedText.size()) {
            return std::nullopt;
        }
        return value;
    }
    Int value{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace pelmora
