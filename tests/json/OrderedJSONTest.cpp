#include "json/OrderedJSON.h"

#include <gtest/gtest.h>
#include <string>

namespace pelmora {
namespace {

// Where parse() gave up, after checking that tryParse() agrees and that the
// description names the same byte.
std::int64_t failureOffset(std::string_view text) {
    EXPECT_FALSE(OrderedJSON::tryParse(text).has_value()) << text;
    try {
        OrderedJSON::parse(text);
    } catch (const JSONParseError& error) {
        EXPECT_EQ(error.what(), "Invalid JSON near byte " + std::to_string(error.offset));
        EXPECT_EQ(error.description(), error.what());
        return error.offset;
    }
    return -1;
}

std::string repeated(std::string_view unit, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += unit;
    }
    return text;
}

std::string nested(std::size_t depth, std::string_view leaf = "") {
    return std::string(depth, '[') + std::string(leaf) + std::string(depth, ']');
}

TEST(OrderedJSONParse, KeepsOrderDuplicatesAndNumberSpelling) {
    auto number = [](const char* text) { return JSONValue::number(std::string(text)); };
    const JSONValue value = OrderedJSON::parse(
        " \t\r\n{\"b\": 1, \"a\": [1.50, 1e3, -0, 1E+2, -12.5e-3, {}, [], \"\", null, true],"
        " \"k\": \"first\", \"k\": \"second\"} \n");
    // clang-format off
    EXPECT_EQ(value, JSONValue::object({
        {"b", number("1")},
        {"a", JSONValue::array({number("1.50"), number("1e3"), number("-0"), number("1E+2"),
                                number("-12.5e-3"), JSONValue::object(), JSONValue::array(),
                                JSONValue::string(""), JSONValue(), JSONValue::boolean(true)})},
        {"k", JSONValue::string("first")}, {"k", JSONValue::string("second")}}));
    // clang-format on
    EXPECT_EQ(*value.find("k")->stringValue(), "first");
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
    // clang-format off
    const std::pair<std::int64_t, std::vector<std::string_view>> cases[] = {
        {0, {"", "+1", ".5", "True", "NaN", "\xEF\xBB\xBF{}", "\xC3\xA9"}},
        {1, {"01", "-", "[,1]", "{1:2}", "{'a':1}", "[Infinity]", "\"\xC0\xAF\"", "\"\xC1\xBF\"",
             "\"\xF5\x80\x80\x80\"", "\"\xFF\"", "\"\x80\"", R"("\uDC00")", R"("\uDE00\uD83D")"}},
        {2, {"-01", "1.", "1.e5", "1e", "\"a\tb\"", "\"a\nb\"", R"("\x")", "\"\\", "[1",
             "\"\xE0\x80\xAF\"", "\"\xF0\x8F\xBF\xBF\"", "\"\xED\xA0\x80\"", "\"\xED\xBF\xBF\"",
             "\"\xF4\x90\x80\x80\"", "\"\xC3\""}},
        {3, {"   ", "1e+", "[1,]", "[1 2]", "tru", "nulx", "{} {}", "\"\xE2\x82\"", "\"\xE2\x82"}},
        {4, {"\"abc", "\"\xF0\x9F\x98"}}, {5, {"[1,2]x", R"({"a" 1})", R"("\u12G4")", R"("\u12")"}},
        {7, {R"({"a":1,})", R"("\uD800")", R"("\uD800x")", R"("\uD800\u0041")", R"("\uD800\uD800")",
             R"("\uD800\n")"}},
        {8, {R"(["ok", "\uDFFF"])", R"({"\uD83D": 1})"}}};
    // clang-format on
    for (const auto& [offset, texts] : cases) {
        for (std::string_view text : texts) {
            EXPECT_EQ(failureOffset(text), offset) << ::testing::PrintToString(std::string(text));
        }
    }
}

TEST(OrderedJSONParse, DiagnosesWhatWasWrongAndWhere) {
    // Lines count line feeds; columns count characters, not bytes.
    // clang-format off
    const std::pair<std::string, std::string_view> cases[] = {
        {"{\"a\": 1,\n}", "expected a key in double quotes at line 2, column 1"},
        {"{\n  \"hooks\": {\"Stop\": [] \"x\"}\n}",
         "expected ',' or '}' after an object member at line 2, column 24"},
        {"[1 2]", "expected ',' or ']' after an array element at line 1, column 4"},
        {"{\"a\" 1}", "expected ':' after an object key at line 1, column 6"},
        {"[1,]", "expected a value at line 1, column 4"},
        {"[tru]", "expected 'true' at line 1, column 5"},
        {"01", "a number cannot start with 0 followed by another digit at line 1, column 2"},
        {"-a", "expected a digit in the number at line 1, column 2"},
        {"\"caf\xC3\xA9 \\x\"", "invalid escape at line 1, column 8"},
        {"\"\\u12G4\"", "expected four hexadecimal digits after \\u at line 1, column 6"},
        {"\"\\uDC00\"", "unpaired surrogate in a \\u escape at line 1, column 2"},
        {"\"e\xCC\x81\t\"", "unescaped control character in a string at line 1, column 3"},
        {"[\"\xFF\"]", "invalid UTF-8 at line 1, column 3"},
        {"{} {}", "trailing characters after the document at line 1, column 4"},
        {"\r\n\"abc", "unterminated string at line 2, column 5"},
        {"[1,", "unexpected end of the document: expected a value at line 1, column 4"},
        {" \n ", "empty document at line 2, column 2"},
        {"\xEF\xBB\xBF{}", "byte-order mark before the document at line 1, column 1"},
        {nested(OrderedJSON::maxDepth + 1), "nesting deeper than 512 at line 1, column 513"}};
    // clang-format on
    for (const auto& [text, located] : cases) {
        try {
            OrderedJSON::parseDiagnosed(text);
            ADD_FAILURE() << text;
        } catch (const JSONParseError& error) {
            EXPECT_EQ(error.located(), located);
            EXPECT_EQ(error.offset, failureOffset(text)) << located;
        }
    }
}

TEST(OrderedJSONParse, LimitsNesting) {
    const std::size_t limit = OrderedJSON::maxDepth;
    EXPECT_TRUE(OrderedJSON::tryParse(nested(limit, "1")).has_value());
    EXPECT_TRUE(OrderedJSON::tryParse(nested(limit)).has_value());
    EXPECT_EQ(failureOffset(nested(limit + 1)), static_cast<std::int64_t>(limit));

    const std::string objects = repeated(R"({"a":)", limit);
    EXPECT_TRUE(OrderedJSON::tryParse(objects + "0" + std::string(limit, '}')).has_value());
    EXPECT_EQ(failureOffset(objects + "{}" + std::string(limit, '}')),
              static_cast<std::int64_t>(objects.size()));

    EXPECT_EQ(failureOffset(std::string(1'000'000, '[')), static_cast<std::int64_t>(limit));
    EXPECT_EQ(failureOffset(repeated(R"([{"":)", 500'000)),
              static_cast<std::int64_t>(limit / 2 * 5));
}

TEST(OrderedJSONSerialize, RealisticSettingsFileComesBackByteForByte) {
    const std::string settings = R"json({
  "hooks": {
    "Stop": [
      {
        "command": "/Users/me/Library/Application Support/Pelmora/bin/pelmora-hook",
        "timeout": 1.50
      }
    ]
  },
  "env": {
    "Z_LAST": "caf\u00e9 ☕ \"quoted\" tab\there",
    "A_FIRST": [1e3, -0, 12345678901234567890123, 1E+2],
    "NONE": [],
    "EMPTY": {}
  }
})json";
    std::string expected = settings;
    expected.replace(expected.find("\\u00e9"), 6, "\xC3\xA9");
    expected.replace(expected.find("[1e3, -0, 12345678901234567890123, 1E+2]"), 40,
                     "[\n      1e3,\n      -0,\n      12345678901234567890123,\n      1E+2\n    ]");
    EXPECT_EQ(OrderedJSON::serialize(OrderedJSON::parse(settings), "  "), expected);

    // Any unit, the empty one too; only quote, backslash and controls are escaped.
    EXPECT_EQ(OrderedJSON::serialize(OrderedJSON::parse(R"([{"x":{}}])"), "\t"),
              "[\n\t{\n\t\t\"x\": {}\n\t}\n]");
    EXPECT_EQ(OrderedJSON::serialize(OrderedJSON::parse(R"({"k\n":true})"), ""),
              "{\n\"k\\n\": true\n}");
    const JSONValue text =
        JSONValue::string("a/b \"q\" \\ \b\t\n\f\r \x01\x1F\x7F \xF0\x9F\x98\x80");
    EXPECT_EQ(OrderedJSON::serialize(text, "  "), R"("a/b \"q\" \\ \b\t\n\f\r \u0001\u001f)"
                                                  "\x7F \xF0\x9F\x98\x80\"");
}

TEST(OrderedJSONCompact, SortsKeysLikeThePlatformAndEscapesSlash) {
    auto compact = [](std::string_view text) {
        return OrderedJSON::serializeCompact(OrderedJSON::parse(text));
    };
    EXPECT_EQ(compact(R"({"message":"see /tmp/x\n","interrupt":false,"behavior":"deny"})"),
              R"({"behavior":"deny","interrupt":false,"message":"see \/tmp\/x\n"})");
    // Digit runs compare by value, however long; letters without case, ASCII
    // first; keys equal under those rules by their bytes; duplicates in order.
    const std::string longRun = "x1" + std::string(23, '0'), shortRun = "x" + std::string(23, '9');
    EXPECT_EQ(compact(R"({"v1.10":1,"b":2,"\u00e9":3,")" + longRun + R"(":4,"v1.9":5,"_":6,")" +
                      shortRun + R"(":7})"),
              R"({"_":6,"b":2,"v1.9":5,"v1.10":1,")" + shortRun + R"(":7,")" + longRun +
                  "\":4,\"\xC3\xA9\":3}");
    EXPECT_EQ(compact(R"({"k":1,"K":2,"a1":3,"A01":4,"k":{"z":1,"y":2}})"),
              R"({"A01":4,"a1":3,"K":2,"k":1,"k":{"y":2,"z":1}})");
    EXPECT_EQ(compact("[\"\xC3\xA9/\\u0001\", [], 1.50, null]"),
              "[\"\xC3\xA9\\/\\u0001\",[],1.50,null]");
}

} // namespace
} // namespace pelmora
