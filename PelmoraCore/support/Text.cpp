#include "support/Text.h"

#include <utf8proc.h>

#include "support/Ascii.h"

namespace pelmora::Text {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// utf8proc takes signed scalars and answers out-of-range ones with its
// "unassigned" defaults, so any char32_t is safe to pass.
utf8proc_int32_t asUtf8proc(char32_t scalar) {
    return static_cast<utf8proc_int32_t>(scalar);
}

utf8proc_category_t categoryOf(char32_t scalar) {
    return utf8proc_category(asUtf8proc(scalar));
}

// The length of the well-formed sequence at `offset` (Unicode's table of
// well-formed byte sequences: no overlongs, no surrogates, nothing above
// U+10FFFF), or 0 when the byte there does not begin one.
std::size_t wellFormedLength(std::string_view text, std::size_t offset) {
    const std::size_t available = text.size() - offset;
    const unsigned char lead = byteAt(text, offset);
    std::size_t length = 0;
    unsigned char secondLow = 0x80;
    unsigned char secondHigh = 0xBF;
    if (lead < 0x80) {
        return 1;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) {
            secondLow = 0xA0;
        } else if (lead == 0xED) {
            secondHigh = 0x9F;
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) {
            secondLow = 0x90;
        } else if (lead == 0xF4) {
            secondHigh = 0x8F;
        }
    } else {
        return 0;
    }
    if (available < length) {
        return 0;
    }
    const unsigned char second = byteAt(text, offset + 1);
    if (second < secondLow || second > secondHigh) {
        return 0;
    }
    for (std::size_t index = 2; index < length; ++index) {
        if (!isContinuation(byteAt(text, offset + index))) {
            return 0;
        }
    }
    return length;
}

char32_t decodeWellFormed(std::string_view text, std::size_t offset, std::size_t length) {
    const unsigned char lead = byteAt(text, offset);
    if (length == 1) {
        return lead;
    }
    char32_t scalar = lead & (0x7F >> length);
    for (std::size_t index = 1; index < length; ++index) {
        scalar = (scalar << 6) | (byteAt(text, offset + index) & 0x3F);
    }
    return scalar;
}

// Walks the grapheme clusters of `text`, calling `visit(begin, end)` for each
// until it returns false.
template <class Visit> void forEachCharacter(std::string_view text, Visit visit) {
    std::size_t offset = 0;
    while (offset < text.size()) {
        const std::size_t begin = offset;
        char32_t previous = decodeScalar(text, offset);
        utf8proc_int32_t state = 0;
        while (offset < text.size()) {
            const unsigned char next = byteAt(text, offset);
            if (previous < 0x80 && next < 0x80) {
                // Between two ASCII scalars only CR LF stays together.
                if (previous == '\r' && next == '\n') {
                    previous = next;
                    ++offset;
                    continue;
                }
                break;
            }
            if (previous < 0x80) {
                // The state after an ASCII scalar is always that scalar's own
                // class, which is what a fresh state stands for; resetting keeps
                // the skipped ASCII pairs above from leaving it stale.
                state = 0;
            }
            std::size_t after = offset;
            const char32_t current = decodeScalar(text, after);
            if (utf8proc_grapheme_break_stateful(asUtf8proc(previous), asUtf8proc(current),
                                                 &state)) {
                break;
            }
            previous = current;
            offset = after;
        }
        if (!visit(begin, offset)) {
            return;
        }
    }
}

} // namespace

bool isValidUTF8(std::string_view text) {
    std::size_t offset = 0;
    while (offset < text.size()) {
        if (byteAt(text, offset) < 0x80) {
            ++offset;
            continue;
        }
        const std::size_t length = wellFormedLength(text, offset);
        if (length == 0) {
            return false;
        }
        offset += length;
    }
    return true;
}

char32_t decodeScalar(std::string_view text, std::size_t& offset) {
    if (offset >= text.size()) {
        offset = text.size();
        return replacementCharacter;
    }
    const unsigned char lead = byteAt(text, offset);
    if (lead < 0x80) {
        ++offset;
        return lead;
    }
    const std::size_t length = wellFormedLength(text, offset);
    if (length == 0) {
        ++offset;
        return replacementCharacter;
    }
    const char32_t scalar = decodeWellFormed(text, offset, length);
    offset += length;
    return scalar;
}

char32_t decodeScalarBefore(std::string_view text, std::size_t& end) {
    if (end > text.size()) {
        end = text.size();
    }
    if (end == 0) {
        return replacementCharacter;
    }
    const unsigned char last = byteAt(text, end - 1);
    if (last < 0x80) {
        --end;
        return last;
    }
    // A byte that is not a continuation byte always begins a scalar when
    // decoding forwards, so the nearest one decides: either its sequence ends
    // exactly here, or the last byte stands alone as an invalid one.
    std::size_t lead = end - 1;
    while (lead > 0 && end - lead < 4 && isContinuation(byteAt(text, lead))) {
        --lead;
    }
    if (!isContinuation(byteAt(text, lead))) {
        const std::size_t length = wellFormedLength(text, lead);
        if (length != 0 && lead + length == end) {
            end = lead;
            return decodeWellFormed(text, lead, length);
        }
    }
    --end;
    return replacementCharacter;
}

std::u32string scalars(std::string_view text) {
    std::u32string result;
    result.reserve(text.size());
    std::size_t offset = 0;
    while (offset < text.size()) {
        result.push_back(decodeScalar(text, offset));
    }
    return result;
}

std::string repairedUTF8(std::string_view text) {
    if (isValidUTF8(text)) {
        return std::string(text);
    }
    std::string result;
    result.reserve(text.size() + 8);
    std::size_t offset = 0;
    while (offset < text.size()) {
        const std::size_t length = wellFormedLength(text, offset);
        if (length != 0) {
            result.append(text.substr(offset, length));
            offset += length;
            continue;
        }
        // The longest prefix of a well-formed sequence found here: a possible
        // lead byte, then the continuation bytes that could still follow it.
        std::size_t subpart = 1;
        const unsigned char lead = byteAt(text, offset);
        std::size_t expected = lead >= 0xC2 && lead <= 0xDF   ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 1;
        while (subpart < expected && offset + subpart < text.size()) {
            const unsigned char next = byteAt(text, offset + subpart);
            bool fits = isContinuation(next);
            if (subpart == 1) {
                fits = fits && !(lead == 0xE0 && next < 0xA0) && !(lead == 0xED && next > 0x9F) &&
                       !(lead == 0xF0 && next < 0x90) && !(lead == 0xF4 && next > 0x8F);
            }
            if (!fits) {
                break;
            }
            ++subpart;
        }
        appendUTF8(result, replacementCharacter);
        offset += subpart;
    }
    return result;
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    forEachCharacter(text, [&](std::size_t, std::size_t) {
        ++count;
        return true;
    });
    return count;
}

std::vector<std::string_view> characters(std::string_view text) {
    std::vector<std::string_view> result;
    forEachCharacter(text, [&](std::size_t begin, std::size_t end) {
        result.push_back(text.substr(begin, end - begin));
        return true;
    });
    return result;
}

std::string_view prefixCharacters(std::string_view text, std::size_t count) {
    std::size_t taken = 0;
    std::size_t cut = 0;
    if (count == 0) {
        return text.substr(0, 0);
    }
    forEachCharacter(text, [&](std::size_t, std::size_t end) {
        cut = end;
        return ++taken < count;
    });
    return text.substr(0, cut);
}

bool isLetter(char32_t scalar) {
    if (scalar < 0x80) {
        return Ascii::isAlpha(static_cast<char>(scalar));
    }
    switch (categoryOf(scalar)) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
        return true;
    default:
        return false;
    }
}

bool isNumber(char32_t scalar) {
    if (scalar < 0x80) {
        return Ascii::isDigit(static_cast<char>(scalar));
    }
    switch (categoryOf(scalar)) {
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
        return true;
    default:
        return false;
    }
}

bool isMark(char32_t scalar) {
    if (scalar < 0x80) {
        return false;
    }
    switch (categoryOf(scalar)) {
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
        return true;
    default:
        return false;
    }
}

bool isPunctuation(char32_t scalar) {
    switch (categoryOf(scalar)) {
    case UTF8PROC_CATEGORY_PC:
    case UTF8PROC_CATEGORY_PD:
    case UTF8PROC_CATEGORY_PS:
    case UTF8PROC_CATEGORY_PE:
    case UTF8PROC_CATEGORY_PI:
    case UTF8PROC_CATEGORY_PF:
    case UTF8PROC_CATEGORY_PO:
        return true;
    default:
        return false;
    }
}

bool isWhitespace(char32_t scalar) {
    if (scalar < 0x80) {
        return Ascii::isSpace(static_cast<char>(scalar));
    }
    if (scalar == 0x85) {
        return true;
    }
    switch (categoryOf(scalar)) {
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
        return true;
    default:
        return false;
    }
}

bool isUppercase(char32_t scalar) {
    if (scalar < 0x80) {
        return Ascii::isUpper(static_cast<char>(scalar));
    }
    return categoryOf(scalar) == UTF8PROC_CATEGORY_LU || utf8proc_isupper(asUtf8proc(scalar));
}

bool isLowercase(char32_t scalar) {
    if (scalar < 0x80) {
        return Ascii::isLower(static_cast<char>(scalar));
    }
    return categoryOf(scalar) == UTF8PROC_CATEGORY_LL || utf8proc_islower(asUtf8proc(scalar));
}

std::string_view trimSpacesAndTabs(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return text.substr(0, 0);
    }
    const auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

std::string_view trimScalars(std::string_view text, bool (*predicate)(char32_t)) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t next = begin;
        if (!predicate(decodeScalar(text, next))) {
            break;
        }
        begin = next;
    }
    std::size_t end = text.size();
    while (end > begin) {
        std::size_t previous = end;
        if (!predicate(decodeScalarBefore(text, previous))) {
            break;
        }
        end = previous;
    }
    return text.substr(begin, end - begin);
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) {
    return trimScalars(text, isWhitespace);
}

std::string lowercased(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    std::size_t offset = 0;
    while (offset < text.size()) {
        const unsigned char byte = byteAt(text, offset);
        if (byte < 0x80) {
            result.push_back(Ascii::toLower(static_cast<char>(byte)));
            ++offset;
            continue;
        }
        const char32_t scalar = decodeScalar(text, offset);
        appendUTF8(result, static_cast<char32_t>(utf8proc_tolower(asUtf8proc(scalar))));
    }
    return result;
}

} // namespace pelmora::Text
