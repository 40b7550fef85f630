#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "json/JSONValue.h"
#include "support/Enum.h"

namespace pelmora {

// The hook events the system knows, by their canonical names (the raw
// values). Agents send other names too; those decode and are stored as they
// came, but no rule acts on them.
enum class HookEventName {
    sessionStart,
    sessionEnd,
    userPromptSubmit,
    preToolUse,
    postToolUse,
    postToolUseFailure,
    postToolBatch,
    permissionRequest,
    notification,
    subagentStart,
    subagentStop,
    preCompact,
    postCompact,
    postCompaction,
    stop,
    stopFailure,
    interrupt,
};

std::string_view rawValue(HookEventName name);
template <> std::optional<HookEventName> fromRaw<HookEventName>(std::string_view raw);

// One agent hook event in normalised form, whatever the agent's dialect.
struct HookEvent {
    std::string name; // canonical when known, else as received
    std::string sessionID;
    std::string cwd;
    std::optional<std::string> toolName;
    JSONValue toolInput = JSONValue::object(); // always an object
    std::optional<std::string> notificationType;
    std::optional<std::string> message;
    std::optional<std::string> error;
    std::optional<std::string> lastAssistantMessage;
    std::optional<std::string> prompt;
    std::optional<std::string> source;
    std::optional<std::string> permissionSuggestions;

    bool operator==(const HookEvent&) const = default;

    // Decodes one event; none when the bytes are not an event.
    static std::optional<HookEvent> decode(std::string_view json);
    // The camel-case dialect's names in their canonical spelling; any other
    // name unchanged.
    static std::string canonicalName(std::string_view name);
    // The tool input rule over the top-level object: always an object.
    static JSONValue toolInputFrom(const JSONValue& object);

    // The event by its canonical name; none for a name the system does not know.
    std::optional<HookEventName> kind() const { return fromRaw<HookEventName>(name); }
    bool isQuestionTool() const;
    std::optional<std::string> toolSummary() const;
};

} // namespace pelmora
