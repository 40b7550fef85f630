// Any bytes, cut into chunks of both streams by the input itself: the
// scanner never keeps more than it promises, and every line it remembers is
// valid UTF-8 with no control character left but tabs.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "activity/ErrorScanner.h"
#include "support/Text.h"

namespace {

void checkLine(const std::optional<std::string>& line) {
    if (!line) {
        return;
    }
    if (line->empty() || !pelmora::Text::isValidUTF8(*line) ||
        pelmora::Text::characterCount(*line) > pelmora::ErrorScanner::maxLineLength + 1) {
        std::abort();
    }
    for (char c : *line) {
        if (static_cast<unsigned char>(c) < 32 && c != '\t') {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pelmora;
    ErrorScanner scanner;
    std::size_t at = 0;
    while (at < size) {
        // One control byte: the chunk's length (1-64) and its stream.
        const std::uint8_t control = data[at++];
        const std::size_t length = std::min<std::size_t>((control & 63) + 1, size - at);
        scanner.feed(std::string_view(reinterpret_cast<const char*>(data + at), length),
                     (control & 64) != 0);
        at += length;
        for (const auto& [stream, pending] : scanner.pending) {
            if (Text::characterCount(pending) > ErrorScanner::maxPending) {
                std::abort();
            }
        }
    }
    scanner.finish();
    if (!scanner.pending.empty()) {
        std::abort();
    }
    checkLine(scanner.firstError);
    checkLine(scanner.firstStderr);
    checkLine(scanner.lastLine);
    return 0;
}
