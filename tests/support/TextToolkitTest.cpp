#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "support/Ascii.h"
#include "support/Integers.h"
#include "support/Scanner.h"

namespace pelmora {
namespace {

TEST(Ascii, ClassesNeverReachPastASCIIOrConsultTheLocale) {
    const std::string digits = "0123456789", hex = "0123456789abcdef";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool upper = byte >= 'A' && byte <= 'Z', lower = byte >= 'a' && byte <= 'z';
        EXPECT_EQ(Ascii::isAlnum(c), upper || lower || digits.find(c) != std::string::npos);
        EXPECT_EQ(Ascii::isSpace(c), std::string_view(" \t\n\r\v\f").find(c) != std::string::npos);
        EXPECT_EQ(Ascii::toLower(c), upper ? static_cast<char>(byte + 32) : c) << byte;
        const std::size_t digit = hex.find(Ascii::toLower(c));
        EXPECT_EQ(Ascii::hexValue(c), digit == std::string::npos || c == '\0' ? -1 : int(digit));
        EXPECT_EQ(Ascii::isHexDigit(c), Ascii::hexValue(c) >= 0) << byte;
    }
}

TEST(Integers, ReadsWholeDecimalTextsWithinTheTypesRangeOnly) {
    using Limits = std::numeric_limits<std::int32_t>;
    // clang-format off
    const std::pair<std::string_view, std::int32_t> read[] = {
        {"0", 0}, {"42", 42}, {"+42", 42}, {"-42", -42}, {"007", 7}, {"-0", 0},
        {"2147483647", Limits::max()}, {"-2147483648", Limits::min()}};
    // clang-format on
    for (const auto& [text, value] : read) {
        EXPECT_EQ(parseInteger<std::int32_t>(text), value) << text;
    }
    // Overflow at either end, signs alone or doubled, anything around the digits.
    for (std::string_view text : {"2147483648", "-2147483649", "99999999999", "", "+", "-", "+-1",
                                  "-+1", "--1", " 1", "1 ", "1x", "0x10", "1.0", "1e3", "\u0663"}) {
        EXPECT_EQ(parseInteger<std::int32_t>(text), std::nullopt) << text;
    }
    EXPECT_EQ(parseInteger<std::int64_t>("-9223372036854775808"),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(parseInteger<std::uint64_t>("+18446744073709551615"),
              std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(parseInteger<std::uint64_t>("18446744073709551616"), std::nullopt);
    EXPECT_EQ(parseInteger<std::uint8_t>("256"), std::nullopt);
    // No negative text for an unsigned type, not even zero.
    EXPECT_EQ(parseInteger<std::uint32_t>("-0"), std::nullopt);
}

TEST(Scanner, TakesWhatTheGrammarExpectsAndNeverReadsPastTheEnd) {
    Scanner in("rgb(12, 34)x");
    EXPECT_FALSE(in.consume("rgba("));
    EXPECT_TRUE(in.consume("rgb("));
    EXPECT_EQ(in.takeWhile(Ascii::isDigit), "12");
    EXPECT_FALSE(in.consume(')'));
    EXPECT_TRUE(in.consume(','));
    in.skipWhile(Ascii::isBlank);
    EXPECT_TRUE(in.consumeIf(Ascii::isDigit));
    EXPECT_EQ(in.peek(1), ')');
    EXPECT_EQ(in.takeUntil('x'), "4)");
    EXPECT_EQ(in.consume(), 'x');
    // At the end every look gives '\0' and every take gives nothing.
    EXPECT_EQ(in.consume(), '\0');
    EXPECT_FALSE(in.consumeIf([](char) { return true; }));
    in.skip(5);
    EXPECT_TRUE(in.atEnd() && in.position() == in.text().size() && in.rest().empty());
    // A NUL inside the text is a character like any other.
    Scanner nul(std::string_view("a\0b", 3));
    nul.skip(1);
    EXPECT_TRUE(nul.consume('\0') && nul.rest() == "b");
}

} // namespace
} // namespace pelmora
