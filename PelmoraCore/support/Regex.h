#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pelmora {

// A PCRE2 pattern compiled with UTF and UCP, which reads the ICU syntax that
// the patterns are written in. Declare each one where it is used as a
// function-local static, so it compiles (and JIT-compiles) once and only when
// first needed:
//
//     static const Regex assignment(R"(\b([A-Za-z_][A-Za-z0-9_]*)=)");
//
// A pattern that fails to compile is a programming error and aborts.
// Matching is bounded by match and depth limits: when a subject would make a
// pattern run away, the search stops and reports no further match.
// Subjects that are not valid UTF-8 are matched safely, never rejected.
class Regex {
public:
    struct Range {
        std::size_t begin = 0;
        std::size_t end = 0;
        bool operator==(const Range&) const = default;
    };
    struct Match {
        Range whole;
        // One entry per capture group; std::nullopt for a group that did not take part.
        std::vector<std::optional<Range>> groups;
    };

    explicit Regex(std::string_view pattern);
    // For patterns whose failure to compile is to be survived rather than
    // fatal: nullptr when `pattern` does not compile.
    static std::unique_ptr<const Regex> tryCompile(std::string_view pattern);
    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    // True when the pattern matches somewhere in `subject` (not necessarily all of it).
    bool matches(std::string_view subject) const;
    std::optional<Match> firstMatch(std::string_view subject, std::size_t start = 0) const;
    // Non-overlapping matches from left to right; an empty match advances one scalar.
    std::vector<Match> allMatches(std::string_view subject) const;
    // Replaces every match by the template expanded for it (appendExpansion).
    std::string replaceAll(std::string_view subject, std::string_view replacementTemplate) const;

    // Appends `replacementTemplate` expanded for `match` of `subject`, by the
    // template rule of ICU: "$0" is the whole match and "$n" capture group n
    // (the empty string for a group that did not take part, or that the
    // pattern does not have); a "$" takes as many digits as the pattern's
    // largest group number has, so with two groups "$10" is group 1 then "0",
    // and with twelve "$13" is group 13. A backslash takes the character after
    // it literally ("\$" gives "$", "\\" one backslash); a "$" without a digit
    // stays as it is.
    //
    //     Regex("(a)(b)").replaceAll("ab", "[$2$1]") == "[ba]"
    static void appendExpansion(std::string& out, std::string_view replacementTemplate,
                                std::string_view subject, const Match& match);

private:
    struct Compiled;
    explicit Regex(std::unique_ptr<Compiled> compiled);
    std::unique_ptr<Compiled> compiled_;
};

} // namespace pelmora
