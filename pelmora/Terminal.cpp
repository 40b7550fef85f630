#include "Terminal.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "support/Text.h"

namespace pelmora::cli {
namespace {

constexpr char32_t replacement = U'\uFFFD';

bool isUnsafe(char32_t scalar) {
    // C0 and C1 controls drive the terminal; the bidirectional overrides and
    // isolates can make a command read differently from what it is.
    return scalar < 0x20 || (scalar >= 0x7F && scalar <= 0x9F) ||
           (scalar >= 0x202A && scalar <= 0x202E) || (scalar >= 0x2066 && scalar <= 0x2069);
}

std::string spaces(std::string_view text, std::size_t width) {
    const std::size_t count = Text::characterCount(text);
    return std::string(count < width ? width - count : 0, ' ');
}

} // namespace

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t offset = 0;
    while (offset < text.size()) {
        const std::size_t start = offset;
        const char32_t scalar = Text::decodeScalar(text, offset);
        if (isUnsafe(scalar)) {
            Text::appendUTF8(out, replacement);
        } else if (scalar == replacement) {
            // Either a real U+FFFD or a byte that is not UTF-8: both print as one.
            Text::appendUTF8(out, replacement);
        } else {
            out.append(text.substr(start, offset - start));
        }
    }
    return out;
}

bool wantsColour(int fd) {
    if (isatty(fd) == 0) {
        return false;
    }
    const char* noColour = std::getenv("NO_COLOR");
    if (noColour != nullptr && noColour[0] != '\0') {
        return false;
    }
    const char* term = std::getenv("TERM");
    return term == nullptr || std::strcmp(term, "dumb") != 0;
}

std::string padRight(std::string_view text, std::size_t width) {
    return std::string(text) + spaces(text, width);
}

std::string padLeft(std::string_view text, std::size_t width) {
    return spaces(text, width) + std::string(text);
}

} // namespace pelmora::cli
