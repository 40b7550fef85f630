#pragma once

#include <string>
#include <string_view>

// The lexical pieces that the JSON writers share.
namespace pelmora::JsonText {

enum class Style {
    // The installers' indented style: only quote, backslash and control
    // characters are escaped ("\u%04x" for those without a short form).
    plain,
    // The platform serialiser's style for wire lines and session files:
    // as plain, and "/" written as "\/".
    platform,
};

void appendQuoted(std::string& out, std::string_view text, Style style);

// The key order of the platform serialiser's sorted output: runs of digits
// compare by value, letters compare case-insensitively, and texts that are
// still equal fall back to byte order so that the order is total.
bool keyLess(std::string_view a, std::string_view b);

} // namespace pelmora::JsonText
