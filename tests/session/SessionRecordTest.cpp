#include "session/SessionRecord.h"

#include <gtest/gtest.h>
#include <string>

#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

TEST(SessionRecord, StateRawValues) {
    const std::pair<SessionState, const char*> states[] = {
        {SessionState::idle, "idle"},         {SessionState::working, "working"},
        {SessionState::awaiting, "awaiting"}, {SessionState::compacting, "compacting"},
        {SessionState::failed, "failed"},     {SessionState::done, "done"},
        {SessionState::ended, "ended"}};
    for (const auto& [state, raw] : states) {
        EXPECT_EQ(rawValue(state), raw);
        EXPECT_EQ(fromRaw<SessionState>(raw), state);
    }
    EXPECT_FALSE(fromRaw<SessionState>("Idle"));
}

// What a fresh record holds shows in its file bytes below.
TEST(SessionRecord, DerivedNamesAndEquality) {
    SessionRecord fresh = SessionRecord::make(Source::claude, "abc", "/a/b/", 100);
    EXPECT_EQ(fresh.key(), "claude-abc");
    EXPECT_EQ(fresh.projectName(), "b");
    for (const auto& [cwd, project] :
         std::vector<std::pair<std::string, std::string>>{{"/", "/"},
                                                          {"/Users/ann/My App", "My App"},
                                                          {"relative", "relative"},
                                                          {"/a//b//", "b"},
                                                          {"", ""}}) {
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

TEST(SessionRecord, DecodingIsStrictAboutRequiredFieldsAndTypes) {
    // A minimal readable record with one member replaced, or removed when the
    // replacement is empty.
    const auto decodeWith = [](std::string_view key, std::string_view valueJSON) {
        JSONValue json = SessionRecord::make(Source::claude, "s", "/p", 10).toJSON();
        json.set(key,
                 valueJSON.empty() ? std::nullopt : std::optional(OrderedJSON::parse(valueJSON)));
        return SessionRecord::fromJSON(json);
    };
    for (const char* key : {"schemaVersion", "source", "sessionID", "cwd", "state", "stateSince",
                            "updatedAt", "host"}) {
        EXPECT_FALSE(decodeWith(key, "")) << key;
        EXPECT_FALSE(decodeWith(key, "null")) << key;
    }
    // A present value of the wrong type or range spoils the record; null and
    // unknown keys do not.
    const std::vector<std::tuple<std::string_view, std::string_view, bool>> rows{
        {"state", R"("paused")", false},
        {"source", R"("Claude")", false},
        {"stateSince", R"("2026-11-22T10:15:30Z")", false},
        {"host", "{}", false},
        {"host", R"({"tmux":1})", false},
        {"host", R"({"tmux":false,"tty":3})", false},
        {"host", R"({"tmux":true,"tty":null,"extra":[]})", true},
        {"pid", "null", true},
        {"pid", "2147483647", true},
        {"pid", "2147483648", false},
        {"pid", "12.5", false},
        {"pid", R"("4242")", false},
        {"exitCode", "-2147483649", false},
        {"tool", "true", false},
        {"turnStartedAt", R"("soon")", false},
        {"unknownKey", R"({"anything":1})", true},
    };
    for (const auto& [key, value, readable] : rows) {
        EXPECT_EQ(decodeWith(key, value).has_value(), readable) << key << " " << value;
    }
    EXPECT_FALSE(SessionRecord::decode("{\"schemaVersion\":1"));
}

} // namespace
} // namespace pelmora
