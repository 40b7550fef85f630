#include "support/Text.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
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
    EXPECT_EQ(Text::scalars("a\u00E9\u4FEE\U0001F600"), U"a\u00E9\u4FEE\U0001F600");

    // Stray continuation, overlong, surrogate, above U+10FFFF, bytes that never
    // occur: each byte decodes alone.
    EXPECT_EQ(Text::scalars("\x80"), U"\uFFFD");
    EXPECT_EQ(Text::scalars("\xC0\x80"), U"\uFFFD\uFFFD");
    EXPECT_EQ(Text::scalars("\xED\xA0\x80"), U"\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(Text::scalars("\xF4\x90\x80\x80"), U"\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(Text::scalars("\xFF"
                            "a\xFE"),
              U"\uFFFD"
              "a\uFFFD");
    // A sequence cut short by the end of the text, or by another character.
    EXPECT_EQ(Text::scalars("ab\xE2\x82"), U"ab\uFFFD\uFFFD");
    EXPECT_EQ(Text::scalars("\xE2\x82x\xE2\x82\xAC"), U"\uFFFD\uFFFDx\u20AC");

    std::size_t offset = 1;
    EXPECT_EQ(Text::decodeScalar("a\xC3\xA9", offset), U'\u00E9');
    EXPECT_EQ(offset, 3u);
    EXPECT_EQ(Text::decodeScalar("a\xC3\xA9", offset), U'\uFFFD');
    EXPECT_EQ(offset, 3u);

    EXPECT_TRUE(Text::isValidUTF8(""));
    EXPECT_TRUE(Text::isValidUTF8("plain \u00E9\u4FEE\U0001F600"));
    EXPECT_FALSE(Text::isValidUTF8("ab\xE2\x82"));
    EXPECT_FALSE(Text::isValidUTF8("\xED\xBF\xBF"));
    EXPECT_FALSE(Text::isValidUTF8("\xF0\x8F\xBF\xBF"));
}

TEST(TextDecoding, BackwardDecodingFindsTheSameScalarsAsForward) {
    const std::vector<std::string> texts = {
        "",
        "abc",
        "\u00E9\u4FEE\U0001F600",
        "\xE2\x82\xAC\x82",         // euro sign, then a stray continuation byte
        "\xC3\xA9\xA9",             // e-acute, then a stray continuation byte
        "\x80\x80\x80\x80\x80",     // continuation bytes only
        "x\xF0\x9F\x98",            // emoji cut short
        "\xED\xA0\x80\xF4\x90\x80", // surrogate and out-of-range sequences
        family + "\xFF" + eAcute,
    };
    for (const std::string& text : texts) {
        std::u32string backwards;
        std::size_t end = text.size();
        while (end > 0) {
            backwards.insert(backwards.begin(), Text::decodeScalarBefore(text, end));
        }
        EXPECT_EQ(backwards, Text::scalars(text)) << "for " << testing::PrintToString(text);
    }
}

TEST(TextDecoding, EncodesScalarsAndReplacesWhatIsNotAScalar) {
    std::string out;
    for (char32_t scalar : {U'a', U'\u00E9', U'\u4FEE', U'\U0001F600'}) {
        Text::appendUTF8(out, scalar);
    }
    EXPECT_EQ(out, "a\u00E9\u4FEE\U0001F600");

    out.clear();
    Text::appendUTF8(out, 0xD800);
    Text::appendUTF8(out, 0x110000);
    EXPECT_EQ(out, "\uFFFD\uFFFD");
}

TEST(TextCharacters, CountsWhatAPersonSeesAsOneCharacter) {
    EXPECT_EQ(Text::characterCount(""), 0u);
    EXPECT_EQ(Text::characterCount("hello"), 5u);
    EXPECT_EQ(Text::characterCount(family), 1u);
    EXPECT_EQ(Text::characterCount(rainbowFlag), 1u);
    EXPECT_EQ(Text::characterCount(thumbsUpMediumSkin), 1u);
    EXPECT_EQ(Text::characterCount(keycapOne), 1u);
    EXPECT_EQ(Text::characterCount(flagFrance + flagGermany), 2u);
    // An odd regional indicator stands alone after the pairs.
    EXPECT_EQ(Text::characterCount(flagFrance + "\U0001F1E9"), 2u);
    EXPECT_EQ(Text::characterCount("caf" + eAcute), 4u);
    EXPECT_EQ(Text::characterCount("a\u0301\u0302\u0303b"), 2u);
    EXPECT_EQ(Text::characterCount("\u4FEE\u590D\u6784\u5EFA"), 4u);
    // Hangul jamo that compose one syllable.
    EXPECT_EQ(Text::characterCount("\u1100\u1161\u11A8"), 1u);
    EXPECT_EQ(Text::characterCount("a\r\nb"), 3u);
    EXPECT_EQ(Text::characterCount("a\n\rb"), 4u);
    EXPECT_EQ(Text::characterCount("\r\n\r\n"), 2u);
    // Emoji right after plain ASCII, and ASCII right after emoji.
    EXPECT_EQ(Text::characterCount("go " + family + "!" + family + family), 7u);
    // Invalid bytes count one each, and a mark after one joins it.
    EXPECT_EQ(Text::characterCount("a\xFF\xFE"
                                   "b"),
              4u);
    EXPECT_EQ(Text::characterCount("\xFF\u0301"), 1u);
    EXPECT_EQ(Text::characterCount("\xF0\x9F\x98"), 3u);
}

TEST(TextCharacters, SplitsAndCutsOnlyBetweenCharacters) {
    const std::string text = "a" + family + eAcute + flagFrance + "\u4FEE\r\n\xFF";
    const std::vector<std::string_view> expected = {"a",      family, eAcute, flagFrance,
                                                    "\u4FEE", "\r\n", "\xFF"};
    EXPECT_EQ(Text::characters(text), expected);

    EXPECT_EQ(Text::prefixCharacters(text, 0), "");
    EXPECT_EQ(Text::prefixCharacters(text, 2), "a" + family);
    EXPECT_EQ(Text::prefixCharacters(text, 3), "a" + family + eAcute);
    EXPECT_EQ(Text::prefixCharacters(text, 7), text);
    EXPECT_EQ(Text::prefixCharacters(text, 100), text);
    EXPECT_EQ(Text::prefixCharacters("", 3), "");

    // A cut never separates a base letter from its marks.
    EXPECT_EQ(Text::prefixCharacters("ab" + eAcute + "cd", 3), "ab" + eAcute);
    EXPECT_TRUE(Text::characters("").empty());
}

TEST(TextClasses, ClassifiesScalarsByUnicodeCategory) {
    for (char32_t letter : {U'a', U'Z', U'\u00E9', U'\u4FEE', U'\u05D0', U'\u02B0', U'\u01C5'}) {
        EXPECT_TRUE(Text::isLetter(letter)) << static_cast<unsigned>(letter);
    }
    for (char32_t other : {U'1', U'_', U' ', U'\u0301', U'\U0001F600', U'\uFFFD'}) {
        EXPECT_FALSE(Text::isLetter(other)) << static_cast<unsigned>(other);
    }

    for (char32_t number : {U'0', U'9', U'\u0663', U'\u2167', U'\u00B2', U'\uFF15'}) {
        EXPECT_TRUE(Text::isNumber(number)) << static_cast<unsigned>(number);
    }
    EXPECT_FALSE(Text::isNumber(U'a'));
    EXPECT_FALSE(Text::isNumber(U'\u4E00')); // the CJK ideograph "one" is a letter

    EXPECT_TRUE(Text::isMark(U'\u0301'));
    EXPECT_TRUE(Text::isMark(U'\u0903')); // spacing mark
    EXPECT_TRUE(Text::isMark(U'\u20E3')); // enclosing keycap
    EXPECT_FALSE(Text::isMark(U'a'));

    for (char32_t punctuation : {U'!', U'-', U'_', U'(', U'\u00AB', U'\u2014', U'\u3002'}) {
        EXPECT_TRUE(Text::isPunctuation(punctuation)) << static_cast<unsigned>(punctuation);
    }
    for (char32_t symbol : {U'$', U'+', U'<', U'^', U'`', U'|', U'~', U'a'}) {
        EXPECT_FALSE(Text::isPunctuation(symbol)) << static_cast<unsigned>(symbol);
    }

    for (char32_t space : {U' ', U'\t', U'\n', U'\v', U'\f', U'\r', U'\u0085', U'\u00A0', U'\u2003',
                           U'\u2028', U'\u2029', U'\u3000'}) {
        EXPECT_TRUE(Text::isWhitespace(space)) << static_cast<unsigned>(space);
    }
    for (char32_t other : {U'a', U'\0', U'\u200B', U'\u180E', U'\uFEFF'}) {
        EXPECT_FALSE(Text::isWhitespace(other)) << static_cast<unsigned>(other);
    }

    EXPECT_TRUE(Text::isUppercase(U'A'));
    EXPECT_TRUE(Text::isUppercase(U'\u00C9'));
    EXPECT_TRUE(Text::isUppercase(U'\u0394'));
    EXPECT_FALSE(Text::isUppercase(U'a'));
    EXPECT_FALSE(Text::isUppercase(U'\u4FEE'));
    EXPECT_TRUE(Text::isLowercase(U'z'));
    EXPECT_TRUE(Text::isLowercase(U'\u00DF'));
    EXPECT_TRUE(Text::isLowercase(U'\u03B4'));
    EXPECT_FALSE(Text::isLowercase(U'Z'));
    EXPECT_FALSE(Text::isLowercase(U'1'));
    // Out-of-range values are nothing at all.
    EXPECT_FALSE(Text::isLetter(0x110000));
    EXPECT_FALSE(Text::isUppercase(0xFFFFFFFF));
}

TEST(TextTrimming, TrimsOnlyWhatEachFunctionNames) {
    EXPECT_EQ(Text::trimSpacesAndTabs(" \t fix it \t "), "fix it");
    EXPECT_EQ(Text::trimSpacesAndTabs("\nfix\n"), "\nfix\n");
    EXPECT_EQ(Text::trimSpacesAndTabs("\u00A0fix"), "\u00A0fix");
    EXPECT_EQ(Text::trimSpacesAndTabs(" \t "), "");
    EXPECT_EQ(Text::trimSpacesAndTabs(""), "");

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
    EXPECT_EQ(Text::lowercased("Fix The BUILD 42"), "fix the build 42");
    EXPECT_EQ(Text::lowercased("\u00C9COLE \u0394\u0395\u039B\u03A4\u0391"),
              "\u00E9cole \u03B4\u03B5\u03BB\u03C4\u03B1");
    EXPECT_EQ(Text::lowercased("\u041F\u0420\u0418\u0412\u0415\u0422"),
              "\u043F\u0440\u0438\u0432\u0435\u0442");
    EXPECT_EQ(Text::lowercased("\uFF21\uFF22"), "\uFF41\uFF42"); // full-width letters
    EXPECT_EQ(Text::lowercased("\u4FEE\u590D " + family), "\u4FEE\u590D " + family);
    EXPECT_EQ(Text::lowercased("A\xFF"
                               "B"),
              "a\uFFFD"
              "b");
    EXPECT_EQ(Text::lowercased(""), "");
}

} // namespace
} // namespace pelmora
