#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "support/Enum.h"

// What the user just copied, if it is something the notch can help with: a
// secret that should not stay on the clipboard, a stack trace to tidy, a JSON
// document to pretty-print, or a colour to preview.
//
//     if (auto action = ClipboardClassifier::classify(text)) {
//         if (const auto* trace = action->trace()) { show(trace->cleaned); }
//     }
namespace pelmora {

class Regex;

struct ClipboardAction {
    enum class Case { trace, json, color, secret };

    struct Trace {
        std::string exception;          // "ZeroDivisionError", "TypeError", ...
        std::string cleaned;            // the trace, shortened and without user names
        std::int64_t omittedFrames = 0; // frames left out of `cleaned`
        bool operator==(const Trace&) const = default;
    };
    struct JSON {
        bool isArray = false;
        std::int64_t count = 0;        // top-level members or elements
        std::string formatted;         // indented by two blanks, at most jsonLimit bytes
        std::int64_t droppedBytes = 0; // of the indented text, cut off at the end
        bool operator==(const JSON&) const = default;
    };
    struct Color {
        std::string original; // the literal as copied (trimmed)
        double red = 0;       // each from 0 to 1
        double green = 0;
        double blue = 0;
        double alpha = 1;
        bool operator==(const Color&) const = default;
    };
    struct Secret {
        bool operator==(const Secret&) const = default;
    };

    std::variant<Trace, JSON, Color, Secret> payload;

    bool operator==(const ClipboardAction&) const = default;

    Case kind() const { return static_cast<Case>(payload.index()); }
    const Trace* trace() const { return std::get_if<Trace>(&payload); }
    const JSON* json() const { return std::get_if<JSON>(&payload); }
    const Color* color() const { return std::get_if<Color>(&payload); }
    bool isSecret() const { return std::holds_alternative<Secret>(payload); }
};

std::string_view rawValue(ClipboardAction::Case kind);
template <>
std::optional<ClipboardAction::Case> fromRaw<ClipboardAction::Case>(std::string_view raw);

namespace ClipboardClassifier {

inline constexpr std::size_t maxBytes = 1'000'000;
inline constexpr std::size_t jsonLimit = 8'192;
inline constexpr std::size_t keptFrames = 5;

// Credential shapes, tried in this order; any match anywhere makes a secret.
inline constexpr std::array<std::string_view, 18> secretPatternSources{
    R"re(-----BEGIN [A-Z0-9 ]*PRIVATE KEY( BLOCK)?-----)re",
    R"re(\bsk-[A-Za-z0-9_-]{16,})re",
    R"re(\b[spr]k_(live|test)_[A-Za-z0-9]{16,})re",
    R"re(\bwhsec_[A-Za-z0-9]{16,})re",
    R"re(\bgh[pousr]_[A-Za-z0-9]{30,})re",
    R"re(\bgithub_pat_[A-Za-z0-9_]{30,})re",
    R"re(\bglpat-[A-Za-z0-9_-]{20,})re",
    R"re(\bxox[abprs]-[A-Za-z0-9-]{10,})re",
    R"re(\b(AKIA|ASIA)[0-9A-Z]{16}\b)re",
    R"re(\bAIza[0-9A-Za-z_-]{35}\b)re",
    R"re(\bnpm_[A-Za-z0-9]{36}\b)re",
    R"re(\bhf_[A-Za-z0-9]{30,})re",
    R"re(\bSG\.[A-Za-z0-9_-]{16,}\.[A-Za-z0-9_-]{16,})re",
    R"re(\bshp(at|ss|ca|pa)_[a-f0-9]{32})re",
    R"re(\beyJ[A-Za-z0-9_-]{8,}\.[A-Za-z0-9_-]{8,}\.[A-Za-z0-9_-]{8,})re",
    R"re((?i)\bbearer\s+[A-Za-z0-9._~+/=-]{20,})re",
    R"re(://[^/\s:@]+:[^/\s@]{3,}@)re",
    R"re((?i)\b[A-Za-z0-9_.-]*(api[_-]?key|secret|token|passwd|password|pwd|auth[_-]?key|private[_-]?key|access[_-]?key)[A-Za-z0-9_.-]*["']?\s*[:=]\s*["']?[^\s"',;]{8,})re",
};

// The only entry point callers need. Texts over maxBytes, and texts that
// are only whitespace, give none; otherwise, in this order: a secret (by
// pattern, card number or long token), a trace, JSON, a colour.
std::optional<ClipboardAction> classify(std::string_view text);

// The steps of classify, each on the trimmed text.

// The compiled secret patterns, in order (one that fails to compile is left
// out); built once, on first use.
const std::vector<const Regex*>& secretPatterns();
// Whether any secret pattern matches somewhere in `text`.
bool matchesSecretPattern(std::string_view text);
// 13 to 19 ASCII digits, with blanks or hyphens between, at most 23
// characters, passing the Luhn check.
bool isCardNumber(std::string_view text);
// A lone key without a known prefix: 24 to 512 characters of
// [A-Za-z0-9_\-+/=.], not an address, not a 40- or 64-digit hexadecimal hash,
// not a UUID, with at least two of upper case, lower case and digits, and
// random-looking by the redactor's entropy test (Redactor::looksSecret), so
// the two agree on what a key is.
bool isLongToken(std::string_view text);

// "^\s+at\s+\S|^\s*File \".*\", line \d+", one line at a time.
const Regex& framePattern();
// A stack trace (with "Error", "Exception" or "Traceback", three lines or
// more, at least one frame), shortened to keptFrames frames per exception:
// the innermost ones, and user names scrubbed.
std::optional<ClipboardAction::Trace> tidyTrace(std::string_view text);
// "/Users/<name>/" and "/home/<name>/" become "~/", "C:\Users\<name>\"
// becomes "~\".
std::string withoutHome(std::string_view text);
// The name of the exception a trace reports: Python's final exception line,
// else the first line shaped "Name: message" with a name ending in Error or
// Exception (optionally after "Uncaught", "Caused by:" or Java's
// "Exception in thread ..."), else the first word that ends in Error or
// Exception, else "Error". Package and module qualifiers are dropped.
std::string exceptionName(std::string_view trace);

// A JSON object or array of at least 41 characters, written again with an
// indent of two blanks in its own key order.
std::optional<ClipboardAction::JSON> formatJSON(std::string_view text);

// "#rgb", "#rgba", "#rrggbb", "#rrggbbaa"; "rgb(...)", "rgba(...)",
// "hsl(...)", "hsla(...)" with three numbers and an optional alpha, separated
// by commas, blanks, or a "/" before the alpha. rgb: 0-255 or percentages;
// hsl: a hue in degrees (plain or "deg"), saturation and lightness as
// percentages (a plain number counts as one); alpha: 0-1 or a percentage.
// Values out of range are clamped.
std::optional<ClipboardAction::Color> parseColor(std::string_view text);

struct RGB {
    double red = 0;
    double green = 0;
    double blue = 0;
    bool operator==(const RGB&) const = default;
};
// h in degrees (any value; it wraps), s and l from 0 to 1.
RGB hslToRGB(double h, double s, double l);

} // namespace ClipboardClassifier
} // namespace pelmora
