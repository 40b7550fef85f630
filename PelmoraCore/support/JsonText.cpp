#include "support/JsonText.h"

#include <array>
#include <cstdint>

namespace pelmora::JsonText {

namespace {

// For each byte, whether it needs an escape; the writers copy the runs
// between such bytes in one piece.
constexpr std::array<bool, 256> escapeTable(bool slash) {
    std::array<bool, 256> table{};
    for (int byte = 0; byte < 0x20; ++byte) {
        table[static_cast<std::size_t>(byte)] = true;
    }
    table['"'] = true;
    table['\\'] = true;
    table['/'] = slash;
    return table;
}

constexpr std::array<bool, 256> plainEscapes = escapeTable(false);
constexpr std::array<bool, 256> platformEscapes = escapeTable(true);

void appendEscape(std::string& out, unsigned char byte) {
    switch (byte) {
    case '"':
        out += "\\\"";
        return;
    case '\\':
        out += "\\\\";
        return;
    case '/':
        out += "\\/";
        return;
    case '\b':
        out += "\\b";
        return;
    case '\t':
        out += "\\t";
        return;
    case '\n':
        out += "\\n";
        return;
    case '\f':
        out += "\\f";
        return;
    case '\r':
        out += "\\r";
        return;
    default:
        break;
    }
    static constexpr char hex[] = "0123456789abcdef";
    const char escape[] = {'\\', 'u', '0', '0', hex[byte >> 4], hex[byte & 0xF]};
    out.append(escape, sizeof escape);
}

bool isDigit(unsigned char byte) {
    return byte >= '0' && byte <= '9';
}

unsigned char folded(unsigned char byte) {
    return (byte >= 'A' && byte <= 'Z') ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

// Three-way comparison of two digit runs by their numeric value, of any length.
int compareDigitRuns(std::string_view a, std::string_view b) {
    auto stripZeros = [](std::string_view run) {
        std::size_t first = 0;
        while (first < run.size() && run[first] == '0') {
            ++first;
        }
        return run.substr(first);
    };
    a = stripZeros(a);
    b = stripZeros(b);
    if (a.size() != b.size()) {
        return a.size() < b.size() ? -1 : 1;
    }
    const int order = a.compare(b);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

// The platform's numeric, case-insensitive comparison; 0 for texts that it
// cannot tell apart ("a01" and "A1").
int compareLoosely(std::string_view a, std::string_view b) {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        const auto x = static_cast<unsigned char>(a[i]);
        const auto y = static_cast<unsigned char>(b[j]);
        if (isDigit(x) && isDigit(y)) {
            std::size_t endA = i;
            while (endA < a.size() && isDigit(static_cast<unsigned char>(a[endA]))) {
                ++endA;
            }
            std::size_t endB = j;
            while (endB < b.size() && isDigit(static_cast<unsigned char>(b[endB]))) {
                ++endB;
            }
            if (int order = compareDigitRuns(a.substr(i, endA - i), b.substr(j, endB - j))) {
                return order;
            }
            i = endA;
            j = endB;
            continue;
        }
        const unsigned char fx = folded(x);
        const unsigned char fy = folded(y);
        if (fx != fy) {
            return fx < fy ? -1 : 1;
        }
        ++i;
        ++j;
    }
    const bool aLeft = i < a.size();
    const bool bLeft = j < b.size();
    return aLeft == bLeft ? 0 : (aLeft ? 1 : -1);
}

} // namespace

void appendQuoted(std::string& out, std::string_view text, Style style) {
    const auto& escapes = style == Style::platform ? platformEscapes : plainEscapes;
    out.reserve(out.size() + text.size() + 2);
    out += '"';
    const char* run = text.data();
    const char* const end = text.data() + text.size();
    for (const char* cursor = run; cursor != end; ++cursor) {
        const auto byte = static_cast<unsigned char>(*cursor);
        if (!escapes[byte]) {
            continue;
        }
        out.append(run, static_cast<std::size_t>(cursor - run));
        appendEscape(out, byte);
        run = cursor + 1;
    }
    out.append(run, static_cast<std::size_t>(end - run));
    out += '"';
}

bool keyLess(std::string_view a, std::string_view b) {
    if (int order = compareLoosely(a, b)) {
        return order < 0;
    }
    return a < b;
}

} // namespace pelmora::JsonText
