// Any bytes as the unified diff of one file, with a limit taken from the
// first byte: the result never holds more than the limit (at least one) and
// its note, and each kind of line carries exactly the numbers it should.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "activity/GitChanges.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pelmora;
    using Kind = DiffLine::Kind;
    if (size == 0) {
        return 0;
    }
    const std::int64_t limit = static_cast<std::int64_t>(data[0]) - 8;
    const std::string_view diff(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::vector<DiffLine> lines = GitChanges::parseDiff(diff, limit);
    // The line that reaches the limit may add one entry before the note,
    // even when the limit is zero or less.
    if (static_cast<std::int64_t>(lines.size()) > std::max<std::int64_t>(limit, 1) + 1) {
        std::abort();
    }
    for (const DiffLine& line : lines) {
        const bool old = line.kind == Kind::removed || line.kind == Kind::context;
        const bool fresh = line.kind == Kind::added || line.kind == Kind::context;
        if (line.oldNumber.has_value() != old || line.newNumber.has_value() != fresh) {
            std::abort();
        }
    }
    return 0;
}
