#include "support/JsonText.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "support/Ascii.h"
#include "support/Scanner.h"

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

// Three-way comparison of two digit runs by their numeric value, of any length.
int compareDigitRuns(std::string_view a, std::string_view b) {
    auto stripZeros = [](std::string_view run) {
        return run.substr(std::min(run.find_first_not_of('0'), run.size()));
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
    Scanner x(a);
    Scanner y(b);
    while (!x.atEnd() && !y.atEnd()) {
        if (Ascii::isDigit(x.peek()) && Ascii::isDigit(y.peek())) {
            if (int order =
                    compareDigitRuns(x.takeWhile(Ascii::isDigit), y.takeWhile(Ascii::isDigit))) {
                return order;
            }
            continue;
        }
        const auto fx = static_cast<unsigned char>(Ascii::toLower(x.consume()));
        const auto fy = static_cast<unsigned char>(Ascii::toLower(y.consume()));
        if (fx != fy) {
            return fx < fy ? -1 : 1;
        }
    }
    return x.atEnd() == y.atEnd() ? 0 : (x.atEnd() ? -1 : 1);
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
