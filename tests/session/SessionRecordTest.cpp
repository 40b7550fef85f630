#include "session/SessionRecord.h"

#include <gtest/gtest.h>
#include <string>

#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

SessionRecord fullRecord() {
    SessionRecord record =
        SessionRecord::make(Source::build, "run/42", "/Users/ann/app", 1700000000.25);
    record.state = SessionState::failed;
    record.tool = "Bash";
    record.summary = "npm test";
    record.title = "Fix the build";
    record.turnStartedAt = 1699999990.5;
    record.stateSince = 1700000001.125;
    record.lastEvent = "Stop";
    record.host = {"iTerm.app", "w0t0p0:1", "", true, "/dev/ttys003", "com.googlecode.iterm2"};
    record.pid = -2147483647 - 1;
    record.pidStartTime = 1699990000.123456;
    record.detail = "3 failed \"tests\"\n";
    record.logPath = "/tmp/logs/42.log";
    record.openURL = "https://example.com/a/b";
    record.exitCode = 2147483647;
    record.container = "db";
    record.composeProject = "app";
    record.port = 5432;
    record.webURL = "http://localhost:5432/";
    return record;
}

TEST(SessionRecord, StateRawValues) {
    const SessionState states[] = {SessionState::idle,     SessionState::working,
                                   SessionState::awaiting, SessionState::compacting,
                                   SessionState::failed,   SessionState::done,
                                   SessionState::ended};
    const char* raws[] = {"idle", "working", "awaiting", "compacting", "failed", "done", "ended"};
    for (std::size_t i = 0; i < std::size(states); ++i) {
        EXPECT_EQ(rawValue(states[i]), raws[i]);
        EXPECT_EQ(fromRaw<SessionState>(raws[i]), states[i]);
    }
    EXPECT_FALSE(fromRaw<SessionState>("Idle"));
    EXPECT_FALSE(fromRaw<SessionState>("running"));
}

TEST(SessionRecord, FreshRecordAndDerivedNames) {
    SessionRecord fresh = SessionRecord::make(Source::claude, "abc", "/a/b/", 100);
    EXPECT_EQ(fresh.schemaVersion, 1);
    EXPECT_EQ(fresh.state, SessionState::idle);
    EXPECT_EQ(fresh.stateSince, 100);
    EXPECT_EQ(fresh.updatedAt, 100);
    EXPECT_EQ(fresh.host, HostInfo{});
    EXPECT_FALSE(fresh.pid);
    EXPECT_EQ(fresh.key(), "claude-abc");
    EXPECT_EQ(fresh.projectName(), "b");

    auto projectOf = [](std::string cwd) {
        return SessionRecord::make(Source::codex, "x", std::move(cwd), 0).projectName();
    };
    EXPECT_EQ(projectOf("/"), "/");
    EXPECT_EQ(projectOf("/Users/ann/My App"), "My App");
    EXPECT_EQ(projectOf("relative"), "relative");
    EXPECT_EQ(projectOf("/a//b//"), "b");
    EXPECT_EQ(projectOf(""), "");

    SessionRecord later = fresh;
    later.updatedAt = 101;
    EXPECT_NE(later, fresh);
}

TEST(SessionRecord, RoundTripsThroughItsFileBytes) {
    SessionRecord full = fullRecord();
    EXPECT_EQ(SessionRecord::decode(full.encode()), full);
    EXPECT_EQ(SessionRecord::fromJSON(full.toJSON()), full);

    SessionRecord bare = SessionRecord::make(Source::kimi, "ü-1", "/", 1700000000);
    std::string bytes = bare.encode();
    EXPECT_EQ(bytes, "{\"cwd\":\"\\/\",\"host\":{\"tmux\":false},\"schemaVersion\":1,"
                     "\"sessionID\":\"ü-1\",\"source\":\"kimi\",\"state\":\"idle\","
                     "\"stateSince\":1700000000,\"updatedAt\":1700000000}");
    EXPECT_EQ(SessionRecord::decode(bytes), bare);
}

// A minimal readable record with one member replaced (or removed when the
// replacement is empty).
std::optional<SessionRecord> decodeWith(std::string_view key, std::string_view valueJSON) {
    JSONValue json = SessionRecord::make(Source::claude, "s", "/p", 10).toJSON();
    if (valueJSON.empty()) {
        json.set(key, std::nullopt);
    } else {
        json.set(key, OrderedJSON::parse(valueJSON));
    }
    return SessionRecord::fromJSON(json);
}

TEST(SessionRecord, DecodingIsStrictAboutRequiredFieldsAndTypes) {
    for (const char* key : {"schemaVersion", "source", "sessionID", "cwd", "state", "stateSince",
                            "updatedAt", "host"}) {
        EXPECT_FALSE(decodeWith(key, "")) << key;
        EXPECT_FALSE(decodeWith(key, "null")) << key;
    }
    EXPECT_FALSE(decodeWith("state", "\"paused\""));
    EXPECT_FALSE(decodeWith("source", "\"Claude\""));
    EXPECT_FALSE(decodeWith("schemaVersion", "\"1\""));
    EXPECT_FALSE(decodeWith("schemaVersion", "1.5"));
    EXPECT_EQ(decodeWith("schemaVersion", "2")->schemaVersion, 2);
    EXPECT_FALSE(decodeWith("stateSince", "\"2026-11-22T10:15:30Z\""));
    EXPECT_FALSE(decodeWith("host", "{}"));
    EXPECT_FALSE(decodeWith("host", "{\"tmux\":1}"));
    EXPECT_FALSE(decodeWith("host", "{\"tmux\":false,\"tty\":3}"));
    EXPECT_EQ(decodeWith("host", "{\"tmux\":true,\"tty\":null,\"extra\":[]}")->host.tmux, true);

    // Absent and null mean none; a present value of the wrong type spoils the record.
    EXPECT_FALSE(decodeWith("pid", "null")->pid);
    EXPECT_EQ(decodeWith("pid", "4242")->pid, 4242);
    EXPECT_FALSE(decodeWith("pid", "2147483648"));
    EXPECT_FALSE(decodeWith("pid", "12.5"));
    EXPECT_FALSE(decodeWith("pid", "\"4242\""));
    EXPECT_FALSE(decodeWith("exitCode", "-2147483649"));
    EXPECT_EQ(decodeWith("port", "8080")->port, 8080);
    EXPECT_FALSE(decodeWith("tool", "true"));
    EXPECT_FALSE(decodeWith("turnStartedAt", "\"soon\""));
    EXPECT_EQ(decodeWith("turnStartedAt", "12")->turnStartedAt, 12.0);
    EXPECT_EQ(decodeWith("title", "null")->title, std::nullopt);
    EXPECT_TRUE(decodeWith("unknownKey", "{\"anything\":1}"));

    EXPECT_FALSE(SessionRecord::decode("[]"));
    EXPECT_FALSE(SessionRecord::decode("{\"schemaVersion\":1"));
    EXPECT_FALSE(SessionRecord::decode(""));
}

TEST(SessionRecord, AbsentPidStaysOutOfTheFile) {
    std::string bytes = SessionRecord::make(Source::codex, "a", "/w", 5).encode();
    auto record = SessionRecord::decode(bytes);
    ASSERT_TRUE(record);
    EXPECT_FALSE(record->pid);
    EXPECT_EQ(record->encode().find("\"pid\""), std::string::npos);
    EXPECT_EQ(record->encode(), bytes);
}

} // namespace
} // namespace pelmora
