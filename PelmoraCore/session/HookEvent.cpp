#include "session/HookEvent.h"

#include <array>
#include <utility>

#include "json/OrderedJSON.h"
#include "session/Redactor.h"
#include "support/Text.h"

namespace pelmora {

namespace {

// The first of the keys that is present at all, whatever its type: a key the
// agent sent with an unexpected type is not silently replaced by another.
const JSONValue* firstPresent(const JSONValue& object, std::string_view preferred,
                              std::string_view fallback) {
    if (const JSONValue* value = object.find(preferred)) {
        return value;
    }
    return object.find(fallback);
}

std::optional<std::string> stringOf(const JSONValue* value) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (const std::string* text = value->stringValue()) {
        return *text;
    }
    return std::nullopt;
}

std::optional<std::string> permissionSuggestionsFrom(const JSONValue& object) {
    const JSONValue* value = object.find("permission_suggestions");
    if (value == nullptr) {
        return std::nullopt;
    }
    const JSONValue::Elements* elements = value->arrayElements();
    if (elements == nullptr || elements->empty()) {
        return std::nullopt;
    }
    return OrderedJSON::serializeCompact(*value);
}

// A non-empty array made only of strings, joined with single spaces.
std::optional<std::string> joinedStrings(const JSONValue& value) {
    const JSONValue::Elements* elements = value.arrayElements();
    if (elements == nullptr || elements->empty()) {
        return std::nullopt;
    }
    std::string joined;
    for (std::size_t index = 0; index < elements->size(); ++index) {
        const std::string* text = (*elements)[index].stringValue();
        if (text == nullptr) {
            return std::nullopt;
        }
        if (index > 0) {
            joined += ' ';
        }
        joined += *text;
    }
    return joined;
}

constexpr std::array<std::pair<HookEventName, std::string_view>, 17> eventNames{{
    {HookEventName::sessionStart, "SessionStart"},
    {HookEventName::sessionEnd, "SessionEnd"},
    {HookEventName::userPromptSubmit, "UserPromptSubmit"},
    {HookEventName::preToolUse, "PreToolUse"},
    {HookEventName::postToolUse, "PostToolUse"},
    {HookEventName::postToolUseFailure, "PostToolUseFailure"},
    {HookEventName::postToolBatch, "PostToolBatch"},
    {HookEventName::permissionRequest, "PermissionRequest"},
    {HookEventName::notification, "Notification"},
    {HookEventName::subagentStart, "SubagentStart"},
    {HookEventName::subagentStop, "SubagentStop"},
    {HookEventName::preCompact, "PreCompact"},
    {HookEventName::postCompact, "PostCompact"},
    {HookEventName::postCompaction, "PostCompaction"},
    {HookEventName::stop, "Stop"},
    {HookEventName::stopFailure, "StopFailure"},
    {HookEventName::interrupt, "Interrupt"},
}};

// rawValue indexes the table by the enumeration's value.
static_assert(
    [] {
        for (std::size_t i = 0; i < eventNames.size(); ++i) {
            if (eventNames[i].first != static_cast<HookEventName>(i)) {
                return false;
            }
        }
        return true;
    }(),
    "one name per case, in declaration order");

} // namespace

std::string_view rawValue(HookEventName name) {
    return eventNames[static_cast<std::size_t>(name)].second;
}

template <> std::optional<HookEventName> fromRaw<HookEventName>(std::string_view raw) {
    for (const auto& [name, text] : eventNames) {
        if (text == raw) {
            return name;
        }
    }
    return std::nullopt;
}

std::optional<HookEvent> HookEvent::decode(std::string_view json) {
    std::optional<JSONValue> root = OrderedJSON::tryParse(json);
    if (!root || !root->isObject()) {
        return std::nullopt;
    }

    std::optional<std::string> name =
        stringOf(firstPresent(*root, "hook_event_name", "hookEventName"));
    if (!name) {
        return std::nullopt;
    }
    std::optional<std::string> sessionID = stringOf(firstPresent(*root, "session_id", "sessionId"));
    if (!sessionID || sessionID->empty()) {
        return std::nullopt;
    }

    HookEvent event;
    event.name = canonicalName(*name);
    event.sessionID = std::move(*sessionID);
    // Unlike the other pairs, a cwd of the wrong type falls back to the
    // workspace root: Copilot-style agents name the folder differently.
    if (auto cwd = stringOf(root->find("cwd"))) {
        event.cwd = std::move(*cwd);
    } else if (auto workspaceRoot = stringOf(root->find("workspaceRoot"))) {
        event.cwd = std::move(*workspaceRoot);
    }
    event.toolName = stringOf(firstPresent(*root, "tool_name", "toolName"));
    event.toolInput = toolInputFrom(*root);
    event.notificationType = stringOf(root->find("notification_type"));
    event.message = stringOf(root->find("message"));
    event.error = stringOf(root->find("error"));
    event.lastAssistantMessage = stringOf(root->find("last_assistant_message"));
    event.prompt = stringOf(firstPresent(*root, "submitted_prompt", "prompt"));
    event.source = stringOf(root->find("source"));
    event.permissionSuggestions = permissionSuggestionsFrom(*root);
    return event;
}

std::string HookEvent::canonicalName(std::string_view name) {
    using enum HookEventName;
    static constexpr std::array<std::pair<std::string_view, HookEventName>, 12> camelCase{{
        {"sessionStart", sessionStart},
        {"sessionEnd", sessionEnd},
        {"userPromptSubmitted", userPromptSubmit},
        {"preToolUse", preToolUse},
        {"postToolUse", postToolUse},
        {"postToolUseFailure", postToolUseFailure},
        {"permissionRequest", permissionRequest},
        {"notification", notification},
        {"agentStop", stop},
        {"subagentStart", subagentStart},
        {"subagentStop", subagentStop},
        {"preCompact", preCompact},
    }};
    for (const auto& [received, canonical] : camelCase) {
        if (name == received) {
            return std::string(rawValue(canonical));
        }
    }
    return std::string(name);
}

JSONValue HookEvent::toolInputFrom(const JSONValue& object) {
    // Some agents send their tool arguments as the JSON text of an object.
    for (std::string_view key : {"tool_input", "toolInput", "toolArgs", "tool_args"}) {
        const JSONValue* value = object.find(key);
        if (value == nullptr) {
            continue;
        }
        if (value->isObject()) {
            return *value;
        }
        if (const std::string* text = value->stringValue()) {
            if (std::optional<JSONValue> parsed = OrderedJSON::tryParse(*text);
                parsed && parsed->isObject()) {
                return std::move(*parsed);
            }
        }
    }
    return JSONValue::object();
}

bool HookEvent::isQuestionTool() const {
    return toolName == "AskUserQuestion" || toolName == "ask_user_question";
}

std::optional<std::string> HookEvent::toolSummary() const {
    static constexpr std::array<std::string_view, 10> keys{
        "command", "file_path", "absolute_path", "path",        "notebook_path",
        "pattern", "url",       "query",         "description", "prompt",
    };
    for (std::string_view key : keys) {
        const JSONValue* value = toolInput.find(key);
        if (value == nullptr) {
            continue;
        }
        if (const std::string* text = value->stringValue()) {
            if (!Text::trimSpacesAndTabs(*text).empty()) {
                return Redactor::redact(*text, cwd);
            }
            continue;
        }
        if (std::optional<std::string> joined = joinedStrings(*value)) {
            return Redactor::redact(*joined, cwd);
        }
    }
    return std::nullopt;
}

} // namespace pelmora
