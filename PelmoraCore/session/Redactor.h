#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace pelmora::Redactor {

// In characters (grapheme clusters).
inline constexpr std::size_t maxLength = 80;
inline constexpr std::string_view mask = "***";

// A masking rule: an ICU-syntax pattern and its replacement template ("$1"
// stands for the first group).
struct Rule {
    std::string_view pattern;
    std::string_view replacement;
};

// The masking rules, in the order they apply: an authorization header's
// credential, any bearer token, the value of a secret-named command-line
// option, the value of every NAME=value assignment, well-known key shapes.
inline constexpr std::array<Rule, 5> rules{{
    {R"re((?i)(authorization\s*[:=]\s*)(bearer\s+|basic\s+|token\s+)?[^\s'"]+)re", "$1$2***"},
    {R"re((?i)\bbearer\s+[^\s'"]+)re", "Bearer ***"},
    {R"re((?i)(--?(?:[a-z0-9_-]*)(?:token|password|passwd|secret|api[-_]?key|access[-_]?key)(?:[=\s]+))("[^"]*"|'[^']*'|[^\s]+))re",
     "$1***"},
    {R"re(\b([A-Za-z_][A-Za-z0-9_]*)=("[^"]*"|'[^']*'|[^\s]+))re", "$1=***"},
    {R"re(\b(sk-[A-Za-z0-9_-]{6,}|sk_(?:live|test)_[A-Za-z0-9]{6,}|gh[pousr]_[A-Za-z0-9]{10,}|github_pat_[A-Za-z0-9_]{10,}|xox[abprs]-[A-Za-z0-9-]{6,}|AKIA[0-9A-Z]{12,}|AIza[0-9A-Za-z_-]{20,}))re",
     "***"},
}};

// Runs of key-like characters long enough to be worth the entropy test.
inline constexpr std::string_view tokenPattern = R"re([A-Za-z0-9+/_=.-]{21,})re";

// One line, paths relative to the project and the home folder, credentials
// masked, at most maxLength characters. Never fails.
std::string redact(std::string_view text, std::optional<std::string_view> projectDir);
// Same, with the home folder given instead of read from the password
// database (tests, and callers that already know it).
std::string redact(std::string_view text, std::optional<std::string_view> projectDir,
                   std::string_view homeFolder);

// The entropy test for one token.
bool looksSecret(std::string_view token);

// The masking steps of redact on their own. applyRule gives exactly what
// replacing every match of rules[index] in `text` gives, without the
// backtracking such a whole-text search can fall into on long runs; an index
// past the rules returns `text`.
std::string applyRule(std::size_t index, std::string_view text);
// Replaces each run of tokenPattern that looks secret by `mask`; runs with a
// "/" and no "+" are taken for paths and kept.
std::string maskTokens(std::string_view text);

} // namespace pelmora::Redactor
