#include <chrono>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "HookRun.h"
#include "json/OrderedJSON.h"
#include "session/SessionStore.h"

namespace pelmora {
namespace {

using testing::runHook;
using testing::RunOptions;
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

const std::string questionsValue =
    R"([{"question":"Which database should the service use?","header":"Database","multiSelect":false,)"
    R"("options":[{"label":"Postgres","description":"Relational, already in the stack"},)"
    R"({"label":"SQLite","description":"Single file"}]}])";
const std::string questionsSorted =
    R"([{"header":"Database","multiSelect":false,"options":[{"description":"Relational, already in the stack","label":"Postgres"},)"
    R"({"description":"Single file","label":"SQLite"}],"question":"Which database should the service use?"}])";

std::string claudeQuestion() {
    return R"({"session_id":"s-2","cwd":"/Users/ann/shop","hook_event_name":"PermissionRequest",)"
           R"("tool_name":"AskUserQuestion","tool_input":{"questions":)" +
           questionsValue + "}}";
}

std::string grokQuestion() {
    return R"({"hook_event_name":"PreToolUse","session_id":"g-1","cwd":"/srv/app",)"
           R"("tool_name":"ask_user_question","tool_input":{"questions":)" +
           questionsValue + "}}";
}

struct Exchange {
    RunResult result;
    std::vector<std::string> requests;
};

Exchange exchange(const std::string& event, std::vector<std::string> arguments,
                  StandInApp::Behaviour behaviour,
                  std::map<std::string, std::string> environment = {}) {
    TempHome home;
    StandInApp app(home.socket(), std::move(behaviour));
    RunOptions options;
    options.input = event;
    options.arguments = std::move(arguments);
    options.environment = std::move(environment);
    Exchange done{runHook(home, options), {}};
    done.requests = app.requests();
    EXPECT_EQ(done.result.exitStatus, 0);
    EXPECT_EQ(done.result.err, "");
    return done;
}

StandInApp::Behaviour answer(std::string reply) {
    return [reply](int fd, const std::string&) { sendAll(fd, reply + "\n"); };
}

TEST(ApprovalExchange, EveryAgentGetsItsOwnReplyByteForByte) {
    struct Row {
        std::string event;
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment;
        std::string response;
        std::string expected; // empty: nothing printed
    };
    const std::string copilotEvent =
        R"({"hookEventName":"permissionRequest","sessionId":"c-1","workspaceRoot":"/w",)"
        R"("toolName":"bash","toolArgs":"{\"command\":\"npm publish\"}"})";
    const std::string devinEvent =
        R"({"hook_event_name":"PermissionRequest","session_id":"d-1","cwd":"/w","tool_name":"exec",)"
        R"("tool_input":{"command":"terraform apply"}})";
    const std::string defaultAllow =
        R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})";
    const std::string defaultDeny =
        R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"Denied from the Pelmora notch"},"hookEventName":"PermissionRequest"}})";
    const std::vector<Row> rows{
        {copilotEvent,
         {"--source", "copilot"},
         {},
         R"({"decision":"allow"})",
         R"({"behavior":"allow"})"},
        {copilotEvent,
         {"--source", "copilot"},
         {},
         R"({"decision":"allowAlways"})",
         R"({"behavior":"allow"})"},
        {copilotEvent,
         {"--source", "copilot"},
         {},
         R"({"decision":"deny"})",
         R"({"behavior":"deny","interrupt":false,"message":"Denied from the Pelmora notch"})"},
        {copilotEvent, {"--source", "copilot"}, {}, R"({"decision":"ask"})", ""},
        {devinEvent,
         {},
         {{"DEVIN_PROJECT_DIR", "/w"}},
         R"({"decision":"allow"})",
         R"({"decision":"approve"})"},
        {devinEvent,
         {},
         {{"DEVIN_PROJECT_DIR", "/w"}},
         R"({"decision":"allowAlways"})",
         R"({"decision":"approve"})"},
        {devinEvent,
         {},
         {{"DEVIN_PROJECT_DIR", "/w"}},
         R"({"decision":"deny","message":"not now"})",
         R"({"decision":"block","reason":"not now"})"},
        {devinEvent, {}, {{"DEVIN_PROJECT_DIR", "/w"}}, R"({"decision":"ask"})", ""},
        {grokQuestion(),
         {},
         {{"GROK_HOOK_EVENT", "PreToolUse"}},
         R"({"decision":"allow","answers":["Postgres"]})",
         R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"deny","permissionDecisionReason":)"
         R"("The user has already answered in the Pelmora notch, so do not ask again. Continue with their answer.\n)"
         R"(Question: Which database should the service use?\nThe user's answer: Postgres"}})"},
        {grokQuestion(), {}, {{"GROK_HOOK_EVENT", "PreToolUse"}}, R"({"decision":"deny"})", ""},
        {grokQuestion(),
         {},
         {{"GROK_HOOK_EVENT", "PreToolUse"}},
         R"({"decision":"allow","answers":[]})",
         ""},
        {grokQuestion(), {}, {{"GROK_HOOK_EVENT", "PreToolUse"}}, R"({"decision":"allow"})", ""},
        {claudePermission, {}, {}, R"({"decision":"allow"})", defaultAllow},
        {claudePermission,
         {"--source", "codex"},
         {},
         R"({"decision":"allow","message":"x"})",
         defaultAllow},
        {claudePermission,
         {},
         {},
         R"({"decision":"allowAlways"})",
         R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedPermissions":)"
         R"([{"behavior":"allow","destination":"localSettings","rules":[{"ruleContent":"rm -rf build","toolName":"Bash"}],"type":"addRules"}]},)"
         R"("hookEventName":"PermissionRequest"}})"},
        {R"({"hook_event_name":"PermissionRequest","session_id":"q","cwd":"/w","tool_name":"Bash","permission_suggestions":[]})",
         {},
         {{"QWEN_PROJECT_DIR", "/w"}},
         R"({"decision":"allowAlways"})",
         defaultAllow},
        {claudePermission, {}, {}, R"({"decision":"deny"})", defaultDeny},
        {claudePermission,
         {"--source", "qwen"},
         {},
         R"({"decision":"deny","message":""})",
         R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":""},"hookEventName":"PermissionRequest"}})"},
        {claudePermission,
         {},
         {},
         R"({"decision":"deny","message":"not in /etc, please"})",
         R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"not in \/etc, please"},"hookEventName":"PermissionRequest"}})"},
        {claudePermission, {}, {}, R"({"decision":"ask"})", ""},
        {claudeQuestion(),
         {},
         {},
         R"({"decision":"allow","answers":["SQLite"]})",
         R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":)"
         R"({"Which database should the service use?":"SQLite"},"questions":)" +
             questionsSorted + R"(}},"hookEventName":"PermissionRequest"}})"},
        {claudeQuestion(), {}, {}, R"({"decision":"allow","answers":["SQLite","extra"]})", ""},
        {claudeQuestion(), {}, {}, R"({"decision":"deny"})", defaultDeny},
        {claudePermission, {}, {}, R"({"decision":"Allow"})", ""},
        {claudePermission, {}, {}, R"(not json)", ""},
    };
    for (const Row& row : rows) {
        Exchange done = exchange(row.event, row.arguments, answer(row.response), row.environment);
        SCOPED_TRACE(row.response + " for " + row.event.substr(0, 60));
        EXPECT_EQ(done.requests.size(), 1u);
        EXPECT_EQ(done.result.out, row.expected.empty() ? "" : row.expected + "\n");
    }
}

TEST(ApprovalExchange, RequestCarriesTheEventAndARedactedSummary) {
    Exchange done = exchange(claudePermission, {}, answer(R"({"decision":"allow"})"));
    ASSERT_EQ(done.requests.size(), 1u);
    JSONValue request = OrderedJSON::parse(done.requests[0]);
    ASSERT_TRUE(request.find("id") && request.find("id")->stringValue());
    EXPECT_TRUE(std::regex_match(
        *request.find("id")->stringValue(),
        std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
    request.set("id", std::nullopt);
    EXPECT_EQ(
        OrderedJSON::serializeCompact(request),
        R"({"cwd":"\/Users\/ann\/shop","sessionID":"s-1","source":"claude",)"
        R"("suggestions":"[{\"behavior\":\"allow\",\"destination\":\"localSettings\",\"rules\":[{\"ruleContent\":\"rm -rf build\",\"toolName\":\"Bash\"}],\"type\":\"addRules\"}]",)"
        R"("summary":"rm -rf build","tool":"Bash"})");

    Exchange question = exchange(claudeQuestion(), {}, answer(R"({"decision":"ask"})"));
    ASSERT_EQ(question.requests.size(), 1u);
    JSONValue asked = OrderedJSON::parse(question.requests[0]);
    ASSERT_TRUE(asked.find("questionsJSON"));
    EXPECT_EQ(*asked.find("questionsJSON")->stringValue(), questionsSorted);
    ASSERT_TRUE(asked.find("questions") && asked.find("questions")->arrayElements());
    EXPECT_EQ(asked.find("questions")->arrayElements()->size(), 1u);
}

TEST(ApprovalExchange, OnlyAgentsThatCanBeAnsweredAreAsked) {
    auto noExchange = [](const std::string& event, std::map<std::string, std::string> environment,
                         std::string sessionFile) {
        TempHome home;
        StandInApp app(home.socket(), answer(R"({"decision":"allow"})"));
        RunOptions options;
        options.input = event;
        options.environment = std::move(environment);
        RunResult result = runHook(home, options);
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(app.requests().empty()) << event;
        SessionStore::LoadResult stored = SessionStore::load(home.sessions() / sessionFile);
        ASSERT_TRUE(stored.record) << sessionFile;
        EXPECT_EQ(stored.record->state, SessionState::awaiting);
    };
    std::string permission =
        R"({"hook_event_name":"PermissionRequest","session_id":"p","cwd":"/w","tool_name":"Bash"})";
    noExchange(permission, {{"GROK_HOOK_EVENT", "PermissionRequest"}}, "grok-p.json");
    noExchange(permission, {{"COMMANDCODE_HOOK_EVENT", "PermissionRequest"}}, "commandcode-p.json");
    // Claude's question tool is answered on its permission request, not before the tool.
    std::string preToolQuestion = claudeQuestion();
    preToolQuestion.replace(preToolQuestion.find("PermissionRequest"), 17, "PreToolUse");
    noExchange(preToolQuestion, {}, "claude-s-2.json");
    // Questions that cannot be shown are left to the agent.
    std::string fiveQuestions =
        R"({"hook_event_name":"PermissionRequest","session_id":"f","cwd":"/w",)"
        R"("tool_name":"AskUserQuestion","tool_input":{"questions":[)";
    for (int i = 0; i < 5; ++i) {
        fiveQuestions += std::string(i > 0 ? "," : "") + R"({"question":"Q)" + std::to_string(i) +
                         R"(?","options":[{"label":"yes"}]})";
    }
    fiveQuestions += "]}}";
    noExchange(fiveQuestions, {}, "claude-f.json");
}

TEST(ApprovalExchange, MisbehavingAppsLeaveTheAgentToAsk) {
    const std::string ok = R"({"decision":"allow"})";
    const std::string allowed =
        R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})"
        "\n";
    using namespace std::chrono_literals;

    Exchange pieces = exchange(claudePermission, {}, [&](int fd, const std::string&) {
        sendAll(fd, R"({"deci)");
        std::this_thread::sleep_for(100ms);
        sendAll(fd, R"(sion":"al)");
        std::this_thread::sleep_for(100ms);
        sendAll(fd, "low\"}\n{\"decision\":\"deny\"}\n");
    });
    EXPECT_EQ(pieces.result.out, allowed);

    Exchange noNewline =
        exchange(claudePermission, {}, [&](int fd, const std::string&) { sendAll(fd, ok); });
    EXPECT_EQ(noNewline.result.out, "");

    Exchange flood = exchange(claudePermission, {}, [&](int fd, const std::string&) {
        sendAll(fd, std::string(70 * 1024, ' '));
        std::this_thread::sleep_for(1s);
    });
    EXPECT_EQ(flood.result.out, "");
    EXPECT_LT(flood.result.seconds, 20);

    // Past the 2-second guard: the wait for the user is bounded by the exchange alone.
    Exchange slow = exchange(claudePermission, {}, [&](int fd, const std::string&) {
        std::this_thread::sleep_for(3s);
        sendAll(fd, ok + "\n");
    });
    EXPECT_EQ(slow.result.out, allowed);
    EXPECT_GE(slow.result.seconds, 2.5);

    Exchange silent = exchange(claudePermission, {},
                               [&](int, const std::string&) { std::this_thread::sleep_for(3s); });
    EXPECT_EQ(silent.result.out, "");
    EXPECT_GE(silent.result.seconds, 2.5);

    TempHome nobodyHome;
    RunOptions options;
    options.input = claudePermission;
    RunResult nobody = runHook(nobodyHome, options);
    EXPECT_EQ(nobody.exitStatus, 0);
    EXPECT_EQ(nobody.out, "");
    EXPECT_EQ(nobody.err, "");
}

} // namespace
} // namespace pelmora
