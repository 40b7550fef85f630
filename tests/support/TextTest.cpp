#include "support/Text.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace pelmora {
namespace {

// Emoji built from several scalars, spelled out so the tests show what they hold.
const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
const std::string flagFR = "\U0001F1EB\U0001F1F7";
const std::string flagDE = "\U0001F1E9\U0001F1EA";
const std::string eAcute = "e\u0301"; // e + combining acute accent

TEST(TextDecoding, DecodesValidScalarsAndEachInvalidByteAsOneReplacement) {
    // Stray continuation, overlong, surrogate, above U+10FFFF, bytes that
    // never occur, sequences cut short by the end or by another character:
    // each byte decodes alone, forwards and backwards alike.
    // clang-format off
    const std::pair<std::string, std::u32string> cases[] = {
        {"", U""}, {"a\u00E9\u4FEE\U0001F600", U"a\u00E9\u4FEE\U0001F600"},
        {"\x80\x80\x80", U"\uFFFD\uFFFD\uFFFD"}, {"\xC0\x80", U"\uFFFD\uFFFD"},
        {"\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD"}, {"\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xFF\x61\xFE", U"\uFFFDa\uFFFD"}, {"ab\xE2\x82", U"ab\uFFFD\uFFFD"},
        {"x\xF0\x9F\x98", U"x\uFFFD\uFFFD\uFFFD"}, {"\xC3\xA9\xA9", U"\u00E9\uFFFD"},
        {"\xE2\x82x\xE2\x82\xAC\x82", U"\uFFFD\uFFFDx\u20AC\uFFFD"},
        {eAcute + "\xFF", U"e\u0301\uFFFD"}};
    // clang-format on
    for (const auto& [text, scalars] : cases) {
        EXPECT_EQ(Text::scalars(text), scalars) << testing::PrintToString(text);
        EXPECT_EQ(Text::isValidUTF8(text), scalars.find(U'\uFFFD') == std::u32string::npos);
        std::u32string backwards;
        for (std::size_t end = text.size(); end > 0;) {
            backwards.insert(backwards.begin(), Text::decodeScalarBefore(text, end));
        }
        EXPECT_EQ(backwards, scalars) << testing::PrintToString(text);
    }

    std::string out;
    for (char32_t scalar :
         {U'a', U'\u00E9', U'\u4FEE', U'\U0001F600', char32_t(0xD800), char32_t(0x110000)}) {
        Text::appendUTF8(out, scalar);
    }
    EXPECT_EQ(out, "a\u00E9\u4FEE\U0001F600\uFFFD\uFFFD");
}

TEST(TextCharacters, CountsSplitsAndCutsWhatAPersonSeesAsOneCharacter) {
    // An odd regional indicator stands alone after the pairs; invalid bytes
    // count one each, and a mark after one joins it.
    // clang-format off
    const std::pair<std::size_t, std::vector<std::string>> counts[] = {
        {0, {""}}, {5, {"hello"}}, {7, {"go " + family + "!" + family + family}},
        // Rainbow flag, thumbs up with skin tone, keycap, Hangul syllable.
        {1, {family, "\U0001F3F3\uFE0F\u200D\U0001F308", "\U0001F44D\U0001F3FD", "1\uFE0F\u20E3",
             "\u1100\u1161\u11A8", "\xFF\u0301"}},
        {2, {flagFR + flagDE, flagFR + "\U0001F1E9", "a\u0301\u0302\u0303b", "\r\n\r\n"}},
        {3, {"a\r\nb", "\xF0\x9F\x98"}},
        {4, {"caf" + eAcute, "\u4FEE\u590D\u6784\u5EFA", "a\n\rb", "a\xFF\xFE" "b"}}};
    // clang-format on
    for (const auto& [count, texts] : counts) {
        for (const std::string& text : texts) {
            EXPECT_EQ(Text::characterCount(text), count) << testing::PrintToString(text);
        }
    }

    const std::string text = "a" + family + eAcute + flagFR + "\u4FEE\r\n\xFF";
    EXPECT_EQ(Text::characters(text), (std::vector<std::string_view>{"a", family, eAcute, flagFR,
                                                                     "\u4FEE", "\r\n", "\xFF"}));
    EXPECT_EQ(Text::prefixCharacters(text, 0), "");
    EXPECT_EQ(Text::prefixCharacters(text, 2), "a" + family);
    EXPECT_EQ(Text::prefixCharacters(text, 7), text);
    // A cut never separates a base letter from its marks.
    EXPECT_EQ(Text::prefixCharacters("ab" + eAcute + "cd", 3), "ab" + eAcute);
}

// Trimming spaces and tabs, and punctuation, is pinned through the redactor
// and task titles, which are built on it.
TEST(TextTrimmingAndCase, UnicodeWhitespaceAndEveryScriptWithCase) {
    // A zero-width space is not white space; invalid bytes are kept as they are.
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\r\n\u00A0\u3000 a\nb \u2028\u0085"), "a\nb");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\v\u200Bx\xFF\xE2\x80\f"), "\u200Bx\xFF\xE2\x80");
    // Latin, Greek, Cyrillic, full-width Latin; scripts without case and emoji stay.
    EXPECT_EQ(Text::lowercased("Fix 42 \u00C9COLE \u0394\u0395\u039B \u041F\u0420 \uFF21 \u4FEE" +
                               family + "A\xFF"),
              "fix 42 \u00E9cole \u03B4\u03B5\u03BB \u043F\u0440 \uFF41 \u4FEE" + family +
                  "a\uFFFD");
}

} // namespace
} // namespace pelmora
