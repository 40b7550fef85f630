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

// Every hook-mode run, whatever happens, ends like this.
void expectSilentSuccess(const RunResult& result) {
    EXPECT_FALSE(result.killed);
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

RunResult hook(const TempHome& home, std::string input, std::vector<std::string> arguments = {},
               std::map<std::string, std::string> environment = {}) {
    RunOptions options;
    options.input = std::move(input);
    options.arguments = std::move(arguments);
    options.environment = std::move(environment);
    RunResult result = runHook(home, options);
    expectSilentSuccess(result);
    return result;
}

std::optional<SessionRecord> stored(const TempHome& home, std::string_view file) {
    SessionStore::LoadResult result = SessionStore::load(home.sessions() / file);
    return result.record;
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

TEST(HookMode, ClaudeTurnFromStartToStop) {
    TempHome home;
    std::map<std::string, std::string> terminal{{"TERM_PROGRAM", "iTerm.app"},
                                                {"ITERM_SESSION_ID", "w0t0p0:ABC"},
                                                {"TMUX", ""},
                                                {"__CFBundleIdentifier", "com.googlecode.iterm2"}};
    auto run = [&](const std::string& json) { hook(home, json, {"--source", "claude"}, terminal); };

    run(R"({"session_id":"9f1c","transcript_path":"/tmp/t.jsonl","cwd":"/Users/ann/shop",
            "hook_event_name":"SessionStart","source":"startup"})");
    std::optional<SessionRecord> record = stored(home, "claude-9f1c.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::idle);
    EXPECT_EQ(record->cwd, "/Users/ann/shop");
    EXPECT_EQ(record->pid, getpid()) << "the test process is the agent above the hook";
    EXPECT_EQ(record->host.termProgram, "iTerm.app");
    EXPECT_EQ(record->host.itermSessionID, "w0t0p0:ABC");
    EXPECT_TRUE(record->host.tmux);
    EXPECT_EQ(record->host.bundleID, "com.googlecode.iterm2");
    EXPECT_EQ(record->host.termSessionID, std::nullopt);

    run(R"({"session_id":"9f1c","cwd":"/Users/ann/shop","hook_event_name":"UserPromptSubmit",
            "prompt":"## Fix the checkout total\nit rounds wrong"})");
    run(R"({"session_id":"9f1c","cwd":"/Users/ann/shop","hook_event_name":"PreToolUse",
            "tool_name":"Bash","tool_input":{"command":"STRIPE_KEY=sk_live_abcdef123456 npm test -- /Users/ann/shop/src/cart.test.ts","description":"Run tests"}})");
    record = stored(home, "claude-9f1c.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::working);
    EXPECT_EQ(record->title, "Fix the checkout total");
    EXPECT_EQ(record->tool, "Bash");
    EXPECT_EQ(record->summary, "STRIPE_KEY=*** npm test -- src/cart.test.ts");
    ASSERT_TRUE(record->turnStartedAt);

    run(R"({"session_id":"9f1c","cwd":"/Users/ann/shop","hook_event_name":"PostToolUse",
            "tool_name":"Bash","tool_input":{"command":"npm test"},"tool_response":{"stdout":"ok"}})");
    run(R"({"session_id":"9f1c","cwd":"/Users/ann/shop","hook_event_name":"Stop",
            "stop_hook_active":false})");
    record = stored(home, "claude-9f1c.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::done);
    EXPECT_EQ(record->tool, std::nullopt);
    EXPECT_EQ(record->lastEvent, "Stop");
    EXPECT_EQ(record->title, "Fix the checkout total");

    std::filesystem::path file = home.sessions() / "claude-9f1c.json";
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(sessionFiles(home),
              (std::vector<std::string>{"claude-9f1c.json", "claude-9f1c.json.lock"}));
}

TEST(HookMode, CamelCaseDialectWithToolArgsAsText) {
    TempHome home;
    hook(
        home,
        R"({"hookEventName":"sessionStart","sessionId":"cp-77","workspaceRoot":"/work/api","timestamp":1763800000000})",
        {"--source", "copilot"});
    hook(
        home,
        R"({"hookEventName":"preToolUse","sessionId":"cp-77","workspaceRoot":"/work/api","toolName":"bash",
             "toolArgs":"{\"command\":\"curl -H 'Authorization: Bearer abc.def.ghi' https://api.example.com/v1/items\"}"})",
        {"--source", "copilot"});
    std::optional<SessionRecord> record = stored(home, "copilot-cp-77.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->source, Source::copilot);
    EXPECT_EQ(record->cwd, "/work/api");
    EXPECT_EQ(record->state, SessionState::working);
    EXPECT_EQ(record->lastEvent, "PreToolUse");
    EXPECT_EQ(record->tool, "bash");
    EXPECT_EQ(record->summary,
              "curl -H 'Authorization: Bearer ***' https://api.example.com/v1/items");

    hook(home, R"({"hookEventName":"agentStop","sessionId":"cp-77","workspaceRoot":"/work/api"})",
         {"--source", "copilot"});
    record = stored(home, "copilot-cp-77.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::done);
    EXPECT_EQ(record->lastEvent, "Stop");
}

TEST(HookMode, ArgumentsAndEnvironmentChooseTheSource) {
    TempHome home;
    auto start = [](const std::string& id) {
        return R"({"hook_event_name":"SessionStart","session_id":")" + id + R"(","cwd":"/r"})";
    };
    hook(home, start("a"), {"--source", "codex", "--source", "nonsense", "--source"});
    hook(home, start("b"), {"--source", "codex", "--source", "qwen"});
    hook(home, start("c"), {"--source", "codex"}, {{"GROK_HOOK_EVENT", "PreToolUse"}});
    hook(home, start("d"), {}, {{"COMMANDCODE_HOOK_EVENT", "x"}, {"DEVIN_PROJECT_DIR", "/r"}});
    hook(home, start("e"), {"--source", "codex"}, {{"DEVIN_PROJECT_DIR", "/r"}});
    hook(home, start("f"), {}, {{"DEVIN_PROJECT_DIR", "/r"}, {"QWEN_PROJECT_DIR", "/r"}});
    hook(home, start("g"), {}, {{"QWEN_PROJECT_DIR", "/r"}, {"CURSOR_PROJECT_DIR", "/r"}});
    hook(home, start("h"), {"--source", "kimi"}, {{"CURSOR_PROJECT_DIR", "/r"}});
    hook(home, start("i"), {"--bogus", "--source", "pi", "extra"});
    EXPECT_EQ(sessionFiles(home),
              (std::vector<std::string>{
                  "codex-a.json", "codex-a.json.lock", "codex-e.json", "codex-e.json.lock",
                  "commandcode-d.json", "commandcode-d.json.lock", "devin-f.json",
                  "devin-f.json.lock", "grok-c.json", "grok-c.json.lock", "kimi-h.json",
                  "kimi-h.json.lock", "pi-i.json", "pi-i.json.lock", "qwen-b.json",
                  "qwen-b.json.lock", "qwen-g.json", "qwen-g.json.lock"}));

    // Cursor runs Claude's hooks: nothing is read or written for it.
    TempHome cursorHome;
    hook(cursorHome, start("z"), {}, {{"CURSOR_PROJECT_DIR", "/r"}});
    EXPECT_FALSE(std::filesystem::exists(cursorHome.sessions()));
}

TEST(HookMode, PpidChoosesWhereTheAgentWalkStarts) {
    TempHome home;
    pid_t sleeper = fork();
    if (sleeper == 0) {
        execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
        _exit(127);
    }
    auto start = [&](const std::string& id, std::vector<std::string> arguments) {
        hook(home, R"({"hook_event_name":"SessionStart","session_id":")" + id + R"(","cwd":"/r"})",
             std::move(arguments));
        return stored(home, "claude-" + id + ".json");
    };
    std::optional<SessionRecord> viaPlus = start("plus", {"--ppid", "+" + std::to_string(sleeper)});
    std::optional<SessionRecord> viaOne = start("one", {"--ppid", "1"});
    std::optional<SessionRecord> viaZero = start("zero", {"--ppid", "0"});
    std::optional<SessionRecord> viaJunk = start("junk", {"--ppid", "12abc"});
    std::optional<SessionRecord> viaHuge = start("huge", {"--ppid", "99999999999"});
    kill(sleeper, SIGKILL);
    waitpid(sleeper, nullptr, 0);

    ASSERT_TRUE(viaPlus && viaOne && viaZero && viaJunk && viaHuge);
    EXPECT_EQ(viaPlus->pid, sleeper);
    EXPECT_TRUE(viaPlus->pidStartTime);
    for (const auto& record : {viaOne, viaZero, viaJunk, viaHuge}) {
        EXPECT_EQ(record->pid, getpid());
    }
}

TEST(HookMode, UntrackedEventsWriteNothing) {
    TempHome home;
    hook(home, R"({"hook_event_name":"SubagentStop","session_id":"s1","cwd":"/r"})");
    EXPECT_TRUE(sessionFiles(home).empty() ||
                sessionFiles(home) == std::vector<std::string>{"claude-s1.json.lock"});

    hook(
        home,
        R"({"hook_event_name":"UserPromptSubmit","session_id":"s2","cwd":"/r","prompt":"refactor the parser"})");
    std::optional<std::string> before = Files::read(home.sessions() / "claude-s2.json");
    ASSERT_TRUE(before);
    hook(home, R"({"hook_event_name":"Notification","session_id":"s2","cwd":"/elsewhere",
                   "notification_type":"idle_prompt","message":"Claude is waiting for your input"})");
    EXPECT_EQ(Files::read(home.sessions() / "claude-s2.json"), before);

    hook(home, R"({"hook_event_name":"Notification","session_id":"s2","cwd":"/r",
                   "notification_type":"permission_prompt","message":"Claude needs your permission to use Bash"})");
    std::optional<SessionRecord> record = stored(home, "claude-s2.json");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->state, SessionState::awaiting);
    EXPECT_EQ(record->summary, "Claude needs your permission to use Bash");
}

TEST(HookMode, ParallelRunsOnOneSessionLeaveOneValidFile) {
    TempHome home;
    constexpr int runs = 32;
    std::vector<pid_t> children;
    for (int i = 0; i < runs; ++i) {
        pid_t child = fork();
        if (child == 0) {
            RunOptions options;
            options.arguments = {"--source", "codex"};
            options.input = R"({"hook_event_name":"PreToolUse","session_id":"busy","cwd":"/r",)"
                            R"("tool_name":"exec_command","tool_input":{"command":"make -j)" +
                            std::to_string(i) + R"("}})";
            RunResult result = runHook(home, options);
            _exit(result.exitStatus == 0 && result.out.empty() && result.err.empty() ? 0 : 1);
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
    EXPECT_EQ(record->state, SessionState::working);
    EXPECT_EQ(record->tool, "exec_command");
}

TEST(HookMode, HostileInputEndsQuietly) {
    TempHome home;
    std::mt19937 random(20261122);
    std::vector<std::string> inputs{
        "",
        "null",
        "[]",
        "{",
        std::string(1'000'000, '['),
        std::string(1'000'000, '{'),
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"\xff\xfe\"}",
        "{\"hook_event_name\":\"Stop\",\"session_id\":\"ok\",\"cwd\":\"\\ud800\"}",
        R"({"hook_event_name":["Stop"],"session_id":"x"})",
        R"({"hook_event_name":"Stop","session_id":17})",
        R"({"hook_event_name":"Stop","session_id":")" + std::string(100'000, 'x') + "\"}",
        R"({"hook_event_name":"PreToolUse","session_id":"big","cwd":"/r","tool_name":"Bash","tool_input":{"command":")" +
            std::string(256 * 1024, 'A') + "\"}}",
        R"({"hook_event_name":"PreToolUse","session_id":"deep","tool_input":)" +
            std::string(400, '[') + std::string(400, ']') + "}",
        R"({"hook_event_name":"PreToolUse","session_id":"../../etc/passwd","cwd":"/r"})",
    };
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
    // 50 MB of one string on stdin: read whole, then handled or cut off by the guard.
    hook(home, R"({"hook_event_name":"Stop","session_id":"huge","cwd":"/r","padding":")" +
                   std::string(50 * 1024 * 1024, 'p') + "\"}");

    for (const std::string& name : sessionFiles(home)) {
        if (name.ends_with(".json")) {
            EXPECT_TRUE(stored(home, name)) << name;
        }
        EXPECT_FALSE(name.ends_with(".tmp")) << name;
    }
    EXPECT_TRUE(stored(home, "claude-big.json"));
    EXPECT_TRUE(stored(home, "claude-huge.json"));
    EXPECT_TRUE(stored(home, "claude-______etc_passwd.json"));
}

TEST(HookMode, GuardEndsAHookWhoseStdinNeverCloses) {
    TempHome home;
    RunOptions options;
    options.input = R"({"hook_event_name":"SessionStart",)";
    options.holdStdinOpen = 60;
    options.killAfter = 15;
    RunResult result = runHook(home, options);
    expectSilentSuccess(result);
    EXPECT_GE(result.seconds, 1.5);
    EXPECT_FALSE(std::filesystem::exists(home.sessions()));
}

} // namespace
} // namespace pelmora
