#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hook/Source.h"
#include "json/JSONValue.h"
#include "support/Enum.h"

namespace pelmora {

enum class ApprovalDecision { allow, allowAlways, deny, ask };

std::string_view rawValue(ApprovalDecision decision);
template <> std::optional<ApprovalDecision> fromRaw<ApprovalDecision>(std::string_view raw);

// Each record's JSON keys are its field names; absent optionals are left
// out on writing. fromJSON gives std::nullopt when a required field is
// missing or of the wrong type.
struct QuestionOption {
    std::string label;
    std::string description;
    bool operator==(const QuestionOption&) const = default;

    JSONValue toJSON() const;
    static std::optional<QuestionOption> fromJSON(const JSONValue& json);
};

struct Question {
    std::string question;
    std::string header;
    std::vector<QuestionOption> options;
    bool multiSelect = false;
    bool operator==(const Question&) const = default;

    JSONValue toJSON() const;
    static std::optional<Question> fromJSON(const JSONValue& json);

    // The agent's own "questions" value: 1 to 4 questions of 1 to 6 labelled
    // options each, or none at all.
    static std::optional<std::vector<Question>> parse(const JSONValue* value);
};

struct ApprovalRequest {
    std::string id;
    Source source = Source::claude;
    std::string sessionID;
    std::string cwd;
    std::optional<std::string> tool;
    std::optional<std::string> summary;
    std::optional<std::string> suggestions;
    std::optional<std::vector<Question>> questions;
    std::optional<std::string> questionsJSON;
    bool operator==(const ApprovalRequest&) const = default;

    JSONValue toJSON() const;
    static std::optional<ApprovalRequest> fromJSON(const JSONValue& json);
};

struct ApprovalResponse {
    ApprovalDecision decision = ApprovalDecision::ask;
    std::optional<std::string> message;
    std::optional<std::vector<std::string>> answers;
    bool operator==(const ApprovalResponse&) const = default;

    JSONValue toJSON() const;
    static std::optional<ApprovalResponse> fromJSON(const JSONValue& json);
};

} // namespace pelmora
