#include "session/HookEvent.h"

#include <gtest/gtest.h>
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
        EXPECT_EQ(with('"' + key + R"(":{"a":1})").*member, std::nullopt) << key;
    }
    // The first key present decides, whatever its type; for cwd the type
    // decides first.
    EXPECT_EQ(with(R"("tool_name":3,"toolName":"Bash")").toolName, std::nullopt);
    EXPECT_EQ(with(R"("submitted_prompt":2,"prompt":"p")").prompt, std::nullopt);
    EXPECT_EQ(with(R"("submitted_prompt":"a","prompt":"b")").prompt, "a");
    EXPECT_EQ(with(R"("cwd":5,"workspaceRoot":"/w")").cwd, "/w");
    EXPECT_EQ(with(R"("cwd":"/c","workspaceRoot":"/w")").cwd, "/c");
    EXPECT_EQ(with(R"("permission_suggestions":[])").permissionSuggestions, std::nullopt);
    EXPECT_EQ(with(R"("permission_suggestions":{"a":1})").permissionSuggestions, std::nullopt);
}

TEST(HookEvent, CanonicalNames) {
    const auto named = [](std::string_view name) {
        return decoded(R"({"session_id":"s","hookEventName":")" + std::string(name) + "\"}");
    };
    // clang-format off
    const char* known[] = {"SessionStart", "SessionEnd", "UserPromptSubmit", "PreToolUse",
        "PostToolUse", "PostToolUseFailure", "PostToolBatch", "PermissionRequest", "Notification",
        "SubagentStart", "SubagentStop", "PreCompact", "PostCompact", "PostCompaction", "Stop",
        "StopFailure", "Interrupt"};
    // Names outside the camel-case table, known or not, are kept as they came.
    const std::pair<const char*, const char*> received[] = {
        {"sessionStart", "SessionStart"},             {"sessionEnd", "SessionEnd"},
        {"userPromptSubmitted", "UserPromptSubmit"},  {"preToolUse", "PreToolUse"},
        {"postToolUse", "PostToolUse"},               {"postToolUseFailure", "PostToolUseFailure"},
        {"permissionRequest", "PermissionRequest"},   {"notification", "Notification"},
        {"agentStop", "Stop"},                        {"subagentStart", "SubagentStart"},
        {"subagentStop", "SubagentStop"},             {"preCompact", "PreCompact"},
        {"userPromptSubmit", "userPromptSubmit"},     {"errorOccurred", "errorOccurred"},
        {"postCompact", "postCompact"},               {"AGENTSTOP", "AGENTSTOP"}, {"", ""},
    };
    // clang-format on
    for (std::size_t i = 0; i < std::size(known); ++i) {
        EXPECT_EQ(rawValue(static_cast<HookEventName>(i)), known[i]);
        EXPECT_EQ(named(known[i]).kind(), static_cast<HookEventName>(i));
    }
    for (const auto& [name, canonical] : received) {
        const HookEvent event = named(name);
        EXPECT_EQ(event.name, canonical);
        EXPECT_EQ(event.kind(), fromRaw<HookEventName>(canonical)) << name;
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
    EXPECT_EQ(HookEvent::decode(std::string(200000, '[')), std::nullopt);
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
    // Arguments nested past the parser's depth limit are no arguments, not a crash.
    std::string nested = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(input(R"({"toolArgs":")" + nested + "\"}"), JSONValue::object());
}

TEST(HookEvent, SummarisesWhatTheToolActsOn) {
    auto summary = [](std::string_view input) {
        HookEvent event;
        event.cwd = "/work/project";
        event.toolInput = json(input);
        return event.toolSummary();
    };
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
    EXPECT_EQ(summary(R"({"command":")" + std::string(1 << 20, 'a') + "\"}"),
              std::string(79, 'a') + "\xe2\x80\xa6");
}
