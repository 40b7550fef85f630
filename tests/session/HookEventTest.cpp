#include "session/HookEvent.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

#include "json/OrderedJSON.h"

using namespace pelmora;

namespace {

JSONValue json(std::string_view text) {
    return OrderedJSON::parse(text);
}

HookEvent decoded(std::string_view text) {
    std::optional<HookEvent> event = HookEvent::decode(text);
    EXPECT_TRUE(event.has_value()) << text;
    return event.value_or(HookEvent{});
}

HookEvent toolEvent(std::string_view toolName, std::string_view toolInput) {
    HookEvent event;
    event.name = "PermissionRequest";
    event.sessionID = "s";
    event.cwd = "/work/project";
    event.toolName = std::string(toolName);
    event.toolInput = json(toolInput);
    return event;
}

} // namespace

TEST(HookEvent, DecodesBothDialects) {
    HookEvent expected;
    expected.name = "PermissionRequest";
    expected.sessionID = "abc-123";
    expected.cwd = "/work/project";
    expected.toolName = "Bash";
    expected.toolInput = json(R"({"command": "npm test", "description": "Run tests"})");
    expected.permissionSuggestions =
        R"([{"behavior":"allow","destination":"localSettings","rules":[{"ruleContent":"npm test","toolName":"Bash"}],"type":"addRules"}])";
    EXPECT_EQ(decoded(R"({
        "session_id": "abc-123", "transcript_path": "/u/.claude/t.jsonl", "cwd": "/work/project",
        "permission_mode": "default", "hook_event_name": "PermissionRequest", "tool_name": "Bash",
        "tool_input": {"command": "npm test", "description": "Run tests"}, "tool_use_id": "t1",
        "permission_suggestions": [{"type": "addRules", "rules": [{"toolName": "Bash",
            "ruleContent": "npm test"}], "behavior": "allow", "destination": "localSettings"}]})"),
              expected);

    // Camel case, with the tool's arguments as JSON text.
    expected = HookEvent{};
    expected.name = "PreToolUse";
    expected.sessionID = "c-1";
    expected.cwd = "/work/app";
    expected.toolName = "bash";
    expected.toolInput = json(R"({"command":"git status","description":"Status"})");
    EXPECT_EQ(decoded(R"({"hookEventName": "preToolUse", "sessionId": "c-1",
            "timestamp": 1704614600000, "workspaceRoot": "/work/app", "toolName": "bash",
            "toolArgs": "{\"command\":\"git status\",\"description\":\"Status\"}"})"),
              expected);
}

TEST(HookEvent, OptionalFieldsOfAnUnexpectedTypeAreAbsent) {
    const auto with = [](std::string_view members) {
        return decoded(R"({"hook_event_name":"x","session_id":"s",)" + std::string(members) + "}");
    };
    const std::pair<std::string, std::optional<std::string> HookEvent::*> strings[] = {
        {"notification_type", &HookEvent::notificationType},
        {"message", &HookEvent::message},
        {"error", &HookEvent::error},
        {"last_assistant_message", &HookEvent::lastAssistantMessage},
        {"source", &HookEvent::source},
        {"submitted_prompt", &HookEvent::prompt},
        {"prompt", &HookEvent::prompt},
        {"tool_name", &HookEvent::toolName},
        {"toolName", &HookEvent::toolName}};
    for (const auto& [key, member] : strings) {
        EXPECT_EQ(with('"' + key + R"(":"v")").*member, "v") << key;
        EXPECT_EQ(with('"' + key + R"(":null)").*member, std::nullopt) << key;
        EXPECT_EQ(with('"' + key + R"(":{"a":1})").*member, std::nullopt) << key;
    }
    // The first key present decides, whatever its type; for cwd the type
    // decides first.
    EXPECT_EQ(with(R"("tool_name":3,"toolName":"Bash")").toolName, std::nullopt);
    EXPECT_EQ(with(R"("submitted_prompt":2,"prompt":"p")").prompt, std::nullopt);
    EXPECT_EQ(with(R"("submitted_prompt":"a","prompt":"b")").prompt, "a");
    EXPECT_EQ(with(R"("cwd":5,"workspaceRoot":"/w")").cwd, "/w");
    EXPECT_EQ(with(R"("cwd":"/c","workspaceRoot":"/w")").cwd, "/c");
    EXPECT_EQ(with(R"("workspaceRoot":[])").cwd, "");
    EXPECT_EQ(with(R"("permission_suggestions":[])").permissionSuggestions, std::nullopt);
    EXPECT_EQ(with(R"("permission_suggestions":{"a":1})").permissionSuggestions, std::nullopt);
}

TEST(HookEvent, CanonicalisesTheCamelCaseNames) {
    // Names outside the table, canonical or not, pass through as they came.
    // clang-format off
    const std::pair<const char*, const char*> table[] = {
        {"sessionStart", "SessionStart"},             {"sessionEnd", "SessionEnd"},
        {"userPromptSubmitted", "UserPromptSubmit"},  {"preToolUse", "PreToolUse"},
        {"postToolUse", "PostToolUse"},               {"postToolUseFailure", "PostToolUseFailure"},
        {"permissionRequest", "PermissionRequest"},   {"notification", "Notification"},
        {"agentStop", "Stop"},                        {"subagentStart", "SubagentStart"},
        {"subagentStop", "SubagentStop"},             {"preCompact", "PreCompact"},
        {"Stop", "Stop"},                             {"UserPromptSubmit", "UserPromptSubmit"},
        {"userPromptSubmit", "userPromptSubmit"},     {"errorOccurred", "errorOccurred"},
        {"AGENTSTOP", "AGENTSTOP"},                   {"", ""},
    };
    // clang-format on
    for (const auto& [received, canonical] : table) {
        EXPECT_EQ(HookEvent::canonicalName(received), canonical) << received;
    }
}

TEST(HookEvent, RejectsWhatIsNotAnEvent) {
    // Of two spellings of a key, the first present decides even when the
    // other would do.
    for (std::string_view text :
         {"", "null", "[]", R"("x")", "{", R"({"session_id":"s"})", R"({"hook_event_name":"Stop"})",
          R"({"hook_event_name":1,"session_id":"s"})",
          R"({"hook_event_name":"Stop","session_id":""})",
          R"({"hook_event_name":"Stop","session_id":7})",
          R"({"hook_event_name":"Stop","session_id":"","sessionId":"s"})",
          R"({"hook_event_name":null,"hookEventName":"Stop","session_id":"s"})",
          R"({"hook_event_name":"Stop","session_id":"s"} x)",
          "{\"hook_event_name\":\"St\xffop\",\"session_id\":\"s\"}",
          "{\"hook_event_name\":\"A\",\"session_id\":\"\xc3\x28\"}"}) {
        EXPECT_EQ(HookEvent::decode(text), std::nullopt) << text;
    }
    EXPECT_EQ(decoded(R"({"hook_event_name":"A","hookEventName":"B","session_id":"s"})").name, "A");
    EXPECT_EQ(decoded(R"({"hook_event_name":"A","hook_event_name":"B","session_id":"s"})").name,
              "A");
}

TEST(HookEvent, TakesToolInputFromTheFirstKeyThatGivesAnObject) {
    auto input = [](std::string_view text) { return HookEvent::toolInputFrom(json(text)); };
    EXPECT_EQ(input(R"({"tool_input":"{\"command\":\"ls\"}"})"), json(R"({"command":"ls"})"));
    EXPECT_EQ(input(R"({"tool_input":"[1]","toolInput":{"a":1}})"), json(R"({"a":1})"));
    EXPECT_EQ(input(R"({"tool_input":"not json","toolInput":{"a":1}})"), json(R"({"a":1})"));
    EXPECT_EQ(input(R"({"tool_input":3,"toolInput":null,"toolArgs":"","tool_args":{"b":2}})"),
              json(R"({"b":2})"));
    EXPECT_EQ(input(R"({"tool_input":"{}","toolInput":{"a":1}})"), JSONValue::object());
    EXPECT_EQ(input(R"({"toolArgs":{"c":3},"toolInput":{"a":1}})"), json(R"({"a":1})"));
    EXPECT_EQ(input(R"({"tool_input":[{"a":1}]})"), JSONValue::object());
}

TEST(HookEvent, SummarisesWhatTheToolActsOn) {
    auto summary = [](std::string_view input) { return toolEvent("Bash", input).toolSummary(); };
    EXPECT_EQ(summary(R"({"command":"   ","file_path":"/work/project/src/main.c"})"), "src/main.c");
    EXPECT_EQ(summary(R"({"command":["git","status"]})"), "git status");
    EXPECT_EQ(summary(R"({"command":"\t","path":"/elsewhere/x"})"), "/elsewhere/x");
    EXPECT_EQ(summary(R"({"command":[],"pattern":"TODO"})"), "TODO");
    EXPECT_EQ(summary(R"({"command":["ls",1],"url":"https://example.com"})"),
              "https://example.com");
    EXPECT_EQ(summary(R"({"description":"d","query":"q","url":5,"prompt":"p"})"), "q");
    EXPECT_EQ(summary(R"({"prompt":"p","notebook_path":"/work/project/a.ipynb"})"), "a.ipynb");
    EXPECT_EQ(summary(R"({"command":"FOO=bar make\n  install"})"), "FOO=*** make   install");
    EXPECT_EQ(summary(R"({"absolute_path":"/a","file_path":"/b"})"), "/b");
    EXPECT_EQ(summary(R"({"old_string":"x","content":"y"})"), std::nullopt);
}

TEST(HookEvent, OffersTheQuestionsOfAQuestionTool) {
    const char* input = R"({"questions":[{"question":"Which?","header":"Pick","multiSelect":false,
        "options":[{"label":"A/B","description":"first"},{"label":"C"}],"extra":1}]})";
    std::optional<HookEvent::Questions> questions = toolEvent("AskUserQuestion", input).questions();
    ASSERT_TRUE(questions.has_value());
    EXPECT_EQ(questions->questions,
              (std::vector<Question>{{"Which?", "Pick", {{"A/B", "first"}, {"C", ""}}, false}}));
    EXPECT_EQ(
        questions->json,
        R"([{"extra":1,"header":"Pick","multiSelect":false,"options":[{"description":"first","label":"A\/B"},{"label":"C"}],"question":"Which?"}])");
    EXPECT_TRUE(toolEvent("ask_user_question", input).questions().has_value());

    for (const char* other : {"askUserQuestion", "AskUserQuestion ", "Bash"}) {
        EXPECT_FALSE(toolEvent(other, input).isQuestionTool()) << other;
        EXPECT_EQ(toolEvent(other, input).questions(), std::nullopt) << other;
    }
    EXPECT_EQ(toolEvent("AskUserQuestion", "{}").questions(), std::nullopt);
    EXPECT_EQ(toolEvent("AskUserQuestion", R"({"questions":[]})").questions(), std::nullopt);

    // Sets of 32 KiB or more are left for the agent to ask itself.
    JSONValue padded = json(R"([{"question":"Q","options":[{"label":"L"}],"pad":""}])");
    const std::size_t base = OrderedJSON::serializeCompact(padded).size();
    for (std::size_t size : {std::size_t{32767}, std::size_t{32768}}) {
        (*padded.arrayElements())[0].set("pad", JSONValue::string(std::string(size - base, 'x')));
        ASSERT_EQ(OrderedJSON::serializeCompact(padded).size(), size);
        HookEvent event = toolEvent("AskUserQuestion", "{}");
        event.toolInput.set("questions", padded);
        questions = event.questions();
        EXPECT_EQ(questions.has_value(), size < 32768) << size;
        EXPECT_EQ(questions ? questions->json.size() : size, size);
    }
}

TEST(HookEvent, SurvivesHostileInput) {
    std::mt19937 random(20240607);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(static_cast<std::size_t>(round % 97), '\0');
        for (char& c : bytes) {
            c = static_cast<char>(byte(random));
        }
        if (round % 2 == 0) {
            bytes = R"({"hook_event_name":"A","session_id":"s","tool_input":)" + bytes + "}";
        }
        if (std::optional<HookEvent> event = HookEvent::decode(bytes)) {
            (void)event->questions();
            (void)event->toolSummary();
        }
    }
    EXPECT_EQ(HookEvent::decode(std::string(200000, '[')), std::nullopt);
    std::string nested = std::string(100000, '[') + std::string(100000, ']');
    std::string deepArgs = R"({"hookEventName":"a","sessionId":"s","toolArgs":")" + nested + "\"}";
    EXPECT_EQ(decoded(deepArgs).toolInput, JSONValue::object());

    std::string huge(1 << 20, 'a');
    HookEvent big = decoded(R"({"hook_event_name":"A","session_id":")" + huge +
                            R"(","tool_input":{"command":")" + huge + R"("}})");
    EXPECT_EQ(big.sessionID.size(), huge.size());
    EXPECT_EQ(big.toolSummary(), std::string(79, 'a') + "\xe2\x80\xa6");
}
