#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// UTF-8 text helpers over utf8proc. A "character" here is what a person sees
// as one: an extended grapheme cluster. Every function accepts any bytes;
// a byte that is not part of valid UTF-8 counts as one U+FFFD scalar.
namespace pelmora::Text {

bool isValidUTF8(std::string_view text);

// Decodes the scalar at `offset`, advancing it past the scalar's bytes.
char32_t decodeScalar(std::string_view text, std::size_t& offset);
// Decodes the scalar that ends at `end`, moving it back to the scalar's first
// byte; agrees with decodeScalar on where every scalar, valid or not, begins.
char32_t decodeScalarBefore(std::string_view text, std::size_t& end);
// The one UTF-8 encoder; a surrogate or a value past U+10FFFF comes out as
// U+FFFD. Inline, as the JSON parser calls it for every "\u" escape.
inline void appendUTF8(std::string& out, char32_t scalar) {
    if (scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF)) {
        scalar = 0xFFFD;
    }
    if (scalar < 0x80) {
        out.push_back(static_cast<char>(scalar));
    } else if (scalar < 0x800) {
        const char bytes[] = {static_cast<char>(0xC0 | (scalar >> 6)),
                              static_cast<char>(0x80 | (scalar & 0x3F))};
        out.append(bytes, sizeof bytes);
    } else if (scalar < 0x10000) {
        const char bytes[] = {static_cast<char>(0xE0 | (scalar >> 12)),
                              static_cast<char>(0x80 | ((scalar >> 6) & 0x3F)),
                              static_cast<char>(0x80 | (scalar & 0x3F))};
        out.append(bytes, sizeof bytes);
    } else {
        const char bytes[] = {static_cast<char>(0xF0 | (scalar >> 18)),
                              static_cast<char>(0x80 | ((scalar >> 12) & 0x3F)),
                              static_cast<char>(0x80 | ((scalar >> 6) & 0x3F)),
                              static_cast<char>(0x80 | (scalar & 0x3F))};
        out.append(bytes, sizeof bytes);
    }
}
std::u32string scalars(std::string_view text);
// Valid UTF-8 comes back unchanged; in anything else each maximal subpart of
// an ill-formed sequence becomes one U+FFFD (Unicode's recommended practice,
// which Foundation follows), so a character cut at the end of a buffer turns
// into one replacement character, not one per byte.
std::string repairedUTF8(std::string_view text);

// Grapheme clusters.
std::size_t characterCount(std::string_view text);
std::vector<std::string_view> characters(std::string_view text);
// The first `count` characters (all of `text` when it has no more).
std::string_view prefixCharacters(std::string_view text, std::size_t count);

// Scalar classes, by Unicode general category or property.
bool isLetter(char32_t scalar);      // L*
bool isNumber(char32_t scalar);      // N*
bool isMark(char32_t scalar);        // M*
bool isPunctuation(char32_t scalar); // P*
bool isWhitespace(char32_t scalar);  // White_Space, line breaks included
bool isUppercase(char32_t scalar);   // Lu, or has a lower-case mapping only
bool isLowercase(char32_t scalar);   // Ll, or has an upper-case mapping only

std::string_view trimSpacesAndTabs(std::string_view text);
// Unicode whitespace and line breaks at both ends.
std::string_view trimWhitespaceAndNewlines(std::string_view text);
// Drops scalars for which `predicate` holds from both ends.
std::string_view trimScalars(std::string_view text, bool (*predicate)(char32_t));
// Simple per-scalar lower-case mapping; the result is always valid UTF-8
// (a byte that is not part of valid UTF-8 comes out as U+FFFD).
std::string lowercased(std::string_view text);

} // namespace pelmora::Text
