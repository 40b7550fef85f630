#include "support/Text.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace pelmora {
namespace {

// Emoji built from several scalars, spelled out so the tests show what they hold.
const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
const std::string flagFrance = "\U0001F1EB\U0001F1F7";
const std::string flagGermany = "\U0001F1E9\U0001F1EA";
const std::string thumbsUpMediumSkin = "\U0001F44D\U0001F3FD";
const std::string keycapOne = "1\uFE0F\u20E3";
const std::string eAcute = "e\u0301"; // e + combining acute accent
const std::string rainbowFlag = "\U0001F3F3\uFE0F\u200D\U0001F308";

TEST(TextDecoding, DecodesValidScalarsAndEachInvalidByteAsOneReplacement) {
    // Stray continuation, overlong, surrogate, above U+10FFFF, bytes that
    // never occur, sequences cut short by the end or by another character:
    // each byte decodes alone, forwards and backwards alike.
    const std::pair<std::string, std::u32string> cases[] = {
        {"", U""},
        {"a\u00E9\u4FEE\U0001F600", U"a\u00E9\u4FEE\U0001F600"},
        {"\x80\x80\x80", U"\uFFFD\uFFFD\uFFFD"},
        {"\xC0\x80", U"\uFFFD\uFFFD"},
        {"\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xFF\x61\xFE", U"\uFFFDa\uFFFD"},
        {"ab\xE2\x82", U"ab\uFFFD\uFFFD"},
        {"x\xF0\x9F\x98", U"x\uFFFD\uFFFD\uFFFD"},
        {"\xE2\x82x\xE2\x82\xAC\x82", U"\uFFFD\uFFFDx\u20AC\uFFFD"},
        {"\xC3\xA9\xA9", U"\u00E9\uFFFD"},
        {family + "\xFF" + eAcute,
         U"\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466\uFFFDe\u0301"},
    };
    for (const auto& [text, scalars] : cases) {
        EXPECT_EQ(Text::scalars(text), scalars) << testing::PrintToString(text);
        EXPECT_EQ(Text::isValidUTF8(text), scalars.find(U'\uFFFD') == std::u32string::npos);
        std::u32string backwards;
        for (std::size_t end = text.size(); end > 0;) {
            backwards.insert(backwards.begin(), Text::decodeScalarBefore(text, end));
        }
        EXPECT_EQ(backwards, scalars) << testing::PrintToString(text);
    }
    EXPECT_FALSE(Text::isValidUTF8("\xED\xBF\xBF"));
    EXPECT_FALSE(Text::isValidUTF8("\xF0\x8F\xBF\xBF"));

    std::size_t offset = 1;
    EXPECT_EQ(Text::decodeScalar("a\xC3\xA9", offset), U'\u00E9');
    EXPECT_EQ(offset, 3u);
    EXPECT_EQ(Text::decodeScalar("a\xC3\xA9", offset), U'\uFFFD');
    EXPECT_EQ(offset, 3u);

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
    const std::pair<std::size_t, std::vector<std::string>> counts[] = {
        {0, {""}},
        {1,
         {family, rainbowFlag, thumbsUpMediumSkin, keycapOne, "\u1100\u1161\u11A8", "\xFF\u0301"}},
        {2,
         {flagFrance + flagGermany, flagFrance + "\U0001F1E9", "a\u0301\u0302\u0303b", "\r\n\r\n"}},
        {3, {"a\r\nb", "\xF0\x9F\x98"}},
        {4, {"caf" + eAcute, "\u4FEE\u590D\u6784\u5EFA", "a\n\rb", "a\xFF\xFE" + std::string("b")}},
        {5, {"hello"}},
        {7, {"go " + family + "!" + family + family}},
    };
    for (const auto& [count, texts] : counts) {
        for (const std::string& text : texts) {
            EXPECT_EQ(Text::characterCount(text), count) << testing::PrintToString(text);
        }
    }

    const std::string text = "a" + family + eAcute + flagFrance + "\u4FEE\r\n\xFF";
    EXPECT_EQ(
        Text::characters(text),
        (std::vector<std::string_view>{"a", family, eAcute, flagFrance, "\u4FEE", "\r\n", "\xFF"}));
    EXPECT_TRUE(Text::characters("").empty());
    EXPECT_EQ(Text::prefixCharacters(text, 0), "");
    EXPECT_EQ(Text::prefixCharacters(text, 2), "a" + family);
    EXPECT_EQ(Text::prefixCharacters(text, 7), text);
    EXPECT_EQ(Text::prefixCharacters(text, 100), text);
    // A cut never separates a base letter from its marks.
    EXPECT_EQ(Text::prefixCharacters("ab" + eAcute + "cd", 3), "ab" + eAcute);
}

TEST(TextClasses, ClassifiesScalarsByUnicodeCategory) {
    using Predicate = bool (*)(char32_t);
    const std::tuple<const char*, Predicate, std::u32string, std::u32string> classes[] = {
        {"letter", Text::isLetter, U"aZ\u00E9\u4FEE\u05D0\u02B0\u01C5",
         U"1_ \u0301\U0001F600\uFFFD"},
        // The CJK ideograph "one" is a letter, not a number.
        {"number", Text::isNumber, U"09\u0663\u2167\u00B2\uFF15", U"a\u4E00"},
        {"mark", Text::isMark, U"\u0301\u0903\u20E3", U"a"},
        {"punctuation", Text::isPunctuation, U"!-_(\u00AB\u2014\u3002", U"$+<^`|~a"},
        {"white space", Text::isWhitespace, U" \t\n\v\f\r\u0085\u00A0\u2003\u2028\u2029\u3000",
         std::u32string(U"a\u200B\u180E\uFEFF") + char32_t(0)},
        {"upper case", Text::isUppercase, U"A\u00C9\u0394", U"a\u4FEE"},
        {"lower case", Text::isLowercase, U"z\u00DF\u03B4", U"Z1"},
    };
    for (const auto& [name, test, members, others] : classes) {
        for (char32_t scalar : members) {
            EXPECT_TRUE(test(scalar)) << name << " " << static_cast<unsigned>(scalar);
        }
        std::u32string outsiders = others;
        outsiders.append({0x110000, 0xFFFFFFFF});
        for (char32_t scalar : outsiders) {
            EXPECT_FALSE(test(scalar)) << name << " " << static_cast<unsigned>(scalar);
        }
    }
}

TEST(TextTrimming, TrimsOnlyWhatEachFunctionNames) {
    EXPECT_EQ(Text::trimSpacesAndTabs(" \t fix it \t "), "fix it");
    EXPECT_EQ(Text::trimSpacesAndTabs("\nfix\n"), "\nfix\n");
    EXPECT_EQ(Text::trimSpacesAndTabs("\u00A0fix"), "\u00A0fix");
    EXPECT_EQ(Text::trimSpacesAndTabs(" \t "), "");

    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\r\n\t\u00A0\u3000 line one\nline two \u2028\u0085"),
              "line one\nline two");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\v\f"), "");
    // A zero-width space is not white space; invalid bytes are kept as they are.
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\u200Bx "), "\u200Bx");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines(" \xFF\xE2\x80 "), "\xFF\xE2\x80");

    EXPECT_EQ(Text::trimScalars("\u00AB\u00A1Hola!\u00BB", Text::isPunctuation), "Hola");
    EXPECT_EQ(Text::trimScalars("...", Text::isPunctuation), "");
    EXPECT_EQ(Text::trimScalars("(" + family + ")", Text::isPunctuation), family);
}

TEST(TextCase, LowercasesEveryScriptWithCase) {
    EXPECT_EQ(Text::lowercased("Fix The BUILD 42 \u00C9COLE \u0394\u0395\u039B\u03A4\u0391"),
              "fix the build 42 \u00E9cole \u03B4\u03B5\u03BB\u03C4\u03B1");
    // Cyrillic, full-width Latin; scripts without case and emoji stay.
    EXPECT_EQ(Text::lowercased("\u041F\u0420\u0418\u0412\u0415\u0422 \uFF21\uFF22"),
              "\u043F\u0440\u0438\u0432\u0435\u0442 \uFF41\uFF42");
    EXPECT_EQ(Text::lowercased("\u4FEE\u590D " + family), "\u4FEE\u590D " + family);
    EXPECT_EQ(Text::lowercased("A\xFF"
                               "B"),
              "a\uFFFD"
              "b");
}

} // namespace
} // namespace pelmora
