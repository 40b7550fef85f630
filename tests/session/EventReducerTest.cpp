#include "session/EventReducer.h"

#include <array>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

using namespace pelmora;

namespace {

constexpr double before = 100;
constexpr double now = 200;

HookEvent event(std::string_view name, std::string_view members = "") {
    return HookEvent::decode(R"({"session_id":"s","hook_event_name":")" + std::string(name) + "\"" +
                             std::string(members) + "}")
        .value();
}

// A record in `state` since `before`, with every field that the reducer must
// carry through untouched filled in.
SessionRecord recordIn(SessionState state) {
    SessionRecord record = SessionRecord::decode(R"({"schemaVersion":1,"source":"claude",
        "sessionID":"s","cwd":"/work/project","state":"idle","stateSince":100,"updatedAt":100,
        "title":"Fix the parser","tool":"Edit","summary":"src/parser.cpp","turnStartedAt":90,
        "lastEvent":"PreToolUse","host":{"tmux":true,"tty":"/dev/ttys003"},"pid":4242,
        "pidStartTime":50.25,"detail":"d","logPath":"/tmp/b.log","openURL":"https://example.com",
        "exitCode":1,"container":"db","composeProject":"shop","port":5432,"webURL":"http://x"})")
                               .value();
    record.state = state;
    return record;
}

} // namespace

TEST(EventReducer, StateTransitionsFromEveryState) {
    using enum SessionState;
    constexpr std::array<SessionState, 7> from{idle,   working, awaiting, compacting,
                                               failed, done,    ended};
    const auto always = [](SessionState state) {
        std::array<SessionState, 7> result{};
        result.fill(state);
        return result;
    };
    // Each row gives the state reached from each state of `from`, in order.
    std::vector<std::pair<HookEvent, std::array<SessionState, 7>>> transitions{
        {event("UserPromptSubmit"), always(working)},
        {event("PreToolUse", R"(,"tool_name":"Bash")"), always(working)},
        {event("PreToolUse", R"(,"tool_name":"AskUserQuestion")"), always(awaiting)},
        {event("preToolUse", R"(,"tool_name":"ask_user_question")"), always(awaiting)},
        {event("PermissionRequest"), always(awaiting)},
        {event("Notification", R"(,"notification_type":"permission_prompt")"), always(awaiting)},
        {event("Notification", R"(,"notification_type":"elicitation_dialog")"), always(awaiting)},
        {event("PreCompact"), always(compacting)},
        {event("agentStop"), always(done)},
        {event("StopFailure"), always(failed)},
        {event("Interrupt"), always(idle)},
        {event("SessionEnd"), always(ended)},
        {event("SessionStart"), {idle, working, awaiting, compacting, idle, done, idle}},
    };
    for (std::string_view name : {"PostToolUse", "PostToolUseFailure", "PostToolBatch",
                                  "PostCompact", "PostCompaction", "SubagentStart"}) {
        transitions.push_back(
            {event(name), {idle, working, working, working, failed, done, ended}});
    }
    for (const auto& [applied, to] : transitions) {
        for (std::size_t i = 0; i < from.size(); ++i) {
            SCOPED_TRACE(applied.name + " from " + std::string(rawValue(from[i])));
            SessionRecord record = recordIn(from[i]);
            ASSERT_TRUE(EventReducer::apply(applied, record, now));
            EXPECT_TRUE(EventReducer::tracks(applied));
            EXPECT_EQ(record.state, to[i]);
            // stateSince moves only on a real change of state.
            EXPECT_EQ(record.stateSince, to[i] == from[i] ? before : now);
            EXPECT_EQ(record.updatedAt, now);
            EXPECT_EQ(record.lastEvent, applied.name);
            EXPECT_EQ(record.cwd, "/work/project"); // the event brought no cwd
        }
    }
    // Untracked: the caller writes nothing, so not even the common steps apply.
    for (const HookEvent& ignored :
         {event("SubagentStop"), event("stop"), event(""), event("Notification"),
          event("Notification", R"(,"notification_type":"idle_prompt","message":"Waiting")")}) {
        SessionRecord record = recordIn(working);
        EXPECT_FALSE(EventReducer::apply(ignored, record, now)) << ignored.name;
        EXPECT_FALSE(EventReducer::tracks(ignored)) << ignored.name;
        EXPECT_EQ(record, recordIn(working));
    }
}

TEST(EventReducer, FieldsEachEventSets) {
    using enum SessionState;
    const std::string make = R"(,"tool_name":"Bash","tool_input":{"command":"make"})";
    const std::string prompt = R"(,"notification_type":"permission_prompt","message":"Allow)";
    using Change = void (*)(SessionRecord&);
    const std::tuple<SessionState, HookEvent, Change> cases[] = {
        {done, event("UserPromptSubmit", R"(,"prompt":"Refactor /work/project/src/Store.cpp")"),
         [](SessionRecord& r) {
             r.title = "Refactor src/Store.cpp";
             r.turnStartedAt = now, r.tool = r.summary = std::nullopt;
         }},
        // A prompt that makes no title keeps the previous one.
        {working, event("UserPromptSubmit", R"(,"prompt":"ok")"),
         [](SessionRecord& r) { r.turnStartedAt = now, r.tool = r.summary = std::nullopt; }},
        // An empty prompt goes on with the turn under way (Qwen Code, after a tool).
        {awaiting, event("UserPromptSubmit", R"(,"prompt":"")"),
         [](SessionRecord& r) { r.tool = r.summary = std::nullopt; }},
        {done, event("UserPromptSubmit", R"(,"prompt":"")"),
         [](SessionRecord& r) { r.turnStartedAt = now, r.tool = r.summary = std::nullopt; }},
        // A turn keeps its start; one that begins with a tool starts there.
        {working, event("PreToolUse", make),
         [](SessionRecord& r) { r.tool = "Bash", r.summary = "make"; }},
        {done, event("PreToolUse", R"(,"tool_name":"Task")"),
         [](SessionRecord& r) { r.tool = "Task", r.summary.reset(), r.turnStartedAt = now; }},
        // A permission request without tool details keeps those of the tool use.
        {working, event("PermissionRequest"), [](SessionRecord&) {}},
        {awaiting, event("PermissionRequest", R"(,"tool_name":"Write","tool_input":{"path":"/a"})"),
         [](SessionRecord& r) { r.tool = "Write", r.summary = "/a"; }},
        // Only a cleared session loses its title.
        {done, event("SessionStart", R"(,"source":"clear")"),
         [](SessionRecord& r) { r.title.reset(); }},
        // Redaction sees the cwd that this very event brought.
        {working, event("Notification", prompt + R"( /work/moved/a.c?","cwd":"/work/moved")"),
         [](SessionRecord& r) { r.cwd = "/work/moved", r.summary = "Allow a.c?"; }},
        {working, event("Notification", R"(,"notification_type":"permission_prompt")"),
         [](SessionRecord&) {}},
        // A second notice of the same wait changes nothing but the common steps.
        {awaiting, event("Notification", prompt + "\""), [](SessionRecord&) {}},
        // The assistant's last words, else the error, else a fixed text, each
        // time, even when the session has failed already.
        {failed, event("StopFailure"),
         [](SessionRecord& r) { r.tool.reset(), r.summary = "Turn failed"; }},
        {failed, event("StopFailure", R"(,"error":"rate limited")"),
         [](SessionRecord& r) { r.tool.reset(), r.summary = "rate limited"; }},
        {failed,
         event("StopFailure", R"(,"error":"e","last_assistant_message":"token sk-ant-api03-)" +
                                  std::string(40, 'Q') + "\""),
         [](SessionRecord& r) { r.tool.reset(), r.summary = "token ***"; }},
        // Stopping drops the tool but keeps what it acted on.
        {working, event("Interrupt"), [](SessionRecord& r) { r.tool.reset(); }},
    };
    for (const auto& [from, applied, change] : cases) {
        SCOPED_TRACE(applied.name + " from " + std::string(rawValue(from)));
        SessionRecord record = recordIn(from);
        ASSERT_TRUE(EventReducer::apply(applied, record, now));
        SessionRecord expected = recordIn(from);
        change(expected);
        expected.lastEvent = applied.name;
        expected.updatedAt = now;
        expected.state = record.state; // the transitions test covers these
        expected.stateSince = record.stateSince;
        EXPECT_EQ(record, expected);
    }
}
