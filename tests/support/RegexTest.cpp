#include "support/Regex.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace pelmora {
namespace {

using Range = Regex::Range;

std::vector<Range> wholeRanges(const Regex& regex, std::string_view subject) {
    std::vector<Range> ranges;
    for (const Regex::Match& match : regex.allMatches(subject)) {
        ranges.push_back(match.whole);
    }
    return ranges;
}

std::string repeated(std::string_view unit, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += unit;
    }
    return text;
}

// Rules of the redactor's kind; the redactor's own tests pin what it masks,
// these pin the engine underneath.
const Regex
    authorization(R"re((?i)(authorization\s*[:=]\s*)(bearer\s+|basic\s+|token\s+)?[^\s'"]+)re");
const Regex assignment(R"re(\b([A-Za-z_][A-Za-z0-9_]*)=("[^"]*"|'[^']*'|[^\s]+))re");
const Regex token("[A-Za-z0-9+/_=.-]{21,}");

TEST(RegexReplace, ReadsTemplatesAsICUDoes) {
    static const Regex pair("(a)(b)?");
    // A group that takes no part in the match, or that the pattern lacks, gives nothing.
    EXPECT_EQ(pair.replaceAll("xabyaz", "[$1|$2|$3]"), "x[a|b|]y[a||]z");
    EXPECT_EQ(pair.firstMatch("xa")->groups,
              (std::vector<std::optional<Range>>{Range{1, 2}, std::nullopt}));
    EXPECT_EQ(pair.replaceAll("ab", R"(<$0> \$1 costs \\ $ $x)"), R"(<ab> $1 costs \ $ $x)");
    EXPECT_EQ(pair.replaceAll("ab", "trailing\\"), "trailing\\");
    // A "$" takes as many digits as the largest group number has.
    EXPECT_EQ(pair.replaceAll("ab", "$10$21"), "a0b1");
    static const Regex eleven("(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)");
    EXPECT_EQ(eleven.replaceAll("abcdefghijk", "$11|$10|$1x|$111|$05|$12|$99|$0"),
              "k|j|ax|k1|e|||abcdefghijk");
    std::string expanded = "=";
    Regex::appendExpansion(expanded, "$2$1\\$", "xaby", *pair.firstMatch("xaby"));
    EXPECT_EQ(expanded, "=ba$");
}

TEST(RegexMatching, ScansLeftToRightWithoutOverlap) {
    static const Regex word(R"(\w+)");
    EXPECT_EQ(wholeRanges(word, "ab, cd  e"), (std::vector<Range>{{0, 2}, {4, 6}, {8, 9}}));
    // A later start still sees what lies before it, for \b and lookbehind.
    static const Regex boundary(R"(\bdef)");
    EXPECT_FALSE(boundary.firstMatch("abcdef", 3));
    EXPECT_EQ(boundary.firstMatch("abc def", 3)->whole, (Range{4, 7}));
    EXPECT_FALSE(word.firstMatch("abc", 4));
    // After an empty match the scan moves one scalar, never into the middle
    // of one; right after a non-empty match an empty one is allowed.
    static const Regex as("a*");
    EXPECT_EQ(wholeRanges(as, "baaac"), (std::vector<Range>{{0, 0}, {1, 4}, {4, 4}, {5, 5}}));
    EXPECT_EQ(as.replaceAll("baaac", "-"), "-b--c-");
    EXPECT_EQ(as.replaceAll("", "-"), "-");
    static const Regex nothing("");
    EXPECT_EQ(wholeRanges(nothing, "\u00E9\u4FEE\U0001F600"),
              (std::vector<Range>{{0, 0}, {2, 2}, {5, 5}, {9, 9}}));
    EXPECT_EQ(nothing.replaceAll(std::string("\u00E9\xFF") + "b", "|"), "|\u00E9|\xFF|b|");
}

TEST(RegexMatching, SearchesInvalidUTF8SafelyAndLeavesItIntact) {
    const std::string broken = std::string("key=\xFF") + "abcdefghijklmnopqrstuvwxyz0123\xC3 tail";
    EXPECT_EQ(wholeRanges(token, broken), (std::vector<Range>{{5, 35}}));
    EXPECT_EQ(token.replaceAll(broken, "***"), "key=\xFF***\xC3 tail");
    // Invalid bytes are never any character, not even for "." or a negated class.
    static const Regex anything("^.+$");
    EXPECT_FALSE(anything.matches("ab\xFF"));
    static const Regex notSpace(R"([^\s]+)");
    EXPECT_EQ(wholeRanges(notSpace, std::string("a\xE2\x82") + "b\xED\xA0\x80" + "c"),
              (std::vector<Range>{{0, 1}, {3, 4}, {7, 8}}));
    // A start in the middle of a character finds nothing there, and no crash.
    EXPECT_EQ(Regex("\u20AC").firstMatch("\u20AC\u20AC", 1)->whole, (Range{3, 6}));
}

TEST(RegexMatching, TreatsWordsSpacesCaseAndLinesAsUnicode) {
    // Accented and CJK letters are word characters: no boundary before FOO;
    // no-break and ideographic spaces end a value just as a space does.
    EXPECT_EQ(assignment.replaceAll("\u00E9FOO=bar \u4FEEFOO=bar", "$1=***"),
              "\u00E9FOO=bar \u4FEEFOO=bar");
    EXPECT_EQ(assignment.replaceAll("\u00A0FOO=bar\u3000x", "$1=***"), "\u00A0FOO=***\u3000x");
    EXPECT_EQ(authorization.replaceAll("Authorization:\u00A0Bearer\u2003abc def", "$1$2***"),
              "Authorization:\u00A0Bearer\u2003*** def");
    static const Regex caseless("(?i)\\d \u00C9T\u00C9");
    EXPECT_TRUE(caseless.matches("\u0663 \u00E9t\u00E9"));
    // Every Unicode line terminator ends a line, as in ICU.
    static const Regex lineEnd("(?m)^x$");
    EXPECT_EQ(wholeRanges(lineEnd, "x\u2028x\r\nx\u0085x"),
              (std::vector<Range>{{0, 1}, {4, 5}, {7, 8}, {10, 11}}));
    static const Regex dot("a.b");
    EXPECT_TRUE(!dot.matches("a\u2028b") && dot.matches("a\u00E9b"));
}

TEST(RegexLimits, StopsARunawayPatternAndReportsNoMatch) {
    static const Regex runaway("(a+)+$");
    const std::string subject = std::string(5000, 'a') + "b";
    EXPECT_FALSE(runaway.matches(subject));
    EXPECT_TRUE(runaway.allMatches(subject).empty());
    EXPECT_EQ(runaway.replaceAll(subject, "x"), subject);
    // Matches found before the limit is hit are kept, and so is the rest.
    static const Regex prefixed("z|(a+)+$");
    EXPECT_EQ(prefixed.replaceAll("z z " + subject, "Z"), "Z Z " + subject);

    // Long subjects, many matches, and a repeated group that remembers every
    // iteration (the JIT stack must hold them) all run to the end.
    const std::string big(1 << 20, 'k');
    EXPECT_EQ(token.allMatches(big + " " + big)[1].whole,
              (Range{big.size() + 1, 2 * big.size() + 1}));
    EXPECT_EQ(assignment.allMatches(repeated("K=v ", 100000)).size(), 100000u);
    const std::string words = repeated("abc ", 1 << 18);
    static const Regex repeatedGroup(R"((?:\w+\s*)+)");
    EXPECT_EQ(repeatedGroup.firstMatch(words)->whole, (Range{0, words.size()}));
}

TEST(RegexCompile, TryCompileSurvivesABadPattern) {
    EXPECT_EQ(Regex::tryCompile("(unclosed"), nullptr);
    EXPECT_EQ(Regex::tryCompile("[z-a]"), nullptr);
    EXPECT_TRUE(Regex::tryCompile(R"(\bsk-\w{4,})")->matches("key sk-abcd"));
}

} // namespace
} // namespace pelmora
