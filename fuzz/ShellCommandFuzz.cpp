// Any command line: the filter never fails, and a command whose start it
// shows always has an end it records, so no session is left running.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "integration/ShellCommandFilter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace Filter = pelmora::ShellCommandFilter;
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    Filter::simpleCommands(line);
    const auto start = Filter::onStart(line);
    for (int status : {0, 1, 2, 128, 130}) {
        const auto end = Filter::onEnd(line, status);
        if (start && !end) {
            std::abort();
        }
        if (start && end && end->verdict != *start) {
            std::abort();
        }
    }
    return 0;
}
