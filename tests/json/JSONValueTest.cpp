#include "json/JSONValue.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

JSONValue parsed(std::string_view text) {
    return OrderedJSON::parse(text);
}

TEST(JSONValue, NumberTextReadsAsDoublesAndExactIntegers) {
    EXPECT_EQ(JSONValue::number("-12.5e-3").doubleValue(), -0.0125);
    EXPECT_TRUE(std::signbit(*JSONValue::number("-0").doubleValue()));
    EXPECT_EQ(JSONValue::number("-1e400").doubleValue(), std::nullopt);
    EXPECT_EQ(JSONValue::string("12").integerValue(), std::nullopt);
    // Integers come from the exact decimal value, never through a double.
    constexpr auto max = std::numeric_limits<std::int64_t>::max();
    constexpr auto min = std::numeric_limits<std::int64_t>::min();
    // clang-format off
    const std::pair<std::optional<std::int64_t>, std::vector<std::string>> cases[] = {
        {0, {"-0", "-0.0e5", "0e999999999999999999"}}, {15, {"1.5e1"}}, {3, {"3.0", "30e-1"}},
        {1, {"100E-2", "0.00000000000000000000000000001e29"}},
        {1'000'000'000'000'000'000, {"1e18"}},
        {9007199254740993, {"9007199254740993", "9007199254740993.0"}},
        {max, {"9223372036854775807", "9.223372036854775807e18"}},
        {min, {"-9223372036854775808", "-9.223372036854775808e18"}},
        {std::nullopt, {"3.5", "1e-1", "1e-99999999999", "1e19", "1e99999999999",
                        "9223372036854775808", "-9223372036854775809", "1234567890123456789012"}}};
    // clang-format on
    for (const auto& [expected, texts] : cases) {
        for (const std::string& text : texts) {
            EXPECT_EQ(JSONValue::number(text).integerValue(), expected) << text;
        }
    }
    EXPECT_EQ(*JSONValue::integer(min).numberText(), "-9223372036854775808");
}

TEST(JSONValue, PathLookupWalksObjectsFromTheFirstMatch) {
    const JSONValue value =
        parsed(R"({"a": {"b": 1, "b": 2, "list": [{"c": 3}]}, "a": {"b": 9}, "s": "x"})");
    EXPECT_EQ(value.value({}), &value);
    EXPECT_EQ(*value.value({"a", "b"})->numberText(), "1");
    EXPECT_EQ(value.value({"a", "list", "0"}), nullptr);
    EXPECT_EQ(value.value({"s", "x"}), nullptr);
}

TEST(JSONValue, SetReplacesInPlaceRemovesAppendsAndMakesTheObjectsItNeeds) {
    JSONValue value = parsed(R"({"b": 1, "a": 2, "b": 3, "s": "x"})");
    value.set("b", JSONValue::string("new"));
    value.set("c", JSONValue::boolean(true));
    value.set("a", std::nullopt);
    value.set("missing", std::nullopt);
    EXPECT_EQ(value, parsed(R"({"b": "new", "b": 3, "s": "x", "c": true})"));

    JSONValue settings = parsed(R"({"model": "opus", "hooks": {"Stop": [], "Other": 1}})");
    settings.set({"hooks", "Stop"}, JSONValue::array({JSONValue::integer(1)}));
    settings.set(std::vector<std::string>{"statusLine", "type"}, JSONValue::string("command"));
    settings.set({"model", "name"}, JSONValue::string("x"));
    settings.set({"hooks", "Other"}, std::nullopt);
    // Removing along a missing path, or from a value that is no object, changes nothing.
    settings.set({"absent", "deeper", "key"}, std::nullopt);
    settings.set({"model", "name", "key"}, std::nullopt);
    settings.set({}, JSONValue::null());
    EXPECT_EQ(settings, parsed(R"({"model": {"name": "x"}, "hooks": {"Stop": [1]},
                                   "statusLine": {"type": "command"}})"));
    JSONValue list = parsed("[1]");
    list.set({"a", "b"}, JSONValue::null());
    EXPECT_EQ(list, parsed("[1]"));
}

TEST(JSONValue, EqualityIsStructuralAndOrderSensitive) {
    EXPECT_EQ(parsed(R"({"a": [1, {"b": null}]})"), parsed(R"({ "a" : [ 1 , { "b" : null } ] })"));
    // clang-format off
    const std::pair<std::string_view, std::string_view> different[] = {
        {R"({"a": 1, "b": 2})", R"({"b": 2, "a": 1})"}, {"1.0", "1"}, {R"("1")", "1"},
        {"[1, 2]", "[2, 1]"}, {"{}", "[]"}, {R"({"a": 1})", R"({"a": 1, "a": 1})"}};
    // clang-format on
    for (const auto& [a, b] : different) {
        EXPECT_NE(parsed(a), parsed(b)) << a << " " << b;
    }
}

} // namespace
} // namespace pelmora
