#include "approval/ApprovalRecords.h"

#include <array>
#include <type_traits>
#include <utility>

namespace pelmora {

namespace {

constexpr std::array<std::pair<ApprovalDecision, std::string_view>, 4> decisionWords{{
    {ApprovalDecision::allow, "allow"},
    {ApprovalDecision::allowAlways, "allowAlways"},
    {ApprovalDecision::deny, "deny"},
    {ApprovalDecision::ask, "ask"},
}};

// Decoding follows the platform's keyed decoder: a required key must be
// present with the right type, an optional one may be missing or null, and a
// value of the wrong type fails the whole record rather than being dropped.

std::optional<std::string> decodeString(const JSONValue& value) {
    if (const std::string* text = value.stringValue()) {
        return *text;
    }
    return std::nullopt;
}

std::optional<bool> decodeBool(const JSONValue& value) {
    return value.boolValue();
}

template <class T, class Decode>
std::optional<std::vector<T>> decodeList(const JSONValue& value, Decode decodeElement) {
    const JSONValue::Elements* elements = value.arrayElements();
    if (elements == nullptr) {
        return std::nullopt;
    }
    std::vector<T> list;
    list.reserve(elements->size());
    for (const JSONValue& element : *elements) {
        std::optional<T> decoded = decodeElement(element);
        if (!decoded) {
            return std::nullopt;
        }
        list.push_back(std::move(*decoded));
    }
    return list;
}

template <class T, class Decode>
bool readRequired(const JSONValue& object, std::string_view key, T& out, Decode decode) {
    const JSONValue* value = object.find(key);
    if (value == nullptr) {
        return false;
    }
    std::optional<T> decoded = decode(*value);
    if (!decoded) {
        return false;
    }
    out = std::move(*decoded);
    return true;
}

template <class T, class Decode>
bool readOptional(const JSONValue& object, std::string_view key, std::optional<T>& out,
                  Decode decode) {
    const JSONValue* value = object.find(key);
    if (value == nullptr || value->isNull()) {
        out.reset();
        return true;
    }
    out = decode(*value);
    return out.has_value();
}

std::optional<std::vector<std::string>> decodeStrings(const JSONValue& value) {
    return decodeList<std::string>(value, decodeString);
}

std::optional<std::vector<Question>> decodeQuestions(const JSONValue& value) {
    return decodeList<Question>(value, Question::fromJSON);
}

std::optional<Source> decodeSource(const JSONValue& value) {
    const std::string* word = value.stringValue();
    return word ? fromRaw<Source>(*word) : std::nullopt;
}

std::optional<ApprovalDecision> decodeDecision(const JSONValue& value) {
    const std::string* word = value.stringValue();
    return word ? fromRaw<ApprovalDecision>(*word) : std::nullopt;
}

void add(JSONValue::Members& members, std::string_view key, JSONValue value) {
    members.push_back(JSONMember{std::string(key), std::move(value)});
}

void addIfPresent(JSONValue::Members& members, std::string_view key,
                  const std::optional<std::string>& text) {
    if (text) {
        add(members, key, JSONValue::string(*text));
    }
}

template <class T> JSONValue arrayOf(const std::vector<T>& list) {
    JSONValue::Elements elements;
    elements.reserve(list.size());
    for (const T& element : list) {
        if constexpr (std::is_same_v<T, std::string>) {
            elements.push_back(JSONValue::string(element));
        } else {
            elements.push_back(element.toJSON());
        }
    }
    return JSONValue::array(std::move(elements));
}

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
    JSONValue::Members members;
    add(members, "label", JSONValue::string(label));
    add(members, "description", JSONValue::string(description));
    return JSONValue::object(std::move(members));
}

std::optional<QuestionOption> QuestionOption::fromJSON(const JSONValue& json) {
    QuestionOption option;
    if (!json.isObject() || !readRequired(json, "label", option.label, decodeString) ||
        !readRequired(json, "description", option.description, decodeString)) {
        return std::nullopt;
    }
    return option;
}

JSONValue Question::toJSON() const {
    JSONValue::Members members;
    add(members, "question", JSONValue::string(question));
    add(members, "header", JSONValue::string(header));
    add(members, "options", arrayOf(options));
    add(members, "multiSelect", JSONValue::boolean(multiSelect));
    return JSONValue::object(std::move(members));
}

std::optional<Question> Question::fromJSON(const JSONValue& json) {
    Question result;
    if (!json.isObject() || !readRequired(json, "question", result.question, decodeString) ||
        !readRequired(json, "header", result.header, decodeString) ||
        !readRequired(json, "options", result.options,
                      [](const JSONValue& value) {
                          return decodeList<QuestionOption>(value, QuestionOption::fromJSON);
                      }) ||
        !readRequired(json, "multiSelect", result.multiSelect, decodeBool)) {
        return std::nullopt;
    }
    return result;
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
    JSONValue::Members members;
    add(members, "id", JSONValue::string(id));
    add(members, "source", JSONValue::string(std::string(rawValue(source))));
    add(members, "sessionID", JSONValue::string(sessionID));
    add(members, "cwd", JSONValue::string(cwd));
    addIfPresent(members, "tool", tool);
    addIfPresent(members, "summary", summary);
    addIfPresent(members, "suggestions", suggestions);
    if (questions) {
        add(members, "questions", arrayOf(*questions));
    }
    addIfPresent(members, "questionsJSON", questionsJSON);
    return JSONValue::object(std::move(members));
}

std::optional<ApprovalRequest> ApprovalRequest::fromJSON(const JSONValue& json) {
    ApprovalRequest request;
    if (!json.isObject() || !readRequired(json, "id", request.id, decodeString) ||
        !readRequired(json, "source", request.source, decodeSource) ||
        !readRequired(json, "sessionID", request.sessionID, decodeString) ||
        !readRequired(json, "cwd", request.cwd, decodeString) ||
        !readOptional(json, "tool", request.tool, decodeString) ||
        !readOptional(json, "summary", request.summary, decodeString) ||
        !readOptional(json, "suggestions", request.suggestions, decodeString) ||
        !readOptional(json, "questions", request.questions, decodeQuestions) ||
        !readOptional(json, "questionsJSON", request.questionsJSON, decodeString)) {
        return std::nullopt;
    }
    return request;
}

JSONValue ApprovalResponse::toJSON() const {
    JSONValue::Members members;
    add(members, "decision", JSONValue::string(std::string(rawValue(decision))));
    addIfPresent(members, "message", message);
    if (answers) {
        add(members, "answers", arrayOf(*answers));
    }
    return JSONValue::object(std::move(members));
}

std::optional<ApprovalResponse> ApprovalResponse::fromJSON(const JSONValue& json) {
    ApprovalResponse response;
    if (!json.isObject() || !readRequired(json, "decision", response.decision, decodeDecision) ||
        !readOptional(json, "message", response.message, decodeString) ||
        !readOptional(json, "answers", response.answers, decodeStrings)) {
        return std::nullopt;
    }
    return response;
}

} // namespace pelmora
