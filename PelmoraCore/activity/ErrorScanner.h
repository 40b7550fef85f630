#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

// Picks, from a command's output as it arrives, the one line that best tells
// the user what went wrong: the first line that looks like an error, else the
// first line on standard error, else the last line seen.
//
//     ErrorScanner scanner;
//     scanner.feed(chunkFromStdout, false);
//     scanner.feed(chunkFromStderr, true);
//     scanner.finish();
//     if (auto line = scanner.best()) { ... }
//
// Memory stays bounded whatever the command writes: at most maxPending
// characters wait per stream for their newline, and each remembered line is
// at most maxLineLength characters and an ellipsis.
namespace pelmora {

struct ErrorScanner {
    static constexpr std::size_t maxPending = 4096;
    static constexpr std::size_t maxLineLength = 200;

    std::optional<std::string> firstError;  // the first line that looks like an error
    std::optional<std::string> firstStderr; // the first non-empty line of standard error
    std::optional<std::string> lastLine;    // the latest non-empty line of either stream
    // Per stream (true: standard error), what came after its last newline.
    std::map<bool, std::string> pending;

    bool operator==(const ErrorScanner&) const = default;

    // The next bytes of one stream, cut anywhere. Each chunk is decoded by
    // itself: bytes that are not UTF-8 (a character split between two
    // chunks included) become U+FFFD. A line ends at "\n" or "\r\n".
    void feed(std::string_view data, bool isStderr);
    // Both streams ended: what is pending counts as their last lines.
    void finish();

    std::optional<std::string> best() const;

    // A line as a terminal would have shown it: control sequences and control
    // characters gone, only what follows the last lone carriage return, blanks
    // and tabs trimmed, cut to maxLineLength characters and "…".
    static std::string clean(std::string_view line);
    // After clean: whether the line reads as an error ("error", "failed",
    // "fatal", "✖", "✗", "assertion" in any case, or a leading "fail ").
    static bool looksLikeError(std::string_view cleanedLine);

private:
    void consume(std::string_view cleanedLine, bool isStderr);
};

} // namespace pelmora
