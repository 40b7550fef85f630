#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "approval/ApprovalRecords.h"
#include "json/JSONValue.h"

namespace pelmora {

// One agent hook event in normalised form, whatever the agent's dialect.
struct HookEvent {
    std::string name; // canonical
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
    static std::string canonicalName(std::string_view name);
    // The tool input rule over the top-level object: always an object.
    static JSONValue toolInputFrom(const JSONValue& object);

    bool isQuestionTool() const;

    // Question sets whose JSON text is this long or longer are not forwarded.
    static constexpr std::size_t maxQuestionsJSON = 32768;
    struct Questions {
        std::vector<Question> questions;
        std::string json;
    };
    std::optional<Questions> questions() const;
    std::optional<std::string> toolSummary() const;
};

} // namespace pelmora
