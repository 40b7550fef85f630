#pragma once

// Character classes of the ASCII range, for the formats the system reads
// (JSON, numbers, git and build output, HTML, TOML). They never consult the
// locale, so a UTF-8 byte above 0x7F is never a digit or a letter here.
namespace pelmora::Ascii {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}
constexpr bool isAlpha(char c) {
    return isUpper(c) || isLower(c);
}
constexpr bool isAlnum(char c) {
    return isAlpha(c) || isDigit(c);
}
constexpr bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
// A blank or a tab.
constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
// Blank, tab, line feed, carriage return, vertical tab, form feed.
constexpr bool isSpace(char c) {
    return isBlank(c) || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
constexpr char toLower(char c) {
    return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
// 0-15 for a hexadecimal digit, -1 for anything else.
constexpr int hexValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace pelmora::Ascii
