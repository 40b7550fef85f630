#include "approval/ApprovalWire.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hook/Agents.h"
#include "json/OrderedJSON.h"

namespace pelmora::ApprovalWire {
namespace {

constexpr std::string_view defaultRefusal = "Denied from the Pelmora notch";
constexpr std::string_view grokPreamble = "The user has already answered in the Pelmora notch, so "
                                          "do not ask again. Continue with their answer.\n";

JSONValue object(std::initializer_list<std::pair<std::string_view, JSONValue>> members) {
    JSONValue result = JSONValue::object();
    for (const auto& [key, value] : members) {
        result.set(key, value);
    }
    return result;
}

JSONValue text(std::string_view value) {
    return JSONValue::string(std::string(value));
}

// An empty message is the user's own (blank) reason, not a missing one.
std::string refusalReason(const ApprovalResponse& response) {
    return response.message ? *response.message : std::string(defaultRefusal);
}

bool hasQuestions(const ApprovalRequest& request) {
    return request.questions && !request.questions->empty();
}

// The answers, one per question in the request's order, or none when they
// do not line up with the questions.
const std::vector<std::string>* matchingAnswers(const ApprovalRequest& request,
                                                const ApprovalResponse& response) {
    if (!hasQuestions(request) || !response.answers ||
        response.answers->size() != request.questions->size()) {
        return nullptr;
    }
    return &*response.answers;
}

std::optional<JSONValue> copilotOutput(const ApprovalResponse& response) {
    switch (response.decision) {
    case ApprovalDecision::allow:
    case ApprovalDecision::allowAlways:
        return object({{"behavior", text("allow")}});
    case ApprovalDecision::deny:
        return object({{"behavior", text("deny")},
                       {"interrupt", JSONValue::boolean(false)},
                       {"message", text(refusalReason(response))}});
    case ApprovalDecision::ask:
        break;
    }
    return std::nullopt;
}

std::optional<JSONValue> devinOutput(const ApprovalResponse& response) {
    switch (response.decision) {
    case ApprovalDecision::allow:
    case ApprovalDecision::allowAlways:
        return object({{"decision", text("approve")}});
    case ApprovalDecision::deny:
        return object({{"decision", text("block")}, {"reason", text(refusalReason(response))}});
    case ApprovalDecision::ask:
        break;
    }
    return std::nullopt;
}

// Grok shows its own question prompt unless the tool is refused, so the
// answers travel as the refusal's reason.
std::optional<JSONValue> grokOutput(const ApprovalRequest& request,
                                    const ApprovalResponse& response) {
    const auto* answers = matchingAnswers(request, response);
    if (response.decision != ApprovalDecision::allow || answers == nullptr) {
        return std::nullopt;
    }
    std::string reason(grokPreamble);
    for (std::size_t index = 0; index < answers->size(); ++index) {
        if (index > 0) {
            reason += '\n';
        }
        reason += "Question: ";
        reason += (*request.questions)[index].question;
        reason += "\nThe user's answer: ";
        reason += (*answers)[index];
    }
    return object({{"hookSpecificOutput", object({{"hookEventName", text("PreToolUse")},
                                                  {"permissionDecision", text("deny")},
                                                  {"permissionDecisionReason", text(reason)}})}});
}

std::optional<JSONValue> allowWithAnswers(const ApprovalRequest& request,
                                          const ApprovalResponse& response) {
    const auto* answers = matchingAnswers(request, response);
    if (answers == nullptr || !request.questionsJSON) {
        return std::nullopt;
    }
    auto questions = OrderedJSON::tryParse(*request.questionsJSON);
    if (!questions) {
        return std::nullopt;
    }
    JSONValue answerMap = JSONValue::object();
    for (std::size_t index = 0; index < answers->size(); ++index) {
        // set() replaces an earlier member with the same key: the later answer wins.
        answerMap.set((*request.questions)[index].question, text((*answers)[index]));
    }
    return object(
        {{"behavior", text("allow")},
         {"updatedInput", object({{"questions", std::move(*questions)}, {"answers", answerMap}})}});
}

// The agent's suggested permanent rules go back only when they are a
// non-empty list; anything else still allows, just without them.
JSONValue allowAlways(const ApprovalRequest& request) {
    JSONValue decision = object({{"behavior", text("allow")}});
    if (request.suggestions) {
        const auto rules = OrderedJSON::tryParse(*request.suggestions);
        if (rules && rules->isArray() && !rules->arrayElements()->empty()) {
            decision.set("updatedPermissions", *rules);
        }
    }
    return decision;
}

std::optional<JSONValue> defaultOutput(const ApprovalRequest& request,
                                       const ApprovalResponse& response) {
    std::optional<JSONValue> decision;
    switch (response.decision) {
    case ApprovalDecision::allow:
        decision = hasQuestions(request) ? allowWithAnswers(request, response)
                                         : object({{"behavior", text("allow")}});
        break;
    case ApprovalDecision::allowAlways:
        decision = allowAlways(request);
        break;
    case ApprovalDecision::deny:
        decision = object({{"behavior", text("deny")}, {"message", text(refusalReason(response))}});
        break;
    case ApprovalDecision::ask:
        break;
    }
    if (!decision) {
        return std::nullopt;
    }
    return object({{"hookSpecificOutput", object({{"hookEventName", text("PermissionRequest")},
                                                  {"decision", std::move(*decision)}})}});
}

} // namespace

std::optional<std::string> hookOutput(const ApprovalRequest& request,
                                      const ApprovalResponse& response) {
    std::optional<JSONValue> output;
    switch (Agents::row(request.source).reply) {
    case Agents::ReplyDialect::copilot:
        output = copilotOutput(response);
        break;
    case Agents::ReplyDialect::devin:
        output = devinOutput(response);
        break;
    case Agents::ReplyDialect::grok:
        output = grokOutput(request, response);
        break;
    case Agents::ReplyDialect::standard:
        output = defaultOutput(request, response);
        break;
    }
    if (!output) {
        return std::nullopt;
    }
    return OrderedJSON::serializeCompact(*output);
}

} // namespace pelmora::ApprovalWire
