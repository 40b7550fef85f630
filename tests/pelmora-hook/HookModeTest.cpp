#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "HookRun.h"
#include "session/SessionStore.h"
#include "support/Files.h"

namespace pelmora {
namespace {

using testing::runHook;
using testing::RunOptions;
using testing::RunResult;
using testing::TempHome;

bool silentSuccess(const RunResult& result) {
    return !result.killed && result.signal == 0 && result.exitStatus == 0 && result.out.empty() &&
           result.err.empty();
}

RunResult hook(const TempHome& home, std::string input, std::vector<std::string> arguments = {},
               std::map<std::string, std::string> environment = {}) {
    RunResult result =
        runHook(home, {std::move(arguments), std::move(environment), std::move(input)});
    EXPECT_TRUE(silentSuccess(result)) << result.exitStatus << " " << result.out << result.err;
    return result;
}

std::optional<SessionRecord> stored(const TempHome& home, std::string_view file) {
    return SessionStore::load(home.sessions() / file).record;
}

std::vector<std::string> sessionFiles(const TempHome& home) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(home.sessions(), error)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string event(std::string_view name, std::string_view id, std::string_view more = "") {
    return R"({"hook_event_name":")" + std::string(name) + R"(","session_id":")" + std::string(id) +
           R"(","cwd":"/Users/ann/shop")" + std::string(more) + "}";
}

TEST(HookMode, ClaudeTurnFromStartToStop) {
    TempHome home;
    const std::map<std::string, std::string> terminal{{"TERM_PROGRAM", "iTerm.app"},
                                                      {"TERM_SESSION_ID", ""},
                                                      {"TMUX", ""},
                                                      {"__CFBundleIdentifier", "com.example.t"}};
    auto run = [&](const std::string& json) { hook(home, json, {"--source", "claude"}, terminal); };
    run(event("SessionStart", "9f1c", R"(,"source":"startup")"));
    run(event("UserPromptSubmit", "9f1c", R"(,"prompt":"## Fix the checkout total\nit rounds")"));
    run(event("PreToolUse", "9f1c",
              R"(,"tool_name":"Bash","tool_input":{"command":"STRIPE_KEY=sk_live_abcdef123456 )"
              R"(npm test -- /Users/ann/shop/src/cart.test.ts"})"));
    std::optional<SessionRecord> record = stored(home, "claude-9f1c.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::working);
    EXPECT_EQ(record->title, "Fix the checkout total");
    EXPECT_EQ(record->summary, "STRIPE_KEY=*** npm test -- src/cart.test.ts");
    EXPECT_EQ(record->pid, getpid()) << "the test process is the agent above the hook";
    EXPECT_EQ(record->host,
              (HostInfo{"iTerm.app", "", std::nullopt, true, std::nullopt, "com.example.t"}));

    run(event("Stop", "9f1c"));
    record = stored(home, "claude-9f1c.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::done);
    EXPECT_EQ(record->lastEvent, "Stop");
    const std::filesystem::path file = home.sessions() / "claude-9f1c.json";
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(sessionFiles(home),
              (std::vector<std::string>{"claude-9f1c.json", "claude-9f1c.json.lock"}));
}

TEST(HookMode, ArgumentsAndAgentVariablesReachTheSessionFile) {
    TempHome home;
    pid_t sleeper = fork();
    if (sleeper == 0) {
        execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
        _exit(127);
    }
    hook(home, event("SessionStart", "a"),
         {"--source", "codex", "--ppid", "+" + std::to_string(sleeper)});
    hook(home, event("agentStop", "b"), {"--source", "codex"}, {{"GROK_HOOK_EVENT", "x"}});
    kill(sleeper, SIGKILL);
    waitpid(sleeper, nullptr, 0);
    EXPECT_EQ(stored(home, "codex-a.json").value().pid, sleeper);
    EXPECT_EQ(stored(home, "grok-b.json").value().lastEvent, "Stop");

    // Cursor runs Claude's hooks: nothing is read or written for it.
    TempHome cursorHome;
    hook(cursorHome, event("SessionStart", "z"), {}, {{"CURSOR_PROJECT_DIR", "/r"}});
    EXPECT_FALSE(std::filesystem::exists(cursorHome.sessions()));
}

TEST(HookMode, UntrackedEventsWriteNothing) {
    TempHome home;
    hook(home, event("SubagentStop", "s1"));
    EXPECT_EQ(stored(home, "claude-s1.json"), std::nullopt);
    hook(home, event("UserPromptSubmit", "s2", R"(,"prompt":"refactor the parser")"));
    std::optional<std::string> before = Files::read(home.sessions() / "claude-s2.json");
    ASSERT_TRUE(before);
    hook(home, R"({"hook_event_name":"Notification","session_id":"s2","cwd":"/elsewhere",)"
               R"("notification_type":"idle_prompt","message":"Claude is waiting"})");
    EXPECT_EQ(Files::read(home.sessions() / "claude-s2.json"), before);
}

TEST(HookMode, ParallelRunsOnOneSessionLeaveOneValidFile) {
    TempHome home;
    std::vector<pid_t> children;
    for (int i = 0; i < 32; ++i) {
        pid_t child = fork();
        if (child == 0) {
            std::string input =
                event("PreToolUse", "busy",
                      R"(,"tool_name":"exec_command","tool_input":{"command":"make -j)" +
                          std::to_string(i) + R"("})");
            _exit(silentSuccess(runHook(home, {{"--source", "codex"}, {}, input})) ? 0 : 1);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(sessionFiles(home),
              (std::vector<std::string>{"codex-busy.json", "codex-busy.json.lock"}));
    std::optional<SessionRecord> record = stored(home, "codex-busy.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->tool, "exec_command");
}

TEST(HookMode, HostileInputEndsQuietly) {
    TempHome home;
    std::vector<std::string> inputs{
        "",
        "null",
        "{",
        std::string(1'000'000, '['),
        std::string(1'000'000, '{'),
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"\xff\xfe\"}",
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"ok\",\"cwd\":\"\\ud800\"}",
        R"({"hook_event_name":["Stop"],"session_id":"x"})",
        event("Stop", std::string(100'000, 'x')),
        event("PreToolUse", "big",
              R"(,"tool_name":"Bash","tool_input":{"command":")" + std::string(256 * 1024, 'A') +
                  "\"}"),
        event("PreToolUse", "deep",
              R"(,"tool_input":)" + std::string(400, '[') + std::string(400, ']')),
        event("PreToolUse", "../../etc/passwd"),
        // 50 MB of one string: read whole, then handled or cut off by the guard.
        event("Stop", "huge", R"(,"padding":")" + std::string(50 * 1024 * 1024, 'p') + "\""),
    };
    std::mt19937 random(20261122);
    for (int i = 0; i < 40; ++i) {
        std::string bytes(static_cast<std::size_t>(random() % 4096), '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random() % 256);
        }
        inputs.push_back(bytes);
    }
    for (const std::string& input : inputs) {
        hook(home, input);
    }
    for (const std::string& name : sessionFiles(home)) {
        if (name.ends_with(".json")) {
            EXPECT_TRUE(stored(home, name)) << name;
        }
        EXPECT_FALSE(name.ends_with(".tmp")) << name;
    }
    for (const char* name : {"claude-big.json", "claude-______etc_passwd.json"}) {
        EXPECT_TRUE(stored(home, name)) << name;
    }
}

TEST(HookMode, GuardEndsAHookWhoseStdinNeverCloses) {
    TempHome home;
    RunResult result = runHook(home, {{}, {}, R"({"hook_event_name":"SessionStart",)", 60, 15});
    EXPECT_TRUE(silentSuccess(result));
    EXPECT_GE(result.seconds, 1.5);
    EXPECT_FALSE(std::filesystem::exists(home.sessions()));
}

} // namespace
} // namespace pelmora
