// `pelmora scan [FILE]`: the one line of a command's or a build's output that
// best says what went wrong, picked as the notch picks it for a tracked run.

#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

#include "CommandInput.h"
#include "Commands.h"
#include "Style.h"
#include "Terminal.h"
#include "activity/ErrorScanner.h"

namespace pelmora::cli {
namespace {

struct ScanOptions {
    std::string file;
};

int runScan(const ScanOptions& options) {
    // Chunk by chunk, as the output comes: `make 2>&1 | pelmora scan` keeps
    // no more than the scanner's pending line, however long the build talks.
    CommandInput input(options.file);
    ErrorScanner scanner;
    std::array<char, 65536> buffer{};
    while (const std::size_t got = input.read(buffer)) {
        scanner.feed(std::string_view(buffer.data(), got), false);
    }
    scanner.finish();

    const std::optional<std::string> best = scanner.best();
    if (!best) {
        std::fprintf(stderr, "pelmora: nothing to scan: the input has no line with text\n");
        return 1;
    }
    const Style style =
        ErrorScanner::looksLikeError(*best) ? Style{Colour::red, true, false} : Style{};
    std::printf("%s\n", styled(printable(*best), style, wantsColour(STDOUT_FILENO)).c_str());
    return 0;
}

Run declareScan(CLI::App& app) {
    auto options = std::make_shared<ScanOptions>();
    app.add_option("FILE", options->file, "the output to read (default: standard input)")
        ->type_name("");
    return [options] { return runScan(*options); };
}

} // namespace

const Command scanCommand{
    "scan", "the line of a build's output that says what failed",
    "Reads command or build output, both streams merged, and prints the line that best\n"
    "says what went wrong: the first that reads as an error, else the last with text,\n"
    "without its colours and control sequences. Exits 1 when no line has text.\n"
    "\n"
    "example: make 2>&1 | pelmora scan",
    declareScan};

} // namespace pelmora::cli
