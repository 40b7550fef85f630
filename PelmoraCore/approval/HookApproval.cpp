#include "approval/HookApproval.h"

#include <utility>

#include "json/OrderedJSON.h"
#include "support/Uuid.h"

namespace pelmora::HookApproval {

bool asksHere(const HookEvent& event, Source source) {
    std::optional<HookEventName> kind = event.kind();
    if (kind == HookEventName::permissionRequest) {
        return supportsApprovals(source);
    }
    return kind == HookEventName::preToolUse && event.isQuestionTool() && asksOnPreToolUse(source);
}

std::optional<Questions> questions(const HookEvent& event) {
    if (!event.isQuestionTool()) {
        return std::nullopt;
    }
    const JSONValue* value = event.toolInput.find("questions");
    std::optional<std::vector<Question>> parsed = Question::parse(value);
    if (!parsed) {
        return std::nullopt;
    }
    // The agent's own objects travel whole, extra keys included, so that its
    // reply can hand them back unchanged.
    std::string json = OrderedJSON::serializeCompact(*value);
    if (json.size() >= maxQuestionsJSON) {
        return std::nullopt;
    }
    return Questions{std::move(*parsed), std::move(json)};
}

std::optional<ApprovalRequest> request(const HookEvent& event, Source source) {
    std::optional<Questions> asked;
    if (supportsQuestions(source)) {
        asked = questions(event);
    }
    if (event.isQuestionTool() && !asked) {
        return std::nullopt;
    }
    ApprovalRequest result;
    result.id = randomUUID();
    result.source = source;
    result.sessionID = event.sessionID;
    result.cwd = event.cwd;
    result.tool = event.toolName;
    result.summary = event.toolSummary();
    result.suggestions = event.permissionSuggestions;
    if (asked) {
        result.questions = std::move(asked->questions);
        result.questionsJSON = std::move(asked->json);
    }
    return result;
}

} // namespace pelmora::HookApproval
