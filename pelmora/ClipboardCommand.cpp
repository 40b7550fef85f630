// `pelmora clipboard [FILE]`: what the notch would offer for a copied text:
// a stack trace tidied, JSON indented, a colour's components, or a warning
// that the text is a secret. `pbpaste | pelmora clipboard | pbcopy` puts the
// tidied trace or the indented JSON back: those go alone to standard output,
// and the line that describes them to standard error.

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

#include "CommandInput.h"
#include "Commands.h"
#include "Terminal.h"
#include "clipboard/ClipboardClassifier.h"

namespace pelmora::cli {
namespace {

struct ClipboardOptions {
    std::string file;
};

// Lines and tabs kept, each line made printable: a trace and indented JSON
// are read as blocks, and a Java frame starts with a tab.
std::string printableBlock(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const std::size_t stop = std::min(text.find_first_of("\n\t"), text.size());
        std::string_view piece = text.substr(0, stop);
        if (stop < text.size() && text[stop] == '\n' && piece.ends_with('\r')) {
            piece.remove_suffix(1);
        }
        out += printable(piece);
        if (stop < text.size()) {
            out += text[stop];
        }
        text.remove_prefix(std::min(stop + 1, text.size()));
    }
    return out;
}

// Three decimals at most, no trailing zeros: "1", "0.502".
std::string component(double value) {
    char text[16];
    std::snprintf(text, sizeof text, "%.3f", value);
    std::string out = text;
    out.erase(out.find_last_not_of('0') + 1);
    if (out.back() == '.') {
        out.pop_back();
    }
    return out;
}

int byte(double value) {
    return static_cast<int>(std::lround(value * 255));
}

// A block in the colour itself, for terminals that take 24-bit colours.
std::string swatch(const ClipboardAction::Color& color) {
    const char* depth = std::getenv("COLORTERM");
    if (!wantsColour(STDOUT_FILENO) || depth == nullptr ||
        (std::strcmp(depth, "truecolor") != 0 && std::strcmp(depth, "24bit") != 0)) {
        return "";
    }
    return "\x1b[48;2;" + std::to_string(byte(color.red)) + ";" +
           std::to_string(byte(color.green)) + ";" + std::to_string(byte(color.blue)) +
           "m    \x1b[0m  ";
}

void printColor(const ClipboardAction::Color& color) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "#%02x%02x%02x", byte(color.red), byte(color.green),
                  byte(color.blue));
    std::string line = swatch(color) + hex;
    if (color.alpha < 1) {
        char alpha[4];
        std::snprintf(alpha, sizeof alpha, "%02x", byte(color.alpha));
        line += alpha;
    }
    line += "  red " + component(color.red) + "  green " + component(color.green) + "  blue " +
            component(color.blue) + "  alpha " + component(color.alpha);
    std::printf("%s\n", line.c_str());
}

int runClipboard(const ClipboardOptions& options) {
    // One byte past the classifier's limit tells a text that is too long
    // from one that is exactly long enough.
    CommandInput input(options.file);
    std::string text;
    std::array<char, 65536> buffer{};
    while (text.size() <= ClipboardClassifier::maxBytes) {
        const std::size_t got = input.read(buffer);
        if (got == 0) {
            break;
        }
        text.append(buffer.data(), got);
    }
    if (text.size() > ClipboardClassifier::maxBytes) {
        std::fprintf(stderr, "pelmora: the text is longer than %zu bytes: not classified\n",
                     ClipboardClassifier::maxBytes);
        return 1;
    }

    const std::optional<ClipboardAction> action = ClipboardClassifier::classify(text);
    if (!action) {
        std::fprintf(stderr, "pelmora: not a stack trace, JSON, a colour or a secret\n");
        return 1;
    }
    if (const auto* trace = action->trace()) {
        std::string about = "trace: " + printable(trace->exception);
        if (trace->omittedFrames > 0) {
            about += ", " + std::to_string(trace->omittedFrames) + " frames left out";
        }
        std::fprintf(stderr, "%s\n", about.c_str());
        std::printf("%s\n", printableBlock(trace->cleaned).c_str());
    } else if (const auto* json = action->json()) {
        std::string about = json->isArray
                                ? "json: array of " + std::to_string(json->count) + " elements"
                                : "json: object of " + std::to_string(json->count) + " members";
        if (json->droppedBytes > 0) {
            about += "; cut after " + std::to_string(ClipboardClassifier::jsonLimit) + " bytes, " +
                     std::to_string(json->droppedBytes) + " left out";
        }
        std::fprintf(stderr, "%s\n", about.c_str());
        std::printf("%s\n", printableBlock(json->formatted).c_str());
    } else if (const auto* color = action->color()) {
        printColor(*color);
    } else {
        std::printf("secret: the text looks like a credential; it is not shown\n");
    }
    return 0;
}

Run declareClipboard(CLI::App& app) {
    auto options = std::make_shared<ClipboardOptions>();
    app.add_option("FILE", options->file, "the text to classify (default: standard input)")
        ->type_name("");
    return [options] { return runClipboard(*options); };
}

} // namespace

const Command clipboardCommand{
    "clipboard", "tidy a trace, indent JSON, read a colour, spot a secret",
    "Classifies a copied text as the notch does and prints what it would offer: a\n"
    "stack trace shortened to its innermost frames without user names, or JSON\n"
    "indented in its own key order (at most 8192 bytes), alone on standard output\n"
    "with a line about it on standard error; a colour's hexadecimal form and\n"
    "components from 0 to 1; or, for a secret, a line that says so without showing\n"
    "it. Exits 1 when the text is none of these.\n"
    "\n"
    "example: pbpaste | pelmora clipboard | pbcopy",
    declareClipboard};

} // namespace pelmora::cli
