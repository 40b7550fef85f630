#include "support/NumberText.h"

#include <charconv>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace pelmora {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(NumberText, ShortestAndDefaultForms) {
    // The shortest text that reads back, as a JSON number; not finite gives "0".
    // clang-format off
    const std::pair<double, std::string_view> shortest[] = {
        {1700000000.0, "1700000000"}, {1700000000.25, "1700000000.25"}, {-2.5, "-2.5"},
        {0.1, "0.1"}, {-0.0, "-0"}, {1e20, "100000000000000000000"}, {1e21, "1e+21"},
        {1.5e300, "1.5e+300"}, {0.000001, "0.000001"}, {1e-7, "1e-07"}, {5e-324, "5e-324"},
        {-infinity, "0"}, {std::nan(""), "0"}};
    // Always a fraction or an exponent.
    const std::pair<double, std::string_view> defaults[] = {
        {1700000000.0, "1700000000.0"}, {-0.0, "-0.0"}, {0.0001, "0.0001"}, {0.00001, "1e-05"},
        {9007199254740991.0, "9007199254740991.0"}, {9007199254740992.0, "9.007199254740992e+15"},
        {-1e300, "-1e+300"}, {infinity, "inf"}, {std::nan(""), "nan"}};
    // clang-format on
    for (const auto& [value, expected] : shortest) {
        EXPECT_EQ(NumberText::shortest(value), expected);
    }
    for (const auto& [value, expected] : defaults) {
        EXPECT_EQ(NumberText::defaultForm(value), expected);
    }
    for (double value : {0.1 + 0.2, 123456.789e-12, 9007199254740993.0,
                         std::numeric_limits<double>::max(), std::numeric_limits<double>::min()}) {
        const std::string text = NumberText::shortest(value);
        double back = 0;
        std::from_chars(text.data(), text.data() + text.size(), back);
        EXPECT_EQ(back, value) << text;
    }
}

} // namespace
} // namespace pelmora
