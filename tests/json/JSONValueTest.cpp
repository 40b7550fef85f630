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

TEST(JSONValue, AccessorsAnswerOnlyForTheirKind) {
    const JSONValue text = JSONValue::string("12");
    const JSONValue number = JSONValue::number(std::string("12"));
    EXPECT_EQ(*text.stringValue(), "12");
    EXPECT_EQ(text.numberText(), nullptr);
    EXPECT_EQ(text.integerValue(), std::nullopt);
    EXPECT_EQ(number.stringValue(), nullptr);
    EXPECT_EQ(number.integerValue(), 12);
    EXPECT_EQ(JSONValue::boolean(false).boolValue(), false);
    EXPECT_EQ(JSONValue::null().boolValue(), std::nullopt);
    EXPECT_EQ(JSONValue::null().doubleValue(), std::nullopt);
    EXPECT_EQ(JSONValue::array().objectMembers(), nullptr);
    EXPECT_EQ(JSONValue::array().find("a"), nullptr);
    EXPECT_EQ(JSONValue::object().arrayElements(), nullptr);
}

TEST(JSONValue, ConvertsBetweenNumberTextAndNativeNumbers) {
    EXPECT_EQ(*JSONValue::number(1700000000.0).numberText(), "1700000000");
    EXPECT_EQ(*JSONValue::number(1700000000.25).numberText(), "1700000000.25");
    EXPECT_EQ(*JSONValue::number(std::nan("")).numberText(), "0");
    EXPECT_EQ(*JSONValue::integer(std::numeric_limits<std::int64_t>::min()).numberText(),
              "-9223372036854775808");

    auto asDouble = [](std::string text) {
        return JSONValue::number(std::move(text)).doubleValue();
    };
    EXPECT_EQ(asDouble("1.50"), 1.5);
    EXPECT_EQ(asDouble("1E+2"), 100.0);
    EXPECT_EQ(asDouble("-12.5e-3"), -0.0125);
    EXPECT_TRUE(std::signbit(*asDouble("-0")));
    EXPECT_EQ(asDouble("1e400"), std::nullopt);
    EXPECT_EQ(asDouble("-1e400"), std::nullopt);

    // Integers come from the exact decimal value, never through a double.
    constexpr auto max = std::numeric_limits<std::int64_t>::max();
    constexpr auto min = std::numeric_limits<std::int64_t>::min();
    const std::pair<std::optional<std::int64_t>, std::vector<std::string>> cases[] = {
        {0, {"-0", "-0.0e5", "0e999999999999999999"}},
        {1, {"100E-2", "0.00000000000000000000000000001e29"}},
        {3, {"3", "3.0", "3e0", "30e-1"}},
        {15, {"1.5e1"}},
        {1'000'000'000'000'000'000, {"1e18"}},
        {9007199254740993, {"9007199254740993", "9007199254740993.0"}},
        {max, {"9223372036854775807", "9.223372036854775807e18"}},
        {min, {"-9223372036854775808", "-9.223372036854775808e18"}},
        {std::nullopt,
         {"3.5", "1e-1", "1e-99999999999", "1e19", "1e99999999999", "9223372036854775808",
          "9.223372036854775808e18", "-9223372036854775809", "123456789012345678901234567890"}},
    };
    for (const auto& [expected, texts] : cases) {
        for (const std::string& text : texts) {
            EXPECT_EQ(JSONValue::number(text).integerValue(), expected) << text;
        }
    }
}

TEST(JSONValue, PathLookupWalksObjectsFromTheFirstMatch) {
    const JSONValue value =
        parsed(R"({"a": {"b": 1, "b": 2, "list": [{"c": 3}]}, "a": {"b": 9}, "s": "x"})");
    EXPECT_EQ(value.value({}), &value);
    EXPECT_EQ(*value.value({"a", "b"})->numberText(), "1");
    EXPECT_EQ(*value.value(std::vector<std::string>{"a", "b"})->numberText(), "1");
    EXPECT_EQ(value.value({"a", "list", "0"}), nullptr);
    EXPECT_EQ(value.value({"a", "list", "c"}), nullptr);
    EXPECT_EQ(value.value({"s", "x"}), nullptr);
    EXPECT_EQ(value.value({"A"}), nullptr);
    EXPECT_EQ(value.value(std::vector<std::string>{}), &value);
}

TEST(JSONValue, SetReplacesInPlaceRemovesOrAppends) {
    JSONValue value = parsed(R"({"b": 1, "a": 2, "b": 3})");
    value.set("b", JSONValue::string("new"));
    value.set("c", JSONValue::boolean(true));
    EXPECT_EQ(value, parsed(R"({"b": "new", "a": 2, "b": 3, "c": true})"));
    value.set("b", std::nullopt);
    value.set("missing", std::nullopt);
    EXPECT_EQ(value, parsed(R"({"a": 2, "b": 3, "c": true})"));

    JSONValue list = parsed("[1]");
    list.set("a", JSONValue::null());
    list.set({"a", "b"}, JSONValue::null());
    EXPECT_EQ(list, parsed("[1]"));
}

TEST(JSONValue, SetAlongAPathMakesTheObjectsItNeeds) {
    JSONValue settings = parsed(R"({"model": "opus", "hooks": {"Stop": [], "Other": 1}})");
    settings.set({"hooks", "Stop"}, JSONValue::array({JSONValue::integer(1)}));
    settings.set(std::vector<std::string>{"statusLine", "type"}, JSONValue::string("command"));
    settings.set({"model", "name"}, JSONValue::string("x"));
    EXPECT_EQ(settings, parsed(R"({"model": {"name": "x"}, "hooks": {"Stop": [1], "Other": 1},
                                   "statusLine": {"type": "command"}})"));

    JSONValue removal = parsed(R"({"hooks": {"Stop": 1, "Other": 2}, "s": "x"})");
    removal.set({"hooks", "Stop"}, std::nullopt);
    removal.set({"absent", "deeper", "key"}, std::nullopt);
    removal.set({"s", "key"}, std::nullopt);
    removal.set({}, JSONValue::null());
    removal.set(std::vector<std::string>{}, std::nullopt);
    EXPECT_EQ(removal, parsed(R"({"hooks": {"Other": 2}, "s": "x"})"));
    removal.set({"hooks", "Other"}, std::nullopt);
    EXPECT_EQ(removal, parsed(R"({"hooks": {}, "s": "x"})"));
}

TEST(JSONValue, EqualityIsStructuralAndOrderSensitive) {
    EXPECT_EQ(parsed(R"({"a": [1, {"b": null}]})"), parsed(R"({ "a" : [ 1 , { "b" : null } ] })"));
    EXPECT_NE(parsed(R"({"a": 1, "b": 2})"), parsed(R"({"b": 2, "a": 1})"));
    EXPECT_NE(parsed("1.0"), parsed("1"));
    EXPECT_NE(parsed(R"("1")"), parsed("1"));
    EXPECT_NE(parsed("[1, 2]"), parsed("[2, 1]"));
    EXPECT_NE(parsed("true"), parsed("false"));
    EXPECT_NE(parsed("{}"), parsed("[]"));
    EXPECT_NE(parsed(R"({"a": 1})"), parsed(R"({"a": 1, "a": 1})"));
}

} // namespace
} // namespace pelmora
