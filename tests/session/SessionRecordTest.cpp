#include "session/SessionRecord.h"

#include <gtest/gtest.h>
#include <string>

#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

// The states' spellings are pinned by the file bytes below and by the
// decoding table; a table of them here would only copy the code's.
TEST(SessionRecord, DerivedNamesAndEquality) {
    const SessionRecord fresh = SessionRecord::make(Source::claude, "abc", "/a/b/", 100);
    EXPECT_EQ(fresh.key(), "claude-abc");
    // clang-format off
    const std::pair<std::string, std::string> projects[] = {
        {"/a/b/", "b"}, {"/", "/"}, {"/Users/ann/My App", "My App"}, {"/a//b//", "b"}, {"", ""}};
    // clang-format on
    for (const auto& [cwd, project] : projects) {
        EXPECT_EQ(SessionRecord::make(Source::codex, "x", cwd, 0).projectName(), project) << cwd;
    }
    SessionRecord later = fresh;
    later.updatedAt = 101;
    EXPECT_NE(later, fresh);
}

TEST(SessionRecord, RoundTripsThroughItsFileBytes) {
    // Every field, in the file's own form: keys sorted, timestamps in seconds.
    const std::string full =
        R"({"composeProject":"app","container":"db","cwd":"\/Users\/ann\/app",)"
        R"("detail":"3 failed \"tests\"\n","exitCode":2147483647,"host":{"bundleID":)"
        R"("com.googlecode.iterm2","itermSessionID":"","termProgram":"iTerm.app",)"
        R"("termSessionID":"w0t0p0:1","tmux":true,"tty":"\/dev\/ttys003"},"lastEvent":"Stop",)"
        R"("logPath":"\/tmp\/logs\/42.log","openURL":"https:\/\/example.com\/a\/b",)"
        R"("pid":-2147483648,"pidStartTime":1699990000.123456,"port":5432,"schemaVersion":1,)"
        R"("sessionID":"run\/42","source":"build","state":"failed","stateSince":1700000001.125,)"
        R"("summary":"npm test","title":"Fix the build","tool":"Bash",)"
        R"("turnStartedAt":1699999990.5,"updatedAt":1700000000.25,)"
        R"("webURL":"http:\/\/localhost:5432\/"})";
    const std::optional<SessionRecord> decoded = SessionRecord::decode(full);
    ASSERT_TRUE(decoded.has_value());
    EXPECT_EQ(decoded->encode(), full);
    EXPECT_EQ(decoded->pid, -2147483647 - 1);
    EXPECT_EQ(decoded->host.termProgram, "iTerm.app");

    // Absent optionals, pid among them, stay out of the file and read back
    // as absent.
    SessionRecord bare = SessionRecord::make(Source::kimi, "ü-1", "/", 1700000000);
    std::string bytes = bare.encode();
    EXPECT_EQ(bytes, "{\"cwd\":\"\\/\",\"host\":{\"tmux\":false},\"schemaVersion\":1,"
                     "\"sessionID\":\"ü-1\",\"source\":\"kimi\",\"state\":\"idle\","
                     "\"stateSince\":1700000000,\"updatedAt\":1700000000}");
    EXPECT_EQ(SessionRecord::decode(bytes), bare);
}

TEST(SessionRecord, DecodingIsStrictAndSaysWhichMemberFailed) {
    // A minimal readable record with members replaced, or removed when the
    // replacement is empty; gives why it does not decode, or "" when it does.
    const auto failureWith =
        [](std::vector<std::pair<std::string_view, std::string_view>> changes) {
            JSONValue json = SessionRecord::make(Source::claude, "s", "/p", 10).toJSON();
            for (const auto& [key, value] : changes) {
                json.set(key,
                         value.empty() ? std::nullopt : std::optional(OrderedJSON::parse(value)));
            }
            JSONDecodeFailure failure;
            const bool decoded = SessionRecord::fromJSON(json, &failure).has_value();
            EXPECT_EQ(decoded, failure.text().empty());
            return failure.text();
        };
    for (std::string key : {"schemaVersion", "source", "sessionID", "cwd", "state", "stateSince",
                            "updatedAt", "host"}) {
        EXPECT_EQ(failureWith({{key, ""}}), key + ": missing");
        EXPECT_EQ(failureWith({{key, "null"}}), key + ": must not be null");
    }
    // A present value of the wrong type or range spoils the record; null and
    // unknown keys do not.
    const std::string notInt32 = "expected an integer from -2147483648 to 2147483647";
    // clang-format off
    const std::tuple<std::string_view, std::string_view, std::string> rows[] = {
        {"state", R"("paused")", R"(state: unknown value "paused")"},
        {"source", R"("Claude")", R"(source: unknown value "Claude")"},
        {"stateSince", R"("2026-11-22T10:15:30Z")", "stateSince: expected a number"},
        {"host", "[]", "host: expected an object"}, {"host", "{}", "host.tmux: missing"},
        {"host", R"({"tmux":1})", "host.tmux: expected a boolean"},
        {"host", R"({"tmux":false,"tty":3})", "host.tty: expected a string"},
        {"host", R"({"tmux":true,"tty":null,"extra":[]})", ""},
        {"pid", "null", ""}, {"pid", "2147483647", ""}, {"pid", "2147483648", "pid: " + notInt32},
        {"pid", "12.5", "pid: " + notInt32}, {"pid", R"("4242")", "pid: " + notInt32},
        {"exitCode", "-2147483649", "exitCode: " + notInt32},
        {"tool", "true", "tool: expected a string"},
        {"turnStartedAt", R"("soon")", "turnStartedAt: expected a number"},
        {"unknownKey", R"({"anything":1})", ""}};
    // clang-format on
    for (const auto& [key, value, why] : rows) {
        EXPECT_EQ(failureWith({{key, value}}), why) << key << " " << value;
    }
    // The first failing member in the record's order is the one named.
    EXPECT_EQ(failureWith({{"pid", "true"}, {"state", "1"}}), "state: expected a string");
    EXPECT_FALSE(SessionRecord::decode("{\"schemaVersion\":1"));
}

} // namespace
} // namespace pelmora
