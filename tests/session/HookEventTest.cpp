#include "session/HookEvent.h"

#include <gtest/gtest.h>
#include <string>

#include "json/OrderedJSON.h"

using namespace pelmora;

namespace {

JSONValue json(std::string_view text) {
    return OrderedJSON::parse(text);
}

HookEvent decoded(std::string_view members) {
    const std::string text = R"({"session_id":"s",)" + std::string(members) + "}";
    std::optional<HookEvent> event = HookEvent::decode(text);
    EXPECT_TRUE(event.has_value()) << text;
    return event.value_or(HookEvent{});
}

} // namespace

TEST(HookEvent, DecodesBothDialects) {
    HookEvent expected;
    expected.name = "PermissionRequest";
    expected.sessionID = "s";
    expected.cwd = "/work/project";
    expected.toolName = "Bash";
    expected.toolInput = json(R"({"command":"npm test"})");
    expected.permissionSuggestions = R"([{"behavior":"allow","type":"addRules"}])";
    EXPECT_EQ(decoded(R"("cwd": "/work/project", "permission_mode": "default",
        "hook_event_name": "PermissionRequest", "tool_name": "Bash", "tool_use_id": "t1",
        "tool_input": {"command": "npm test"}, "permission_suggestions": [{"type": "addRules",
        "behavior": "allow"}])"),
              expected);
    // Camel case, with the tool's arguments as JSON text.
    expected.name = "PreToolUse";
    expected.cwd = "/work/app";
    expected.permissionSuggestions.reset();
    EXPECT_EQ(HookEvent::decode(R"({"hookEventName": "preToolUse", "sessionId": "s",
            "timestamp": 1704614600000, "workspaceRoot": "/work/app", "toolName": "Bash",
            "toolArgs": "{\"command\":\"npm test\"}"})"),
              expected);
}

TEST(HookEvent, OptionalFieldsOfAnUnexpectedTypeAreAbsent) {
    const auto with = [](std::string_view members) {
        return decoded(R"("hook_event_name":"x",)" + std::string(members));
    };
    // clang-format off
    const std::pair<std::string, std::optional<std::string> HookEvent::*> strings[] = {
        {"notification_type", &HookEvent::notificationType}, {"message", &HookEvent::message},
        {"error", &HookEvent::error}, {"last_assistant_message", &HookEvent::lastAssistantMessage},
        {"source", &HookEvent::source}, {"submitted_prompt", &HookEvent::prompt},
        {"prompt", &HookEvent::prompt}, {"tool_name", &HookEvent::toolName},
        {"toolName", &HookEvent::toolName}};
    // clang-format on
    for (const auto& [key, member] : strings) {
        EXPECT_EQ(with('"' + key + R"(":"v")").*member, "v") << key;
        EXPECT_EQ(with('"' + key + R"(":{"a":1})").*member, std::nullopt) << key;
    }
    // The first key present decides, whatever its type; for cwd the type
    // decides first.
    EXPECT_EQ(with(R"("tool_name":3,"toolName":"Bash")").toolName, std::nullopt);
    EXPECT_EQ(with(R"("submitted_prompt":2,"prompt":"p")").prompt, std::nullopt);
    EXPECT_EQ(with(R"("cwd":5,"workspaceRoot":"/w")").cwd, "/w");
    EXPECT_EQ(with(R"("permission_suggestions":[])").permissionSuggestions, std::nullopt);
    EXPECT_EQ(with(R"("permission_suggestions":{"a":1})").permissionSuggestions, std::nullopt);
}

TEST(HookEvent, CanonicalNames) {
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
        EXPECT_EQ(decoded(R"("hookEventName":")" + std::string(known[i]) + "\"").kind(),
                  static_cast<HookEventName>(i));
    }
    for (const auto& [name, canonical] : received) {
        const HookEvent event = decoded(R"("hook_event_name":")" + std::string(name) + "\"");
        EXPECT_EQ(event.name, canonical);
        EXPECT_EQ(event.kind(), fromRaw<HookEventName>(canonical)) << name;
    }
    // Of two spellings of the name, the first present decides.
    EXPECT_EQ(decoded(R"("hook_event_name":"A","hookEventName":"B")").name, "A");
}

TEST(HookEvent, RejectsWhatIsNotAnEvent) {
    // clang-format off
    for (std::string_view text : {"", "null", "[]", "{", R"({"session_id":"s"})",
             R"({"hook_event_name":1,"session_id":"s"})",
             R"({"hook_event_name":"Stop","session_id":"","sessionId":"s"})",
             R"({"hook_event_name":null,"hookEventName":"Stop","session_id":"s"})",
             R"({"hook_event_name":"Stop","session_id":"s"} x)",
             "{\"hook_event_name\":\"St\xffop\",\"session_id\":\"s\"}"}) {
        EXPECT_EQ(HookEvent::decode(text), std::nullopt) << text;
    }
    // clang-format on
    EXPECT_EQ(HookEvent::decode(std::string(200000, '[')), std::nullopt);
}

TEST(HookEvent, ToolInputAndWhatTheToolActsOn) {
    // The first key that gives an object, even from the JSON text of one;
    // past the parser's depth limit the arguments are none, not a crash.
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    // clang-format off
    const std::pair<std::string, std::string> inputs[] = {
        {R"("tool_input":"[1]","toolInput":{"a":1})", R"({"a":1})"},
        {R"("tool_input":3,"toolInput":null,"toolArgs":"","tool_args":"{\"b\":2}")", R"({"b":2})"},
        {R"("tool_input":"{}","toolInput":{"a":1})", "{}"},
        {R"("toolArgs":")" + deep + "\"", "{}"},
    };
    const std::pair<std::string, std::optional<std::string>> summaries[] = {
        {R"({"command":" \t ","file_path":"/work/project/src/main.c"})", "src/main.c"},
        {R"({"command":["git","status"]})", "git status"},
        {R"({"command":["ls",1],"pattern":[],"url":"https://example.com"})", "https://example.com"},
        {R"({"description":"d","query":"q","url":5,"prompt":"p"})", "q"},
        {R"({"old_string":"x","content":"y"})", std::nullopt},
        {R"({"command":")" + std::string(1 << 20, 'a') + "\"}", std::string(79, 'a') + "\u2026"},
    };
    // clang-format on
    for (const auto& [members, input] : inputs) {
        EXPECT_EQ(HookEvent::toolInputFrom(json("{" + members + "}")), json(input)) << members;
    }
    HookEvent event;
    event.cwd = "/work/project";
    for (const auto& [input, summary] : summaries) {
        event.toolInput = json(input);
        EXPECT_EQ(event.toolSummary(), summary) << input.substr(0, 60);
    }
}
