#include "support/Regex.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
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

// Rules of the redactor's kind; the redactor's own tests pin what it masks,
// these pin the engine underneath.
const Regex
    authorization(R"re((?i)(authorization\s*[:=]\s*)(bearer\s+|basic\s+|token\s+)?[^\s'"]+)re");
const Regex assignment(R"re(\b([A-Za-z_][A-Za-z0-9_]*)=("[^"]*"|'[^']*'|[^\s]+))re");
const Regex token("[A-Za-z0-9+/_=.-]{21,}");

TEST(RegexReplace, ReadsTemplatesAsICUDoes) {
    static const Regex pair("(a)(b)?");
    // A group that takes no part in the match gives nothing.
    EXPECT_EQ(pair.replaceAll("xabyaz", "[$1|$2]"), "x[a|b]y[a|]z");
    const auto match = pair.firstMatch("xa");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->groups, (std::vector<std::optional<Range>>{Range{1, 2}, std::nullopt}));
    EXPECT_EQ(pair.replaceAll("ab", "<$0>"), "<ab>");
    EXPECT_EQ(pair.replaceAll("ab", R"(\$1 costs \\ $)"), R"($1 costs \ $)");
    EXPECT_EQ(pair.replaceAll("ab", "$x$"), "$x$");
    // Digits extend a group number only while it still names a group.
    EXPECT_EQ(pair.replaceAll("ab", "$10$21"), "a0b1");
    EXPECT_EQ(pair.replaceAll("ab", "$9"), "");
    EXPECT_EQ(pair.replaceAll("ab", "trailing\\"), "trailing\\");
    EXPECT_EQ(assignment.replaceAll("A='x y' B=\"p q\" C=1 x=1", "$1=***"),
              "A=*** B=*** C=*** x=***");
    EXPECT_EQ(assignment.replaceAll("", "$1=***"), "");
}

TEST(RegexMatching, ScansLeftToRightWithoutOverlap) {
    static const Regex word(R"(\w+)");
    EXPECT_EQ(wholeRanges(word, "ab, cd  e"), (std::vector<Range>{{0, 2}, {4, 6}, {8, 9}}));
    EXPECT_TRUE(word.matches("  x "));
    EXPECT_FALSE(word.matches(" ,; "));
    EXPECT_FALSE(word.matches(""));

    // A later start still sees what lies before it, for \b and lookbehind.
    EXPECT_EQ(word.firstMatch("abc def", 1)->whole, (Range{1, 3}));
    static const Regex boundary(R"(\bdef)");
    EXPECT_FALSE(boundary.firstMatch("abcdef", 3));
    EXPECT_EQ(boundary.firstMatch("abc def", 3)->whole, (Range{4, 7}));
    EXPECT_FALSE(word.firstMatch("abc", 4));
    EXPECT_FALSE(word.firstMatch("abc", 3));

    // After an empty match the scan moves one scalar; right after a non-empty
    // match an empty one is allowed.
    static const Regex as("a*");
    EXPECT_EQ(wholeRanges(as, "baaac"), (std::vector<Range>{{0, 0}, {1, 4}, {4, 4}, {5, 5}}));
    EXPECT_EQ(as.replaceAll("baaac", "-"), "-b--c-");
    EXPECT_EQ(as.replaceAll("aa", "-"), "--");
    EXPECT_EQ(as.replaceAll("", "-"), "-");

    // Moving one scalar, never into the middle of one.
    static const Regex nothing("");
    EXPECT_EQ(wholeRanges(nothing, "\u00E9\u4FEE\U0001F600"),
              (std::vector<Range>{{0, 0}, {2, 2}, {5, 5}, {9, 9}}));
    EXPECT_EQ(nothing.replaceAll("\u00E9\xFF"
                                 "b",
                                 "|"),
              "|\u00E9|\xFF|b|");
}

TEST(RegexMatching, SearchesInvalidUTF8SafelyAndLeavesItIntact) {
    const std::string broken = "key=\xFF"
                               "abcdefghijklmnopqrstuvwxyz0123\xC3 tail";
    const auto matches = token.allMatches(broken);
    ASSERT_EQ(matches.size(), 1u);
    EXPECT_EQ(matches[0].whole, (Range{5, 35}));
    EXPECT_EQ(token.replaceAll(broken, "***"), "key=\xFF***\xC3 tail");

    // Invalid bytes are never any character, not even for "." or a negated class.
    static const Regex anything("^.+$");
    EXPECT_FALSE(anything.matches("ab\xFF"));
    static const Regex notSpace(R"([^\s]+)");
    EXPECT_EQ(wholeRanges(notSpace, "a\xE2\x82"
                                    "b\xED\xA0\x80"
                                    "c"),
              (std::vector<Range>{{0, 1}, {3, 4}, {7, 8}}));
    // A start in the middle of a character finds nothing there, and no crash.
    static const Regex euro("\u20AC");
    EXPECT_FALSE(euro.firstMatch("\u20AC", 1));
    EXPECT_EQ(euro.firstMatch("\u20AC\u20AC", 1)->whole, (Range{3, 6}));
}

TEST(RegexMatching, TreatsWordsAndSpacesAsUnicode) {
    // Accented and CJK letters are word characters: no boundary before FOO.
    EXPECT_EQ(assignment.replaceAll("\u00E9FOO=bar", "$1=***"), "\u00E9FOO=bar");
    EXPECT_EQ(assignment.replaceAll("\u4FEEFOO=bar", "$1=***"), "\u4FEEFOO=bar");
    EXPECT_EQ(assignment.replaceAll("\u00A0FOO=bar\u3000x", "$1=***"), "\u00A0FOO=***\u3000x");
    // No-break and ideographic spaces end a value just as a space does.
    EXPECT_EQ(authorization.replaceAll("Authorization:\u00A0Bearer\u2003abc def", "$1$2***"),
              "Authorization:\u00A0Bearer\u2003*** def");

    static const Regex digits(R"(\d+)");
    EXPECT_EQ(digits.firstMatch("abc \u0663\u0664")->whole, (Range{4, 8}));
    static const Regex caseless("(?i)stra\u00DFe|\u00C9T\u00C9");
    EXPECT_TRUE(caseless.matches("STRA\u00DFE"));
    EXPECT_TRUE(caseless.matches("\u00E9t\u00E9"));

    // Every Unicode line terminator ends a line, as in ICU.
    static const Regex lineEnd("(?m)^x$");
    EXPECT_EQ(wholeRanges(lineEnd, "x\u2028x\r\nx\u0085x"),
              (std::vector<Range>{{0, 1}, {4, 5}, {7, 8}, {10, 11}}));
    static const Regex dot("a.b");
    EXPECT_FALSE(dot.matches("a\u2028b"));
    EXPECT_TRUE(dot.matches("a\u00E9b"));
}

TEST(RegexLimits, StopsARunawayPatternAndReportsNoMatch) {
    static const Regex runaway("(a+)+$");
    const std::string subject = std::string(5000, 'a') + "b";
    EXPECT_FALSE(runaway.matches(subject));
    EXPECT_FALSE(runaway.firstMatch(subject));
    EXPECT_TRUE(runaway.allMatches(subject).empty());
    EXPECT_EQ(runaway.replaceAll(subject, "x"), subject);

    // Matches found before the limit is hit are kept, and so is the rest.
    static const Regex prefixed("z|(a+)+$");
    const std::string mixed = "z z " + subject;
    EXPECT_EQ(prefixed.replaceAll(mixed, "Z"), "Z Z " + subject);

    const std::string big(1 << 20, 'k');
    const auto tokens = token.allMatches(big + " " + big);
    ASSERT_EQ(tokens.size(), 2u);
    EXPECT_EQ(tokens[1].whole, (Range{big.size() + 1, 2 * big.size() + 1}));

    // A repeated group remembers every iteration; the JIT stack must hold them.
    std::string words;
    for (int i = 0; i < (1 << 18); ++i) {
        words += "abc ";
    }
    static const Regex repeatedGroup(R"((?:\w+\s*)+)");
    const auto whole = repeatedGroup.firstMatch(words);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->whole, (Range{0, words.size()}));

    std::string spaced;
    for (int i = 0; i < 100000; ++i) {
        spaced += "K=v ";
    }
    EXPECT_EQ(assignment.allMatches(spaced).size(), 100000u);
}

TEST(RegexConcurrency, SharesOnePatternBetweenThreads) {
    std::vector<std::thread> threads;
    std::vector<std::string> results(4);
    for (std::size_t index = 0; index < results.size(); ++index) {
        threads.emplace_back([&, index] {
            for (int round = 0; round < 200; ++round) {
                results[index] = assignment.replaceAll("TOKEN=abc make X=1", "$1=***");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& result : results) {
        EXPECT_EQ(result, "TOKEN=*** make X=***");
    }
}

TEST(RegexCompile, TryCompileSurvivesABadPattern) {
    EXPECT_EQ(Regex::tryCompile("(unclosed"), nullptr);
    EXPECT_EQ(Regex::tryCompile("[z-a]"), nullptr);
    const auto good = Regex::tryCompile(R"(\bsk-[A-Za-z0-9_-]{16,})");
    ASSERT_NE(good, nullptr);
    EXPECT_TRUE(good->matches("key sk-abcdefghijklmnop1234"));
}

} // namespace
} // namespace pelmora
