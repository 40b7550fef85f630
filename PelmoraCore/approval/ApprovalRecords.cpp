#include "approval/ApprovalRecords.h"

#include <array>
#include <utility>

#include "json/KeyedJSON.h"

namespace pelmora {

namespace {

constexpr std::array<std::pair<ApprovalDecision, std::string_view>, 4> decisionWords{{
    {ApprovalDecision::allow, "allow"},
    {ApprovalDecision::allowAlways, "allowAlways"},
    {ApprovalDecision::deny, "deny"},
    {ApprovalDecision::ask, "ask"},
}};

// The agent's objects: anything that is not a string-keyed object spoils the list.
const JSONValue::Elements* listOfObjects(const JSONValue* value) {
    if (value == nullptr) {
        return nullptr;
    }
    const JSONValue::Elements* elements = value->arrayElements();
    if (elements == nullptr) {
        return nullptr;
    }
    for (const JSONValue& element : *elements) {
        if (!element.isObject()) {
            return nullptr;
        }
    }
    return elements;
}

const std::string* nonEmptyString(const JSONValue* value) {
    if (value == nullptr) {
        return nullptr;
    }
    const std::string* text = value->stringValue();
    return text != nullptr && !text->empty() ? text : nullptr;
}

std::string stringOr(const JSONValue* value, std::string_view fallback) {
    if (value != nullptr) {
        if (const std::string* text = value->stringValue()) {
            return *text;
        }
    }
    return std::string(fallback);
}

std::optional<Question> parseQuestion(const JSONValue& object) {
    const std::string* text = nonEmptyString(object.find("question"));
    if (text == nullptr) {
        return std::nullopt;
    }
    const JSONValue::Elements* options = listOfObjects(object.find("options"));
    if (options == nullptr || options->empty() || options->size() > 6) {
        return std::nullopt;
    }
    Question question;
    question.question = *text;
    question.options.reserve(options->size());
    for (const JSONValue& option : *options) {
        // An option without a label would leave the user a choice they
        // cannot read, so the whole question set is refused instead.
        const std::string* label = nonEmptyString(option.find("label"));
        if (label == nullptr) {
            return std::nullopt;
        }
        question.options.push_back({*label, stringOr(option.find("description"), "")});
    }
    question.header = stringOr(object.find("header"), "");
    const JSONValue* multiSelect = object.find("multiSelect");
    question.multiSelect = multiSelect != nullptr && multiSelect->boolValue().value_or(false);
    return question;
}

} // namespace

std::string_view rawValue(ApprovalDecision decision) {
    for (const auto& [value, word] : decisionWords) {
        if (value == decision) {
            return word;
        }
    }
    return {};
}

template <> std::optional<ApprovalDecision> fromRaw<ApprovalDecision>(std::string_view raw) {
    for (const auto& [value, word] : decisionWords) {
        if (word == raw) {
            return value;
        }
    }
    return std::nullopt;
}

JSONValue QuestionOption::toJSON() const {
    JSONObjectWriter out;
    out.put("label", label);
    out.put("description", description);
    return out.finish();
}

std::optional<QuestionOption> QuestionOption::fromJSON(const JSONValue& json) {
    JSONObjectReader in(json);
    QuestionOption option{in.requiredString("label"), in.requiredString("description")};
    return in.failed() ? std::nullopt : std::optional(std::move(option));
}

JSONValue Question::toJSON() const {
    JSONObjectWriter out;
    out.put("question", question);
    out.put("header", header);
    out.putList("options", std::optional(options));
    out.put("multiSelect", JSONValue::boolean(multiSelect));
    return out.finish();
}

std::optional<Question> Question::fromJSON(const JSONValue& json) {
    JSONObjectReader in(json);
    Question result;
    result.question = in.requiredString("question");
    result.header = in.requiredString("header");
    result.options =
        in.requiredDecoded<std::vector<QuestionOption>>("options", [](const JSONValue& value) {
            return JSONObjectReader::decodeList<QuestionOption>(value, QuestionOption::fromJSON);
        });
    result.multiSelect = in.requiredBool("multiSelect");
    return in.failed() ? std::nullopt : std::optional(std::move(result));
}

std::optional<std::vector<Question>> Question::parse(const JSONValue* value) {
    const JSONValue::Elements* objects = listOfObjects(value);
    if (objects == nullptr || objects->empty() || objects->size() > 4) {
        return std::nullopt;
    }
    std::vector<Question> questions;
    questions.reserve(objects->size());
    for (const JSONValue& object : *objects) {
        std::optional<Question> question = parseQuestion(object);
        if (!question) {
            return std::nullopt;
        }
        questions.push_back(std::move(*question));
    }
    return questions;
}

JSONValue ApprovalRequest::toJSON() const {
    JSONObjectWriter out;
    out.put("id", id);
    out.putRaw("source", source);
    out.put("sessionID", sessionID);
    out.put("cwd", cwd);
    out.put("tool", tool);
    out.put("summary", summary);
    out.put("suggestions", suggestions);
    out.putList("questions", questions);
    out.put("questionsJSON", questionsJSON);
    return out.finish();
}

std::optional<ApprovalRequest> ApprovalRequest::fromJSON(const JSONValue& json) {
    JSONObjectReader in(json);
    ApprovalRequest request;
    request.id = in.requiredString("id");
    request.source = in.requiredRaw<Source>("source");
    request.sessionID = in.requiredString("sessionID");
    request.cwd = in.requiredString("cwd");
    request.tool = in.optionalString("tool");
    request.summary = in.optionalString("summary");
    request.suggestions = in.optionalString("suggestions");
    request.questions =
        in.optionalDecoded<std::vector<Question>>("questions", [](const JSONValue& value) {
            return JSONObjectReader::decodeList<Question>(value, Question::fromJSON);
        });
    request.questionsJSON = in.optionalString("questionsJSON");
    return in.failed() ? std::nullopt : std::optional(std::move(request));
}

JSONValue ApprovalResponse::toJSON() const {
    JSONObjectWriter out;
    out.putRaw("decision", decision);
    out.put("message", message);
    out.putList("answers", answers);
    return out.finish();
}

std::optional<ApprovalResponse> ApprovalResponse::fromJSON(const JSONValue& json) {
    JSONObjectReader in(json);
    ApprovalResponse response;
    response.decision = in.requiredRaw<ApprovalDecision>("decision");
    response.message = in.optionalString("message");
    response.answers =
        in.optionalDecoded<std::vector<std::string>>("answers", [](const JSONValue& value) {
            return JSONObjectReader::decodeList<std::string>(value, [](const JSONValue& element) {
                return JSONObjectReader::decodeString(element);
            });
        });
    return in.failed() ? std::nullopt : std::optional(std::move(response));
}

} // namespace pelmora
