#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "alert/AlertRecords.h"

// Scripts ask for an alert with a link or on a command line; either way it
// is checked here, into an AlertRequest or one AlertRejection that says what
// to change, before anything reaches the app.
//
//     pelmora://alert?title=Deploy%20done&body=v1.4%20is%20live&level=action&ttl=60
//     pelmora alert TITLE [BODY] [--level info|action|fail] [--open PATH]
//                   [--id ID] [--ttl SECONDS]
//
// Lengths count characters (grapheme clusters, what a person sees as one).
// The first failure is the one reported: first the shape of the link or
// command line, then the parts in the order title, body, level, open, id,
// ttl.
namespace pelmora {

struct AlertRejection {
    std::string description; // shown to the user, e.g. "title is longer than 16 characters"

    bool operator==(const AlertRejection&) const = default;

    // Refused, as the app would have refused it.
    AlertOutcome outcome() const { return AlertOutcome::rejected(description); }
};

namespace AlertValidation {

inline constexpr std::size_t maxTitle = 16; // a title has 1 to 16 characters
inline constexpr std::size_t maxBody = 80;
inline constexpr std::size_t maxID = 64; // 1 to 64 of idCharacters
inline constexpr int maxTTL = 86400;     // 0 to a day, in seconds
inline constexpr std::string_view idCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._:-";

// The parts of an alert as text, as a link or a command line gives them;
// absent when not given at all.
struct Fields {
    std::optional<std::string> title;
    std::optional<std::string> body;
    std::optional<std::string> level;
    std::optional<std::string> open;
    std::optional<std::string> id;
    std::optional<std::string> ttl;

    bool operator==(const Fields&) const = default;
};

using Result = std::variant<AlertRequest, AlertRejection>;

// The checks and defaults, whatever the fields came from:
// - title and body lose surrounding white space and line breaks; the title
//   must then have 1 to maxTitle characters, the body at most maxBody (an
//   absent body is empty); bytes that are not UTF-8 become U+FFFD.
// - level is "info", "action" or "fail" (info when absent).
// - open is an absolute path, or a file URL ("file:///..." or
//   "file://localhost/...", percent-encoded) that becomes one; with no ".."
//   component, under `home` or /tmp. The test is on the text alone: the
//   file need not exist, and links in the path are the opener's business.
// - id has 1 to maxID characters, all from idCharacters.
// - ttl is a whole number of seconds from 0 to maxTTL, 0 meaning the alert
//   stays until dismissed; absent, the level's defaultTTL.
Result validate(const Fields& fields, const std::filesystem::path& home);

// "pelmora://alert" (scheme and host in any case, an optional "/"), then a
// query of title, body, level, open, id and ttl, each percent-decoded ("+"
// stays a plus sign); a fragment is ignored, a repeated parameter counts
// last. Rejected as "not a pelmora://alert link" when the link has another
// form or a broken percent escape, "unknown parameter "x"" for any other
// name.
Result fromLink(std::string_view link, const std::filesystem::path& home);

// The arguments after "alert": TITLE and an optional BODY, and the options
// --level, --open, --id and --ttl (--title and --body too), each with its
// value as the next argument or after "=". "--" ends the options, and an
// argument with a single "-" is plain text ("-1 test failed"); an option
// given twice counts last; one at the end without a value has an empty one.
// Rejected as "unexpected argument "x"" for a third plain argument and
// "unknown option --x" for any other option.
Result fromArguments(std::span<const std::string_view> arguments,
                     const std::filesystem::path& home);

} // namespace AlertValidation
} // namespace pelmora
