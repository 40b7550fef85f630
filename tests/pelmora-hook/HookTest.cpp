#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "common/ProcessRunner.h"
#include "json/OrderedJSON.h"
#include "platform/ChildProcess.h"
#include "session/SessionStore.h"

namespace pelmora {
namespace {

using testing::Finished;
using testing::sendAll;
using testing::StandInApp;
using testing::TempHome;

// The built hook as an agent runs it; stdin stays open `holdStdinOpen` seconds.
Finished runHook(const TempHome& home, std::vector<std::string> arguments,
                 std::map<std::string, std::string> environment, std::string input,
                 double holdStdinOpen = 0) {
    arguments.insert(arguments.begin(), testing::hookBinary());
    environment["PELMORA_HOME"] = home.path().string();
    testing::Child child(arguments, environment, std::move(input), holdStdinOpen > 0);
    if (holdStdinOpen > 0 && child.stillRunningAfter(holdStdinOpen)) {
        child.closeInput();
    }
    return child.finish(20);
}

bool silentSuccess(const Finished& result) {
    return !result.killed && result.exitStatus == 0 && result.out.empty() && result.err.empty();
}

void hook(const TempHome& home, std::string input, std::vector<std::string> arguments = {},
          std::map<std::string, std::string> environment = {}) {
    Finished result = runHook(home, std::move(arguments), std::move(environment), input);
    EXPECT_TRUE(silentSuccess(result)) << result.exitStatus << result.out << result.err;
}

std::optional<SessionRecord> stored(const TempHome& home, std::string_view file) {
    return SessionStore::load(home.sessions() / file).record;
}

std::string event(std::string_view name, std::string_view id, std::string_view more = "") {
    return R"({"hook_event_name":")" + std::string(name) + R"(","session_id":")" + std::string(id) +
           R"(","cwd":"/Users/ann/shop")" + std::string(more) + "}";
}

TEST(HookMode, ArgumentsAndEnvironmentReachTheSessionFile) {
    TempHome home;
    auto sleeper = platform::ChildProcess::start({"/bin/sleep", "30"}, {});
    hook(home, event("UserPromptSubmit", "a", R"(,"prompt":"Fix the total")"),
         {"--source", "codex", "--ppid", "+" + std::to_string(sleeper.value().pid())},
         {{"TERM_PROGRAM", "iTerm.app"}, {"TMUX", ""}});
    hook(home, event("agentStop", "b"), {"--source", "codex"},
         {{"GROK_HOOK_EVENT", "x"}, {"TERM_SESSION_ID", ""}});
    const SessionRecord codex = stored(home, "codex-a.json").value();
    EXPECT_EQ(codex.title, "Fix the total");
    EXPECT_EQ(codex.pid, sleeper->pid());
    kill(sleeper->pid(), SIGKILL);
    sleeper->wait();
    EXPECT_EQ(codex.host.termProgram, "iTerm.app");
    EXPECT_TRUE(codex.host.tmux);
    const SessionRecord grok = stored(home, "grok-b.json").value();
    EXPECT_EQ(grok.lastEvent, "Stop");
    EXPECT_EQ(grok.pid, getpid()) << "the test process is the agent above the hook";
    EXPECT_EQ(grok.host.termSessionID, ""); // set, if empty

    // Untracked events leave no record, not even a lock file, and the record
    // they would touch as it was.
    hook(home, event("SubagentStop", "new"));
    const std::string before = Files::read(home.sessions() / "grok-b.json").value();
    hook(home, event("Notification", "b", R"(,"notification_type":"idle_prompt")"), {},
         {{"GROK_HOOK_EVENT", "x"}});
    EXPECT_EQ(Files::read(home.sessions() / "grok-b.json"), before);
    EXPECT_FALSE(std::filesystem::exists(home.sessions() / "claude-new.json"));
    EXPECT_FALSE(std::filesystem::exists(home.sessions() / "claude-new.json.lock"));
    // Cursor runs Claude's hooks: nothing is read or written for it.
    TempHome cursor;
    hook(cursor, event("SessionStart", "z"), {}, {{"CURSOR_PROJECT_DIR", "/r"}});
    EXPECT_FALSE(std::filesystem::exists(cursor.sessions()));
}

TEST(HookMode, ParallelRunsOnOneSessionLeaveOneValidFile) {
    TempHome home;
    std::vector<pid_t> children;
    for (int i = 0; i < 32; ++i) {
        if (pid_t child = fork(); child != 0) {
            children.push_back(child);
            continue;
        }
        const std::string input =
            event("PreToolUse", "busy", R"(,"tool_name":"make)" + std::to_string(i) + "\"");
        _exit(silentSuccess(runHook(home, {"--source", "codex"}, {}, input)) ? 0 : 1);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(home.sessions()), {}), 2);
    EXPECT_TRUE(stored(home, "codex-busy.json").value().tool.value().starts_with("make"));
}

TEST(HookMode, HostileInputEndsQuietly) {
    TempHome home;
    // clang-format off
    const std::string inputs[] = {
        "", "null", "{", std::string(1'000'000, '['), std::string(1'000'000, '{'),
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"\xff\xfe\"}",
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"ok\",\"cwd\":\"\\ud800\"}",
        R"({"hook_event_name":["Stop"],"session_id":"x"})", event("Stop", std::string(100'000, 'x')),
        event("PreToolUse", "big", R"(,"tool_input":{"command":")" + std::string(256 * 1024, 'A') + "\"}"),
        event("PreToolUse", "../../etc/passwd"),
        event("PreToolUse", "deep", R"(,"tool_input":)" + std::string(400, '[') + std::string(400, ']')),
        // 50 MB of one string: read whole, then handled or cut off by the guard.
        event("Stop", "huge", R"(,"padding":")" + std::string(50 * 1024 * 1024, 'p') + "\""),
    };
    // clang-format on
    for (const std::string& input : inputs) {
        hook(home, input);
    }
    for (const auto& file : std::filesystem::directory_iterator(home.sessions())) {
        const std::string name = file.path().filename();
        EXPECT_TRUE(name.ends_with(".lock") || stored(home, name)) << name;
    }
    EXPECT_TRUE(stored(home, "claude-big.json") && stored(home, "claude-______etc_passwd.json"));
}

TEST(HookMode, GuardEndsAHookWhoseStdinNeverCloses) {
    TempHome home;
    Finished result = runHook(home, {}, {}, R"({"hook_event_name":"SessionStart",)", 60);
    EXPECT_TRUE(silentSuccess(result));
    EXPECT_GE(result.seconds, 1.5);
    EXPECT_FALSE(std::filesystem::exists(home.sessions()));
}

Finished statusLine(const TempHome& home, std::string command, std::string input, double hold = 0) {
    Files::atomicReplace(home.path() / "statusline-original.json", command, 0600);
    return runHook(home, {"--source", "codex", "--statusline"}, {}, std::move(input), hold);
}

TEST(StatusLineMode, RecordsUsageAndForwardsToTheUsersCommand) {
    TempHome home;
    const std::string input = R"({"session_id":"abc","rate_limits":{"five_hour":)"
                              R"({"used_percentage":41.5,"resets_at":1763812800}}})";
    Finished result = statusLine(home,
                                 R"({"type": "command", "command": "cat > \"$PELMORA_HOME/seen\";)"
                                 R"( printf 'Opus'; echo oops >&2; exit 3"})",
                                 input);
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.out, "Opus");
    EXPECT_EQ(result.err, "oops\n") << "the user's command keeps our stderr";
    EXPECT_EQ(Files::read(home.path() / "seen"), input);
    const JSONValue usage =
        OrderedJSON::parse(Files::read(home.path() / "usage/claude.json").value());
    EXPECT_EQ(OrderedJSON::serializeCompact(*usage.find("rate_limits")),
              R"({"five_hour":{"resets_at":1763812800,"used_percentage":41.5}})");

    // A command that ends without reading its input, one ended by a signal,
    // and one that waits for its input, which may take longer than the guard.
    EXPECT_EQ(statusLine(home, R"({"command":"exit 0"})", std::string(1 << 20, 'x')).exitStatus, 0);
    EXPECT_EQ(statusLine(home, R"({"command":"kill -TERM $$"})", input).exitStatus, SIGTERM);
    result = statusLine(home, R"({"command":"wc -c"})", input, 3);
    EXPECT_GE(result.seconds, 2.5);
    EXPECT_EQ(result.out, std::to_string(input.size()) + "\n");
    // Nothing to forward: quietly done.
    EXPECT_TRUE(silentSuccess(statusLine(home, R"({"type":"static","text":"hi"})", "not json")));
}

const std::string permission =
    R"({"session_id":"s-1","transcript_path":"/tmp/t.jsonl","cwd":"/Users/ann/shop",)"
    R"("permission_mode":"default","hook_event_name":"PermissionRequest","tool_name":"Bash",)"
    R"("tool_input":{"command":"rm -rf /Users/ann/shop/build"},"permission_suggestions":[{"type":)"
    R"("addRules","rules":[{"toolName":"Bash","ruleContent":"rm -rf build"}]}]})";

std::string questionEvent(std::string_view name, std::string_view tool) {
    return R"({"hook_event_name":")" + std::string(name) +
           R"(","session_id":"q","cwd":"/w","tool_name":")" + std::string(tool) +
           R"(","tool_input":{"questions":[{"question":"Which database?","header":"DB",)"
           R"("multiSelect":false,"options":[{"label":"Postgres","description":"In the stack"},)"
           R"({"label":"SQLite"}]}]}})";
}

std::string standard(std::string_view decision) {
    return R"({"hookSpecificOutput":{"decision":)" + std::string(decision) +
           R"(,"hookEventName":"PermissionRequest"}})";
}

struct Agent {
    std::string event;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
};

TEST(ApprovalExchange, EveryAgentGetsItsOwnReplyByteForByte) {
    const std::map<std::string, Agent> agents{
        {"claude", {permission, {}, {}}},
        {"codex", {permission, {"--source", "codex"}, {}}},
        // As Qwen Code sends it: its own tool names, no suggestions.
        {"qwen",
         {R"({"session_id":"q","cwd":"/w","hook_event_name":"PermissionRequest",)"
          R"("permission_mode":"default","prompt_id":"q########0","tool_name":)"
          R"("run_shell_command","tool_input":{"command":"make","description":"Build"}})",
          {},
          {{"QWEN_PROJECT_DIR", "/w"}}}},
        {"copilot",
         {R"({"hookEventName":"permissionRequest","sessionId":"c-1","workspaceRoot":"/w"})",
          {"--source", "copilot"},
          {}}},
        {"devin", {permission, {}, {{"DEVIN_PROJECT_DIR", "/w"}}}},
        {"grok",
         {questionEvent("PreToolUse", "ask_user_question"), {}, {{"GROK_HOOK_EVENT", "x"}}}},
        {"claude question", {questionEvent("PermissionRequest", "AskUserQuestion"), {}, {}}},
        // Not asked: an agent that cannot take an answer.
        {"grok permission", {permission, {}, {{"GROK_HOOK_EVENT", "x"}}}},
    };
    const std::string answered = R"({"decision":"allow","answers":["SQLite"]})";
    const std::string refused = R"({"behavior":"deny","message":"Denied from the Pelmora notch"})";
    struct Row {
        const char* agent;
        std::string response;
        std::string expected; // empty: nothing printed
        std::size_t requests = 1;
    };
    // clang-format off
    const Row rows[] = {
        {"copilot", R"({"decision":"allowAlways"})", R"({"behavior":"allow"})"},
        {"copilot", R"({"decision":"deny"})", R"({"behavior":"deny","interrupt":false,"message":"Denied from the Pelmora notch"})"},
        {"copilot", R"({"decision":"ask"})", ""},
        {"devin", R"({"decision":"allow"})", R"({"decision":"approve"})"},
        {"devin", R"({"decision":"deny","message":"not now"})", R"({"decision":"block","reason":"not now"})"},
        {"devin", R"({"decision":"ask"})", ""},
        {"grok", answered, R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"deny","permissionDecisionReason":)"
                           R"("The user has already answered in the Pelmora notch, so do not ask again. Continue with their answer.\n)"
                           R"(Question: Which database?\nThe user's answer: SQLite"}})"},
        {"grok", R"({"decision":"deny","answers":["SQLite"]})", ""},
        {"claude", R"({"decision":"allow"})", standard(R"({"behavior":"allow"})")},
        {"claude question", answered, standard(R"({"behavior":"allow","updatedInput":{"answers":{"Which database?":"SQLite"},)"
                                               R"("questions":[{"header":"DB","multiSelect":false,"options":[{"description":"In the stack",)"
                                               R"("label":"Postgres"},{"label":"SQLite"}],"question":"Which database?"}]}})")},
        {"claude question", R"({"decision":"allow","answers":["SQLite","Postgres"]})", ""},
        {"claude", R"({"decision":"allowAlways"})", standard(R"({"behavior":"allow","updatedPermissions":[{"rules":)"
                                                             R"([{"ruleContent":"rm -rf build","toolName":"Bash"}],"type":"addRules"}]})")},
        {"qwen", R"({"decision":"allowAlways"})", standard(R"({"behavior":"allow"})")},
        {"codex", R"({"decision":"deny"})", standard(refused)},
        {"qwen", R"({"decision":"deny","message":""})", standard(R"({"behavior":"deny","message":""})")},
        {"claude", R"({"decision":"ask"})", ""},
        {"grok permission", "", "", 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.agent) + ": " + row.response);
        const Agent& agent = agents.at(row.agent);
        TempHome home;
        StandInApp app(home.socket(),
                       [&](int fd, const std::string&) { sendAll(fd, row.response + "\n"); });
        Finished result = runHook(home, agent.arguments, agent.environment, agent.event);
        EXPECT_EQ(app.requests().size(), row.requests);
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.out + result.err, row.expected.empty() ? "" : row.expected + "\n");
        // The session shows the wait whatever the app does.
        std::vector<SessionStore::LoadResult> sessions = SessionStore::loadAll(home.sessions());
        EXPECT_TRUE(sessions.size() == 1 && sessions[0].record &&
                    sessions[0].record->state == SessionState::awaiting);
    }
}

TEST(ApprovalExchange, TheWaitOutlastsTheGuardAndAnAbsentAppLeavesTheAgentToAsk) {
    TempHome home;
    StandInApp slowApp(home.socket(), [](int fd, const std::string&) {
        std::this_thread::sleep_for(std::chrono::seconds(3));
        sendAll(fd, "{\"decision\":\"allow\"}\n");
    });
    Finished slow = runHook(home, {}, {}, permission);
    EXPECT_EQ(slow.out, standard(R"({"behavior":"allow"})") + "\n");
    EXPECT_GE(slow.seconds, 2.5);
    TempHome nobodyHome;
    Finished nobody = runHook(nobodyHome, {}, {}, permission);
    EXPECT_EQ(nobody.exitStatus, 0);
    EXPECT_EQ(nobody.out + nobody.err, "");
}

} // namespace
} // namespace pelmora
