#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "HookRun.h"
#include "session/SessionStore.h"

namespace pelmora {
namespace {

using testing::runHook;
using testing::RunResult;
using testing::sendAll;
using testing::StandInApp;
using testing::TempHome;

const std::string claudePermission =
    R"({"session_id":"s-1","transcript_path":"/tmp/t.jsonl","cwd":"/Users/ann/shop",)"
    R"("permission_mode":"default","hook_event_name":"PermissionRequest","tool_name":"Bash",)"
    R"("tool_input":{"command":"rm -rf /Users/ann/shop/build","description":"Clean the build"},)"
    R"("permission_suggestions":[{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"rm -rf build"}],)"
    R"("behavior":"allow","destination":"localSettings"}]})";

std::string questionEvent(std::string_view name, std::string_view tool, int count = 1) {
    std::string questions;
    for (int i = 0; i < count; ++i) {
        questions +=
            std::string(i > 0 ? "," : "") +
            R"({"question":"Which database should the service use?","header":"Database",)"
            R"("multiSelect":false,"options":[{"label":"Postgres","description":"In the stack"},)"
            R"({"label":"SQLite","description":"One file"}]})";
    }
    return R"({"hook_event_name":")" + std::string(name) +
           R"(","session_id":"q","cwd":"/w","tool_name":")" + std::string(tool) +
           R"(","tool_input":{"questions":[)" + questions + "]}}";
}

struct Agent {
    std::string event;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
};

// One exchange with an app that answers `response`: what the hook printed,
// and how many requests reached the app.
std::pair<RunResult, std::size_t> exchange(const Agent& agent, const std::string& response) {
    TempHome home;
    StandInApp app(home.socket(),
                   [response](int fd, const std::string&) { sendAll(fd, response + "\n"); });
    RunResult result = runHook(home, {agent.arguments, agent.environment, agent.event});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "");
    // The session shows the wait whatever the app does.
    std::vector<SessionStore::LoadResult> sessions = SessionStore::loadAll(home.sessions());
    EXPECT_TRUE(sessions.size() == 1 && sessions[0].record &&
                sessions[0].record->state == SessionState::awaiting);
    return {result, app.requests().size()};
}

TEST(ApprovalExchange, EveryAgentGetsItsOwnReplyByteForByte) {
    const std::map<std::string, Agent> agents{
        {"claude", {claudePermission, {}, {}}},
        {"codex", {claudePermission, {"--source", "codex"}, {}}},
        {"qwen", {claudePermission, {}, {{"QWEN_PROJECT_DIR", "/w"}}}},
        {"copilot",
         {R"({"hookEventName":"permissionRequest","sessionId":"c-1","workspaceRoot":"/w",)"
          R"("toolName":"bash","toolArgs":"{\"command\":\"npm publish\"}"})",
          {"--source", "copilot"},
          {}}},
        {"devin",
         {R"({"hook_event_name":"PermissionRequest","session_id":"d-1","cwd":"/w",)"
          R"("tool_name":"exec","tool_input":{"command":"terraform apply"}})",
          {},
          {{"DEVIN_PROJECT_DIR", "/w"}}}},
        {"grok",
         {questionEvent("PreToolUse", "ask_user_question"), {}, {{"GROK_HOOK_EVENT", "x"}}}},
        {"claude question", {questionEvent("PermissionRequest", "AskUserQuestion"), {}, {}}},
        // Agents that cannot be answered, or events they are not answered on.
        {"grok permission", {claudePermission, {}, {{"GROK_HOOK_EVENT", "x"}}}},
        {"commandcode permission", {claudePermission, {}, {{"COMMANDCODE_HOOK_EVENT", "x"}}}},
        {"claude question before the tool",
         {questionEvent("PreToolUse", "AskUserQuestion"), {}, {}}},
        {"five questions", {questionEvent("PermissionRequest", "AskUserQuestion", 5), {}, {}}},
    };
    const std::string allow = R"({"decision":"allow"})";
    const std::string standardAllow =
        R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})";
    const std::string standardDeny =
        R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"Denied from the Pelmora notch"},"hookEventName":"PermissionRequest"}})";
    const std::string answers = R"({"decision":"allow","answers":["SQLite"]})";
    struct Row {
        const char* agent;
        std::string response;
        std::string expected; // empty: nothing printed
        std::size_t requests = 1;
    };
    // clang-format off
    const Row rows[] = {
        {"copilot", allow, R"({"behavior":"allow"})"},
        {"copilot", R"({"decision":"allowAlways"})", R"({"behavior":"allow"})"},
        {"copilot", R"({"decision":"deny"})", R"({"behavior":"deny","interrupt":false,"message":"Denied from the Pelmora notch"})"},
        {"copilot", R"({"decision":"ask"})", ""},
        {"devin", allow, R"({"decision":"approve"})"},
        {"devin", R"({"decision":"allowAlways"})", R"({"decision":"approve"})"},
        {"devin", R"({"decision":"deny","message":"not now"})", R"({"decision":"block","reason":"not now"})"},
        {"devin", R"({"decision":"ask"})", ""},
        {"grok", answers, R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"deny","permissionDecisionReason":)"
                          R"("The user has already answered in the Pelmora notch, so do not ask again. Continue with their answer.\n)"
                          R"(Question: Which database should the service use?\nThe user's answer: SQLite"}})"},
        {"grok", R"({"decision":"deny","answers":["SQLite"]})", ""},
        {"grok", R"({"decision":"allow","answers":[]})", ""},
        {"grok", allow, ""},
        {"claude", allow, standardAllow},
        {"codex", R"({"decision":"allow","message":"x"})", standardAllow},
        {"claude", R"({"decision":"allowAlways"})", R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedPermissions":)"
                       R"([{"behavior":"allow","destination":"localSettings","rules":[{"ruleContent":"rm -rf build","toolName":"Bash"}],"type":"addRules"}]},)"
                       R"("hookEventName":"PermissionRequest"}})"},
        {"devin", R"({"decision":"allowAlways"})", R"({"decision":"approve"})"},
        {"claude", R"({"decision":"deny"})", standardDeny},
        {"qwen", R"({"decision":"deny","message":""})", R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":""},"hookEventName":"PermissionRequest"}})"},
        {"codex", R"({"decision":"deny","message":"not in /etc, please"})", R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"not in \/etc, please"},"hookEventName":"PermissionRequest"}})"},
        {"qwen", R"({"decision":"ask"})", ""},
        {"claude question", answers, R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":{"Which database should the service use?":"SQLite"},"questions":)"
                                     R"([{"header":"Database","multiSelect":false,"options":[{"description":"In the stack","label":"Postgres"},)"
                                     R"({"description":"One file","label":"SQLite"}],"question":"Which database should the service use?"}]}},"hookEventName":"PermissionRequest"}})"},
        {"claude question", R"({"decision":"allow","answers":["SQLite","extra"]})", ""},
        {"claude question", R"({"decision":"deny"})", standardDeny},
        {"claude", R"({"decision":"Allow"})", ""},
        {"claude", "not json", ""},
        {"grok permission", allow, "", 0},
        {"commandcode permission", allow, "", 0},
        {"claude question before the tool", allow, "", 0},
        {"five questions", allow, "", 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.agent) + ": " + row.response);
        auto [result, requests] = exchange(agents.at(row.agent), row.response);
        EXPECT_EQ(requests, row.requests);
        EXPECT_EQ(result.out, row.expected.empty() ? "" : row.expected + "\n");
    }
}

TEST(ApprovalExchange, TheWaitOutlastsTheGuardAndAnAbsentAppLeavesTheAgentToAsk) {
    TempHome home;
    StandInApp slowApp(home.socket(), [](int fd, const std::string&) {
        std::this_thread::sleep_for(std::chrono::seconds(3));
        sendAll(fd, "{\"decision\":\"deny\",\"message\":\"\"}\n");
    });
    RunResult slow = runHook(home, {{}, {}, claudePermission});
    EXPECT_EQ(slow.out, R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":""},)"
                        R"("hookEventName":"PermissionRequest"}})"
                        "\n");
    EXPECT_GE(slow.seconds, 2.5);

    TempHome nobodyHome;
    RunResult nobody = runHook(nobodyHome, {{}, {}, claudePermission});
    EXPECT_EQ(nobody.exitStatus, 0);
    EXPECT_EQ(nobody.out + nobody.err, "");
}

} // namespace
} // namespace pelmora
