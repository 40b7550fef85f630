#include "session/EventReducer.h"

#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "json/OrderedJSON.h"
#include "session/Redactor.h"
#include "session/SessionStore.h"
#include "session/TaskTitle.h"

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
    SessionRecord record = SessionRecord::make(Source::claude, "s", "/work/project", before);
    record.state = state;
    record.title = "Fix the parser";
    record.tool = "Edit";
    record.summary = "src/parser.cpp";
    record.lastEvent = "PreToolUse";
    record.host.tty = "/dev/ttys003";
    record.pid = 4242;
    record.pidStartTime = 50.25;
    record.detail = "detail";
    record.logPath = "/tmp/build.log";
    record.openURL = "https://example.com";
    record.exitCode = 1;
    record.container = "db";
    record.composeProject = "shop";
    record.port = 5432;
    record.webURL = "http://localhost:5432";
    return record;
}

constexpr std::array<SessionState, 7> allStates{
    SessionState::idle,   SessionState::working, SessionState::awaiting, SessionState::compacting,
    SessionState::failed, SessionState::done,    SessionState::ended,
};

struct Transition {
    HookEvent event;
    // The state reached from each of allStates, in that order.
    std::array<SessionState, 7> to;
};

std::array<SessionState, 7> always(SessionState state) {
    std::array<SessionState, 7> result{};
    result.fill(state);
    return result;
}

} // namespace

TEST(EventReducer, StateTransitionsFromEveryState) {
    using S = SessionState;
    const std::array<S, 7> afterTool{S::idle,   S::working, S::working, S::working,
                                     S::failed, S::done,    S::ended};
    std::vector<Transition> transitions{
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
        transitions.push_back({event(name), afterTool});
    }

    for (const Transition& transition : transitions) {
        for (std::size_t i = 0; i < allStates.size(); ++i) {
            SCOPED_TRACE(transition.event.name + " from " + std::string(rawValue(allStates[i])));
            SessionRecord record = recordIn(allStates[i]);
            ASSERT_TRUE(EventReducer::apply(transition.event, record, now));
            EXPECT_EQ(record.state, transition.to[i]);
            // stateSince moves only on a real change of state.
            EXPECT_EQ(record.stateSince, transition.to[i] == allStates[i] ? before : now);
            EXPECT_EQ(record.updatedAt, now);
            EXPECT_EQ(record.lastEvent, transition.event.name);
        }
    }
}

TEST(EventReducer, UntrackedEventsReturnFalseAndWriteNoFile) {
    const std::vector<HookEvent> untracked{
        event("SubagentStop"),
        notification("idle_prompt", "Waiting for input"),
        notification(std::nullopt),
        event("subagentStop"), // not canonical: not matched
        event(""),
    };
    for (const HookEvent& ignored : untracked) {
        SCOPED_TRACE(ignored.name);
        SessionRecord record = recordIn(SessionState::working);
        const SessionRecord stored = record;
        EXPECT_FALSE(EventReducer::apply(ignored, record, now));
        EXPECT_EQ(record, stored);
    }

    // A brand-new session whose first event is untracked gets no file.
    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("pelmora-reducer-" + std::to_string(::getpid()));
    SessionStore::update(
        Source::claude, "fresh", directory, [](std::optional<SessionRecord>& current) {
            SessionRecord record =
                current.value_or(SessionRecord::make(Source::claude, "fresh", "/w", now));
            if (EventReducer::apply(event("SubagentStop"), record, now)) {
                current = std::move(record);
            }
        });
    EXPECT_FALSE(
        std::filesystem::exists(SessionStore::fileURL(Source::claude, "fresh", directory)));
    std::filesystem::remove_all(directory);
}

TEST(EventReducer, CommonStepsAndPassThrough) {
    // A post-tool event while idle changes only the common fields.
    SessionRecord record = recordIn(SessionState::idle);
    SessionRecord expected = record;
    HookEvent moved = event("PostToolUse");
    moved.cwd = "/work/other";
    ASSERT_TRUE(EventReducer::apply(moved, record, now));
    expected.cwd = "/work/other";
    expected.lastEvent = "PostToolUse";
    expected.updatedAt = now;
    EXPECT_EQ(record, expected);

    // An event without a cwd keeps the stored one.
    ASSERT_TRUE(EventReducer::apply(event("SessionEnd"), record, now + 1));
    EXPECT_EQ(record.cwd, "/work/other");
    EXPECT_EQ(record.updatedAt, now + 1);
    EXPECT_EQ(record.stateSince, now + 1);
    EXPECT_EQ(record.detail, "detail");
    EXPECT_EQ(record.webURL, "http://localhost:5432");
}

TEST(EventReducer, PromptsAndTitles) {
    SessionRecord record = recordIn(SessionState::done);
    const std::string prompt = "Refactor the session store to use atomic renames";
    HookEvent submit = event("UserPromptSubmit");
    submit.prompt = prompt;
    ASSERT_TRUE(EventReducer::apply(submit, record, now));
    const std::optional<std::string> title =
        TaskTitle::make(prompt, std::nullopt, std::string_view("/work/project"));
    ASSERT_TRUE(title.has_value());
    EXPECT_EQ(record.title, title);
    EXPECT_EQ(record.turnStartedAt, now);
    EXPECT_FALSE(record.tool.has_value());
    EXPECT_FALSE(record.summary.has_value());

    // A prompt that makes no title keeps the previous one.
    submit.prompt = "ok";
    ASSERT_TRUE(EventReducer::apply(submit, record, now + 5));
    EXPECT_EQ(record.title, title);
    EXPECT_EQ(record.turnStartedAt, now + 5);
    EXPECT_EQ(record.stateSince, now); // still working

    // Only a cleared session loses its title, and a resumed one keeps it.
    HookEvent start = event("SessionStart");
    start.source = "resume";
    ASSERT_TRUE(EventReducer::apply(start, record, now + 6));
    EXPECT_EQ(record.title, title);
    ASSERT_TRUE(EventReducer::apply(event("Stop"), record, now + 7));
    start.source = "clear";
    ASSERT_TRUE(EventReducer::apply(start, record, now + 8));
    EXPECT_FALSE(record.title.has_value());
    EXPECT_EQ(record.state, SessionState::done);
    EXPECT_EQ(record.stateSince, now + 7);
}

TEST(EventReducer, ToolUseAndPermissions) {
    SessionRecord record = recordIn(SessionState::done);
    record.turnStartedAt = 10;
    const HookEvent bash = toolEvent("PreToolUse", "Bash", R"({"command":"make test"})");
    ASSERT_TRUE(EventReducer::apply(bash, record, now));
    EXPECT_EQ(record.turnStartedAt, now); // a turn that began without a prompt
    EXPECT_EQ(record.tool, "Bash");
    EXPECT_EQ(record.summary, bash.toolSummary());
    EXPECT_TRUE(record.summary.has_value());

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
    EXPECT_EQ(record.summary, bash.toolSummary());
    EXPECT_EQ(record.stateSince, now + 4);
    const HookEvent write = toolEvent("PermissionRequest", "Write", R"({"file_path":"/w/a.txt"})");
    ASSERT_TRUE(EventReducer::apply(write, record, now + 5));
    EXPECT_EQ(record.tool, "Write");
    EXPECT_EQ(record.summary, write.toolSummary());
    EXPECT_EQ(record.stateSince, now + 4);
    EXPECT_EQ(record.turnStartedAt, now + 3);
}

TEST(EventReducer, NotificationsAndFailures) {
    // Redaction sees the cwd that this very event brought.
    SessionRecord record = recordIn(SessionState::working);
    HookEvent prompt = notification("permission_prompt", "Allow edit of /work/moved/src/a.c?");
    prompt.cwd = "/work/moved";
    ASSERT_TRUE(EventReducer::apply(prompt, record, now));
    EXPECT_EQ(record.summary, Redactor::redact(*prompt.message, std::string_view("/work/moved")));
    EXPECT_EQ(record.summary->find("/work/moved"), std::string::npos);
    EXPECT_EQ(record.state, SessionState::awaiting);

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
    EXPECT_EQ(record.stateSince, before);
    failure.error = "rate limited";
    ASSERT_TRUE(EventReducer::apply(failure, record, now));
    EXPECT_EQ(record.summary, "rate limited");
    failure.lastAssistantMessage = "API Error: token sk-ant-api03-" + std::string(40, 'Q');
    ASSERT_TRUE(EventReducer::apply(failure, record, now));
    EXPECT_EQ(record.summary,
              Redactor::redact(*failure.lastAssistantMessage, std::string_view("/work/project")));
    EXPECT_EQ(record.summary->find(std::string(40, 'Q')), std::string::npos);

    // Stop and Interrupt drop the tool but keep what it acted on.
    for (std::string_view name : {"Stop", "Interrupt"}) {
        record = recordIn(SessionState::working);
        ASSERT_TRUE(EventReducer::apply(event(name), record, now));
        EXPECT_FALSE(record.tool.has_value()) << name;
        EXPECT_EQ(record.summary, "src/parser.cpp") << name;
    }
}
