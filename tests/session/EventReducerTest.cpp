#include "session/EventReducer.h"

#include <array>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "json/OrderedJSON.h"

using namespace pelmora;

namespace {

constexpr double before = 100;
constexpr double now = 200;

HookEvent event(std::string_view name) {
    HookEvent result;
    result.name = std::string(name);
    result.sessionID = "s";
    return result;
}

HookEvent toolEvent(std::string_view name, std::string_view tool, std::string_view input) {
    HookEvent result = event(name);
    result.toolName = std::string(tool);
    result.toolInput = OrderedJSON::parse(input);
    return result;
}

HookEvent notification(std::optional<std::string> type, std::optional<std::string> message = {}) {
    HookEvent result = event("Notification");
    result.notificationType = std::move(type);
    result.message = std::move(message);
    return result;
}

// A record in `state` since `before`, with every field that the reducer must
// carry through untouched filled in.
SessionRecord recordIn(SessionState state) {
    SessionRecord record = SessionRecord::decode(R"({"schemaVersion":1,"source":"claude",
        "sessionID":"s","cwd":"/work/project","state":"idle","stateSince":100,"updatedAt":100,
        "title":"Fix the parser","tool":"Edit","summary":"src/parser.cpp","lastEvent":"PreToolUse",
        "host":{"tmux":true,"tty":"/dev/ttys003"},"pid":4242,"pidStartTime":50.25,
        "detail":"detail","logPath":"/tmp/build.log","openURL":"https://example.com",
        "exitCode":1,"container":"db","composeProject":"shop","port":5432,
        "webURL":"http://localhost:5432"})")
                               .value();
    record.state = state;
    return record;
}

} // namespace

TEST(EventReducer, StateTransitionsFromEveryState) {
    using S = SessionState;
    constexpr std::array<S, 7> from{S::idle,   S::working, S::awaiting, S::compacting,
                                    S::failed, S::done,    S::ended};
    const auto always = [](S state) {
        std::array<S, 7> result{};
        result.fill(state);
        return result;
    };
    // Each row gives the state reached from each state of `from`, in order.
    std::vector<std::pair<HookEvent, std::array<S, 7>>> transitions{
        {event("UserPromptSubmit"), always(S::working)},
        {toolEvent("PreToolUse", "Bash", R"({"command":"ls"})"), always(S::working)},
        {toolEvent("PreToolUse", "AskUserQuestion", "{}"), always(S::awaiting)},
        {toolEvent("PreToolUse", "ask_user_question", "{}"), always(S::awaiting)},
        {toolEvent("PermissionRequest", "Bash", R"({"command":"ls"})"), always(S::awaiting)},
        {notification("permission_prompt"), always(S::awaiting)},
        {notification("elicitation_dialog", "Pick one"), always(S::awaiting)},
        {event("PreCompact"), always(S::compacting)},
        {event("Stop"), always(S::done)},
        {event("StopFailure"), always(S::failed)},
        {event("Interrupt"), always(S::idle)},
        {event("SessionEnd"), always(S::ended)},
        {event("SessionStart"),
         {S::idle, S::working, S::awaiting, S::compacting, S::idle, S::done, S::idle}},
    };
    for (std::string_view name : {"PostToolUse", "PostToolUseFailure", "PostToolBatch",
                                  "PostCompact", "PostCompaction", "SubagentStart"}) {
        transitions.push_back(
            {event(name),
             {S::idle, S::working, S::working, S::working, S::failed, S::done, S::ended}});
    }

    for (const auto& [applied, to] : transitions) {
        for (std::size_t i = 0; i < from.size(); ++i) {
            SCOPED_TRACE(applied.name + " from " + std::string(rawValue(from[i])));
            SessionRecord record = recordIn(from[i]);
            ASSERT_TRUE(EventReducer::apply(applied, record, now));
            EXPECT_EQ(record.state, to[i]);
            // stateSince moves only on a real change of state.
            EXPECT_EQ(record.stateSince, to[i] == from[i] ? before : now);
            EXPECT_EQ(record.updatedAt, now);
            EXPECT_EQ(record.lastEvent, applied.name);
            EXPECT_EQ(record.cwd, "/work/project"); // the event brought no cwd
        }
    }
}

TEST(EventReducer, UntrackedEventsLeaveTheRecordAlone) {
    // The caller writes nothing on false, so not even the common steps apply.
    for (const HookEvent& ignored :
         {event("SubagentStop"), event("subagentStop"), event(""),
          notification("idle_prompt", "Waiting for input"), notification(std::nullopt)}) {
        SCOPED_TRACE(ignored.name);
        SessionRecord record = recordIn(SessionState::working);
        EXPECT_FALSE(EventReducer::apply(ignored, record, now));
        EXPECT_EQ(record, recordIn(SessionState::working));
    }

    // A tracked event that changes no state still carries every other field
    // through and takes the event's cwd.
    SessionRecord record = recordIn(SessionState::idle);
    SessionRecord expected = record;
    HookEvent moved = event("PostToolUse");
    moved.cwd = "/work/other";
    ASSERT_TRUE(EventReducer::apply(moved, record, now));
    expected.cwd = "/work/other";
    expected.lastEvent = "PostToolUse";
    expected.updatedAt = now;
    EXPECT_EQ(record, expected);
}

TEST(EventReducer, PromptsAndTitles) {
    SessionRecord record = recordIn(SessionState::done);
    HookEvent submit = event("UserPromptSubmit");
    submit.prompt = "Refactor the session store to use /work/project/src/Store.cpp";
    ASSERT_TRUE(EventReducer::apply(submit, record, now));
    EXPECT_EQ(record.title, "Refactor the session store to use src/Store.cpp");
    EXPECT_EQ(record.turnStartedAt, now);
    EXPECT_FALSE(record.tool.has_value());
    EXPECT_FALSE(record.summary.has_value());

    // A prompt that makes no title keeps the previous one.
    submit.prompt = "ok";
    ASSERT_TRUE(EventReducer::apply(submit, record, now + 5));
    EXPECT_EQ(record.title, "Refactor the session store to use src/Store.cpp");
    EXPECT_EQ(record.turnStartedAt, now + 5);

    // Only a cleared session loses its title, and a resumed one keeps it.
    HookEvent start = event("SessionStart");
    start.source = "resume";
    ASSERT_TRUE(EventReducer::apply(start, record, now + 6));
    EXPECT_TRUE(record.title.has_value());
    ASSERT_TRUE(EventReducer::apply(event("Stop"), record, now + 7));
    start.source = "clear";
    ASSERT_TRUE(EventReducer::apply(start, record, now + 8));
    EXPECT_FALSE(record.title.has_value());
}

TEST(EventReducer, ToolUseAndPermissions) {
    SessionRecord record = recordIn(SessionState::done);
    record.turnStartedAt = 10;
    const HookEvent bash = toolEvent("PreToolUse", "Bash", R"({"command":"make test"})");
    ASSERT_TRUE(EventReducer::apply(bash, record, now));
    EXPECT_EQ(record.turnStartedAt, now); // a turn that began without a prompt
    EXPECT_EQ(record.tool, "Bash");
    EXPECT_EQ(record.summary, "make test");

    // While working, the turn's start stays; a tool without input details
    // clears the previous summary.
    ASSERT_TRUE(EventReducer::apply(toolEvent("PreToolUse", "Task", "{}"), record, now + 1));
    EXPECT_EQ(record.turnStartedAt, now);
    EXPECT_EQ(record.tool, "Task");
    EXPECT_FALSE(record.summary.has_value());
    ASSERT_TRUE(EventReducer::apply(event("PreToolUse"), record, now + 2));
    EXPECT_FALSE(record.tool.has_value());

    record.turnStartedAt.reset();
    ASSERT_TRUE(EventReducer::apply(bash, record, now + 3));
    EXPECT_EQ(record.turnStartedAt, now + 3);

    // A permission request without tool details keeps those of the tool use;
    // a second request keeps the wait's start.
    ASSERT_TRUE(EventReducer::apply(event("PermissionRequest"), record, now + 4));
    EXPECT_EQ(record.tool, "Bash");
    EXPECT_EQ(record.summary, "make test");
    const HookEvent write = toolEvent("PermissionRequest", "Write", R"({"file_path":"/w/a.txt"})");
    ASSERT_TRUE(EventReducer::apply(write, record, now + 5));
    EXPECT_EQ(record.tool, "Write");
    EXPECT_EQ(record.summary, "/w/a.txt");
    EXPECT_EQ(record.stateSince, now + 4);
    EXPECT_EQ(record.turnStartedAt, now + 3);
}

TEST(EventReducer, NotificationsAndFailures) {
    // Redaction sees the cwd that this very event brought.
    SessionRecord record = recordIn(SessionState::working);
    HookEvent prompt = notification("permission_prompt", "Allow edit of /work/moved/src/a.c?");
    prompt.cwd = "/work/moved";
    ASSERT_TRUE(EventReducer::apply(prompt, record, now));
    EXPECT_EQ(record.summary, "Allow edit of src/a.c?");

    // A second notice of the same wait changes nothing but the common steps.
    SessionRecord expected = record;
    ASSERT_TRUE(EventReducer::apply(notification("elicitation_dialog", "Other"), record, now + 1));
    expected.updatedAt = now + 1;
    expected.lastEvent = "Notification";
    EXPECT_EQ(record, expected);

    // Without a message the summary stays.
    record = recordIn(SessionState::working);
    ASSERT_TRUE(EventReducer::apply(notification("permission_prompt"), record, now));
    EXPECT_EQ(record.summary, "src/parser.cpp");

    // Failures: the assistant's last words, else the error, else a fixed text,
    // each time, even when the session has failed already.
    record = recordIn(SessionState::failed);
    HookEvent failure = event("StopFailure");
    ASSERT_TRUE(EventReducer::apply(failure, record, now));
    EXPECT_EQ(record.summary, "Turn failed");
    EXPECT_FALSE(record.tool.has_value());
    failure.error = "rate limited";
    ASSERT_TRUE(EventReducer::apply(failure, record, now));
    EXPECT_EQ(record.summary, "rate limited");
    failure.lastAssistantMessage = "API Error: token sk-ant-api03-" + std::string(40, 'Q');
    ASSERT_TRUE(EventReducer::apply(failure, record, now));
    EXPECT_EQ(record.summary, "API Error: token ***");

    // Stop and Interrupt drop the tool but keep what it acted on.
    for (std::string_view name : {"Stop", "Interrupt"}) {
        record = recordIn(SessionState::working);
        ASSERT_TRUE(EventReducer::apply(event(name), record, now));
        EXPECT_FALSE(record.tool.has_value()) << name;
        EXPECT_EQ(record.summary, "src/parser.cpp") << name;
    }
}
