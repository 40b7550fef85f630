#include "json/OrderedJSON.h"

#include <gtest/gtest.h>
#include <string>

namespace pelmora {
namespace {

std::int64_t failureOffset(std::string_view text) {
    EXPECT_FALSE(OrderedJSON::tryParse(text).has_value()) << text;
    try {
        OrderedJSON::parse(text);
    } catch (const JSONParseError& error) {
        return error.offset;
    }
    return -1;
}

std::string nested(std::size_t depth, std::string_view leaf = "") {
    return std::string(depth, '[') + std::string(leaf) + std::string(depth, ']');
}

TEST(OrderedJSONParse, KeepsOrderDuplicatesAndNumberSpelling) {
    auto number = [](const char* text) { return JSONValue::number(std::string(text)); };
    const JSONValue value = OrderedJSON::parse(
        R"({"b": 1, "a": [1.50, 1e3, -0, 1E+2, 0.0, -12.5e-3], "k": "first", "k": "second"})");
    EXPECT_EQ(value,
              JSONValue::object({
                  {"b", number("1")},
                  {"a", JSONValue::array({number("1.50"), number("1e3"), number("-0"),
                                          number("1E+2"), number("0.0"), number("-12.5e-3")})},
                  {"k", JSONValue::string("first")},
                  {"k", JSONValue::string("second")},
              }));
    EXPECT_EQ(*value.find("k")->stringValue(), "first");
    EXPECT_EQ(OrderedJSON::parse(" \t\r\ntrue \n"), JSONValue::boolean(true));
    EXPECT_EQ(OrderedJSON::parse("[{}, [], \"\", null]"),
              JSONValue::array({JSONValue::object(), JSONValue::array(), JSONValue::string(""),
                                JSONValue::null()}));
}

TEST(OrderedJSONParse, DecodesEscapesAndUnicode) {
    auto text = [](std::string_view json) { return *OrderedJSON::parse(json).stringValue(); };
    EXPECT_EQ(text(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(text(R"("caf\u00e9 \u00E9 a\u0000b")"), std::string("caf\xC3\xA9 \xC3\xA9 a\0b", 12));
    EXPECT_EQ(text(R"("\uD83D\uDE00 \uDBFF\uDFFF")"), "\xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF");
    EXPECT_EQ(text("\"h\xC3\xA9llo \xF0\x9F\x98\x80 \xE2\x82\xAC \xED\x9F\xBF \xEE\x80\x80\""),
              "h\xC3\xA9llo \xF0\x9F\x98\x80 \xE2\x82\xAC \xED\x9F\xBF \xEE\x80\x80");
    // Long runs go through the word-at-a-time scan; what follows them must
    // still be seen wherever in the word it falls.
    for (std::size_t length = 0; length < 20; ++length) {
        const std::string run(length, 'x');
        EXPECT_EQ(text("\"" + run + "\\n" + run + "\""), run + "\n" + run);
        EXPECT_EQ(text("\"" + run + "\xC3\xA9\""), run + "\xC3\xA9");
        EXPECT_EQ(failureOffset("\"" + run + "\x01\""), static_cast<std::int64_t>(length + 1));
        EXPECT_EQ(failureOffset("\"" + run + "\x7F\x80\""), static_cast<std::int64_t>(length + 2));
    }
}

TEST(OrderedJSONParse, ReportsTheByteWhereItGaveUp) {
    // Grouped by the offset at which parsing must stop. Invalid UTF-8
    // (overlong forms, encoded surrogates, past U+10FFFF, stray or cut-short
    // sequences) and lone or misordered surrogate escapes are errors too.
    const std::pair<std::int64_t, std::vector<std::string_view>> cases[] = {
        {0, {"", "+1", ".5", "True", "NaN", "\xEF\xBB\xBF{}", "\xC3\xA9"}},
        {1,
         {"01", "-", "[,1]", "{1:2}", "{'a':1}", "[Infinity]", "\"\xC0\xAF\"", "\"\xC1\xBF\"",
          "\"\xF5\x80\x80\x80\"", "\"\xFF\"", "\"\x80\"", R"("\uDC00")", R"("\uDE00\uD83D")"}},
        {2,
         {"-01", "1.", "1.e5", "1e", "\"a\tb\"", "\"a\nb\"", R"("\x")", "\"\\", "[1",
          "\"\xE0\x80\xAF\"", "\"\xF0\x8F\xBF\xBF\"", "\"\xED\xA0\x80\"", "\"\xED\xBF\xBF\"",
          "\"\xF4\x90\x80\x80\"", "\"\xC3\""}},
        {3, {"   ", "1e+", "[1,]", "[1 2]", "tru", "nulx", "{} {}", "\"\xE2\x82\"", "\"\xE2\x82"}},
        {4, {"\"abc", "\"\xF0\x9F\x98"}},
        {5, {"[1,2]x", R"({"a" 1})", R"("\u12G4")", R"("\u12")"}},
        {7,
         {R"({"a":1,})", R"("\uD800")", R"("\uD800x")", R"("\uD800\u0041")", R"("\uD800\uD800")",
          R"("\uD800\n")"}},
        {8, {R"(["ok", "\uDFFF"])", R"({"\uD83D": 1})"}},
    };
    for (const auto& [offset, texts] : cases) {
        for (std::string_view text : texts) {
            EXPECT_EQ(failureOffset(text), offset) << ::testing::PrintToString(std::string(text));
        }
    }
    try {
        OrderedJSON::parse("[1,2]x");
        FAIL();
    } catch (const JSONParseError& error) {
        EXPECT_EQ(error.description(), "Invalid JSON near byte 5");
        EXPECT_STREQ(error.what(), "Invalid JSON near byte 5");
    }
}

TEST(OrderedJSONParse, LimitsNesting) {
    const std::size_t limit = OrderedJSON::maxDepth;
    EXPECT_TRUE(OrderedJSON::tryParse(nested(limit, "1")).has_value());
    EXPECT_TRUE(OrderedJSON::tryParse(nested(limit)).has_value());
    EXPECT_EQ(failureOffset(nested(limit + 1)), static_cast<std::int64_t>(limit));

    std::string objects;
    for (std::size_t i = 0; i < limit; ++i) {
        objects += R"({"a":)";
    }
    EXPECT_TRUE(OrderedJSON::tryParse(objects + "0" + std::string(limit, '}')).has_value());
    EXPECT_EQ(failureOffset(objects + "{}" + std::string(limit, '}')),
              static_cast<std::int64_t>(objects.size()));

    EXPECT_EQ(failureOffset(std::string(1'000'000, '[')), static_cast<std::int64_t>(limit));
    std::string alternating;
    for (int i = 0; i < 500'000; ++i) {
        alternating += R"([{"":)";
    }
    EXPECT_EQ(failureOffset(alternating), static_cast<std::int64_t>(limit / 2 * 5));
}

TEST(OrderedJSONSerialize, WritesTheFixedStyle) {
    auto written = [](std::string_view text, std::string_view indent) {
        return OrderedJSON::serialize(OrderedJSON::parse(text), indent);
    };
    EXPECT_EQ(written(R"({"a":[]})", "  "), "{\n  \"a\": []\n}");
    EXPECT_EQ(written("{}", "  "), "{}");
    EXPECT_EQ(written("[]", "  "), "[]");
    EXPECT_EQ(written("1.50", "  "), "1.50");
    EXPECT_EQ(written(R"([true,false,null,{"x":{}}])", "\t"),
              "[\n\ttrue,\n\tfalse,\n\tnull,\n\t{\n\t\t\"x\": {}\n\t}\n]");
    EXPECT_EQ(written(R"({"k\n":null})", ""), "{\n\"k\\n\": null\n}");
    const JSONValue text =
        JSONValue::string("a/b \"q\" \\ \b\t\n\f\r \x01\x1F\x7F caf\xC3\xA9 \xF0\x9F\x98\x80");
    EXPECT_EQ(OrderedJSON::serialize(text, "  "), R"("a/b \"q\" \\ \b\t\n\f\r \u0001\u001f)"
                                                  "\x7F caf\xC3\xA9 \xF0\x9F\x98\x80\"");
}

TEST(OrderedJSONSerialize, RealisticSettingsFileComesBackByteForByte) {
    const std::string settings = R"json({
  "hooks": {
    "Stop": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "/Users/me/Library/Application Support/Pelmora/bin/pelmora-hook --source claude",
            "timeout": 1.50
          }
        ]
      }
    ]
  },
  "env": {
    "Z_LAST": "1",
    "A_FIRST": "caf\u00e9 ☕ \"quoted\" tab\there",
    "MAX": 1e3,
    "NEG": -0,
    "BIG": 12345678901234567890123,
    "EXP": 1E+2
  },
  "statusLine": null
})json";
    const JSONValue value = OrderedJSON::parse(settings);
    std::string expected = settings;
    expected.replace(expected.find("\\u00e9"), 6, "\xC3\xA9");
    EXPECT_EQ(OrderedJSON::serialize(value, "  "), expected);
    EXPECT_EQ(OrderedJSON::parse(OrderedJSON::serialize(value, "\t")), value);
    const std::string compact = OrderedJSON::serializeCompact(value);
    EXPECT_NE(compact.find(R"("command":"\/Users\/me\/Library)"), std::string::npos);
    EXPECT_EQ(OrderedJSON::serializeCompact(OrderedJSON::parse(compact)), compact);
}

TEST(OrderedJSONCompact, SortsKeysLikeThePlatformAndEscapesSlash) {
    auto compact = [](std::string_view text) {
        return OrderedJSON::serializeCompact(OrderedJSON::parse(text));
    };
    EXPECT_EQ(compact(R"({"message":"see /tmp/x\n","interrupt":false,"behavior":"deny"})"),
              R"({"behavior":"deny","interrupt":false,"message":"see \/tmp\/x\n"})");
    EXPECT_EQ(compact(R"({"a10":1,"B":2,"a2":3,"a":4,"_":5,"b1":[1.50,"\u0001",null,true,{}]})"),
              R"({"_":5,"a":4,"a2":3,"a10":1,"B":2,"b1":[1.50,"\u0001",null,true,{}]})");
    // Duplicates stay in their order; keys equal but for case fall back to bytes.
    EXPECT_EQ(compact(R"({"k":1,"K":2,"k":3,"k":{"z":1,"y":2}})"),
              R"({"K":2,"k":1,"k":3,"k":{"y":2,"z":1}})");
    EXPECT_EQ(compact("[\"\xC3\xA9/\", []]"), "[\"\xC3\xA9\\/\",[]]");
}

} // namespace
} // namespace pelmora
