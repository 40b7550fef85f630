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
    const JSONValue value = OrderedJSON::parse(
        R"({"b": 1, "a": [1.50, 1e3, -0, 1E+2, 0.0, -12.5e-3], "k": "first", "k": "second"})");
    const auto& members = *value.objectMembers();
    ASSERT_EQ(members.size(), 4u);
    EXPECT_EQ(members[0].key, "b");
    EXPECT_EQ(members[1].key, "a");
    std::vector<std::string> spellings;
    for (const JSONValue& number : *members[1].value.arrayElements())
        spellings.push_back(*number.numberText());
    EXPECT_EQ(spellings,
              (std::vector<std::string>{"1.50", "1e3", "-0", "1E+2", "0.0", "-12.5e-3"}));
    EXPECT_EQ(*value.find("k")->stringValue(), "first");
    EXPECT_EQ(*value.value({"k"})->stringValue(), "first");
    EXPECT_EQ(*members[3].value.stringValue(), "second");

    EXPECT_EQ(OrderedJSON::parse(" \t\r\ntrue \n"), JSONValue::boolean(true));
    EXPECT_EQ(OrderedJSON::parse("null"), JSONValue::null());
    EXPECT_EQ(OrderedJSON::parse("[{}, [], \"\"]"),
              JSONValue::array({JSONValue::object(), JSONValue::array(), JSONValue::string("")}));
}

TEST(OrderedJSONParse, DecodesEscapesAndUnicode) {
    auto text = [](std::string_view json) { return *OrderedJSON::parse(json).stringValue(); };
    EXPECT_EQ(text(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(text(R"("caf\u00e9 \u00E9")"), "caf\xC3\xA9 \xC3\xA9");
    EXPECT_EQ(text(R"("\uD83D\uDE00")"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(text(R"("\uDBFF\uDFFF")"), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(text(R"("a\u0000b")"), std::string("a\0b", 3));
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
    const std::pair<std::string_view, std::int64_t> cases[] = {
        {"[1,2]x", 5},
        {"", 0},
        {"   ", 3},
        {"01", 1},
        {"-01", 2},
        {"+1", 0},
        {".5", 0},
        {"1.", 2},
        {"1.e5", 2},
        {"1e", 2},
        {"1e+", 3},
        {"-", 1},
        {"[1,]", 3},
        {"[,1]", 1},
        {R"({"a":1,})", 7},
        {R"({"a" 1})", 5},
        {"{1:2}", 1},
        {"{'a':1}", 1},
        {"[1 2]", 3},
        {"[1", 2},
        {"\"abc", 4},
        {"tru", 3},
        {"nulx", 3},
        {"True", 0},
        {"\xEF\xBB\xBF{}", 0},
        {"\"a\tb\"", 2},
        {"\"a\nb\"", 2},
        {R"("\x")", 2},
        {R"("\u12G4")", 5},
        {R"("\u12")", 5},
        {"\"\\", 2},
        {"{} {}", 3},
        {"NaN", 0},
        {"[Infinity]", 1},
    };
    for (const auto& [text, offset] : cases)
        EXPECT_EQ(failureOffset(text), offset) << text;

    try {
        OrderedJSON::parse("[1,2]x");
        FAIL();
    } catch (const JSONParseError& error) {
        EXPECT_EQ(error.description(), "Invalid JSON near byte 5");
        EXPECT_STREQ(error.what(), "Invalid JSON near byte 5");
    }
}

TEST(OrderedJSONParse, RefusesInvalidUtf8AndLoneSurrogates) {
    const std::pair<std::string_view, std::int64_t> cases[] = {
        {"\"\xC0\xAF\"", 1},         // overlong slash
        {"\"\xC1\xBF\"", 1},         // overlong
        {"\"\xE0\x80\xAF\"", 2},     // overlong three-byte
        {"\"\xF0\x8F\xBF\xBF\"", 2}, // overlong four-byte
        {"\"\xED\xA0\x80\"", 2},     // U+D800 encoded
        {"\"\xED\xBF\xBF\"", 2},     // U+DFFF encoded
        {"\"\xF4\x90\x80\x80\"", 2}, // above U+10FFFF
        {"\"\xF5\x80\x80\x80\"", 1}, // lead byte above F4
        {"\"\xFF\"", 1},             //
        {"\"\x80\"", 1},             // stray continuation
        {"\"\xE2\x82\"", 3},         // truncated before the quote
        {"\"\xE2\x82", 3},           // truncated at the end
        {"\"\xF0\x9F\x98", 4},       //
        {"\"\xC3\"", 2},             //
        {"\xC3\xA9", 0},             // non-ASCII outside a string
        {R"("\uD800")", 7},          // high surrogate alone
        {R"("\uD800x")", 7},         //
        {R"("\uD800\u0041")", 7},    // followed by no low surrogate
        {R"("\uD800\uD800")", 7},    //
        {R"("\uD800\n")", 7},        //
        {R"("\uDC00")", 1},          // low surrogate first
        {R"("\uDE00\uD83D")", 1},    // pair in the wrong order
        {R"(["ok", "\uDFFF"])", 8},  //
        {R"({"\uD83D": 1})", 8},     // in a key
    };
    for (const auto& [text, offset] : cases)
        EXPECT_EQ(failureOffset(text), offset) << ::testing::PrintToString(std::string(text));
}

TEST(OrderedJSONParse, LimitsNesting) {
    const std::size_t limit = OrderedJSON::maxDepth;
    EXPECT_TRUE(OrderedJSON::tryParse(nested(limit, "1")).has_value());
    EXPECT_TRUE(OrderedJSON::tryParse(nested(limit)).has_value());
    EXPECT_EQ(failureOffset(nested(limit + 1)), static_cast<std::int64_t>(limit));

    std::string objects;
    for (std::size_t i = 0; i < limit; ++i)
        objects += R"({"a":)";
    EXPECT_TRUE(OrderedJSON::tryParse(objects + "0" + std::string(limit, '}')).has_value());
    EXPECT_EQ(failureOffset(objects + "{}" + std::string(limit, '}')),
              static_cast<std::int64_t>(objects.size()));

    EXPECT_EQ(failureOffset(std::string(1'000'000, '[')), static_cast<std::int64_t>(limit));
    std::string alternating;
    for (int i = 0; i < 500'000; ++i)
        alternating += R"([{"":)";
    EXPECT_EQ(failureOffset(alternating), static_cast<std::int64_t>(limit / 2 * 5));
}

TEST(OrderedJSONSerialize, WritesTheFixedStyle) {
    auto parsed = [](std::string_view text) { return OrderedJSON::parse(text); };
    EXPECT_EQ(OrderedJSON::serialize(parsed(R"({"a":[]})"), "  "), "{\n  \"a\": []\n}");
    EXPECT_EQ(OrderedJSON::serialize(parsed("{}"), "  "), "{}");
    EXPECT_EQ(OrderedJSON::serialize(parsed("[]"), "  "), "[]");
    EXPECT_EQ(OrderedJSON::serialize(parsed("1.50"), "  "), "1.50");
    EXPECT_EQ(OrderedJSON::serialize(parsed(R"([true,false,null,{"x":{}}])"), "\t"),
              "[\n\ttrue,\n\tfalse,\n\tnull,\n\t{\n\t\t\"x\": {}\n\t}\n]");
    EXPECT_EQ(OrderedJSON::serialize(parsed(R"({"a":{"b":[1,[2]]}})"), "    "),
              "{\n"
              "    \"a\": {\n"
              "        \"b\": [\n"
              "            1,\n"
              "            [\n"
              "                2\n"
              "            ]\n"
              "        ]\n"
              "    }\n"
              "}");

    const JSONValue text =
        JSONValue::string("a/b \"q\" \\ \b\t\n\f\r \x01\x1F\x7F caf\xC3\xA9 \xF0\x9F\x98\x80");
    EXPECT_EQ(OrderedJSON::serialize(text, "  "), R"("a/b \"q\" \\ \b\t\n\f\r \u0001\u001f)"
                                                  "\x7F caf\xC3\xA9 \xF0\x9F\x98\x80\"");
    EXPECT_EQ(OrderedJSON::serialize(JSONValue::object({{"k\n", JSONValue::null()}}), ""),
              "{\n\"k\\n\": null\n}");
}

TEST(OrderedJSONSerialize, RealisticSettingsFileComesBackByteForByte) {
    const std::string settings = R"json({
  "$schema": "https://json.schemastore.org/claude-code-settings.json",
  "model": "opus",
  "permissions": {
    "allow": [
      "Bash(npm run test:*)",
      "Read(~/.zshrc)"
    ],
    "deny": []
  },
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
    ],
    "PreToolUse": [
      {
        "matcher": "Bash|Edit",
        "hooks": []
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
  "cleanupPeriodDays": 30,
  "includeCoAuthoredBy": false,
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
    JSONValue decision = JSONValue::object();
    decision.set("message", JSONValue::string("Denied from the Pelmora notch"));
    decision.set("behavior", JSONValue::string("deny"));
    JSONValue inner = JSONValue::object();
    inner.set("hookEventName", JSONValue::string("PermissionRequest"));
    inner.set("decision", decision);
    const JSONValue output = JSONValue::object({{"hookSpecificOutput", inner}});
    EXPECT_EQ(
        OrderedJSON::serializeCompact(output),
        R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"Denied from the Pelmora notch"},"hookEventName":"PermissionRequest"}})");

    EXPECT_EQ(OrderedJSON::serializeCompact(OrderedJSON::parse(
                  R"({"message":"see /tmp/x\n","interrupt":false,"behavior":"deny"})")),
              R"({"behavior":"deny","interrupt":false,"message":"see \/tmp\/x\n"})");
    EXPECT_EQ(OrderedJSON::serializeCompact(OrderedJSON::parse(
                  R"({"a10":1,"B":2,"a2":3,"a":4,"_":5,"b1":[1.50,"\u0001",null,true,{}]})")),
              R"({"_":5,"a":4,"a2":3,"a10":1,"B":2,"b1":[1.50,"\u0001",null,true,{}]})");
    // Duplicates stay in their order; keys equal but for case fall back to bytes.
    EXPECT_EQ(OrderedJSON::serializeCompact(
                  OrderedJSON::parse(R"({"k":1,"K":2,"k":3,"k":{"z":1,"y":2}})")),
              R"({"K":2,"k":1,"k":3,"k":{"y":2,"z":1}})");
    EXPECT_EQ(OrderedJSON::serializeCompact(JSONValue::string("\xC3\xA9/")), "\"\xC3\xA9\\/\"");
    EXPECT_EQ(OrderedJSON::serializeCompact(JSONValue::array()), "[]");
}

} // namespace
} // namespace pelmora
