#include "approval/ApprovalRecords.h"

#include <gtest/gtest.h>
#include <string>

#include "json/OrderedJSON.h"

using namespace pelmora;

namespace {

JSONValue json(std::string_view text) {
    return OrderedJSON::parse(text);
}

std::optional<std::vector<Question>> parse(std::string_view text) {
    JSONValue value = json(text);
    return Question::parse(&value);
}

std::string options(int count) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            text += ",";
        }
        text += R"({"label":"o)";
        text += std::to_string(i);
        text += "\"}";
    }
    return text + "]";
}

std::string questions(int count, int optionCount) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        text += i > 0 ? "," : "";
        text += std::string(R"({"question":"q)") + std::to_string(i) + R"(","options":)" +
                options(optionCount) + "}";
    }
    return text + "]";
}

} // namespace

TEST(ApprovalDecision, SpellsItsWordsExactly) {
    for (ApprovalDecision decision : {ApprovalDecision::allow, ApprovalDecision::allowAlways,
                                      ApprovalDecision::deny, ApprovalDecision::ask}) {
        EXPECT_EQ(fromRaw<ApprovalDecision>(rawValue(decision)), decision);
    }
    EXPECT_EQ(rawValue(ApprovalDecision::allowAlways), "allowAlways");
    for (std::string_view word : {"Allow", "allowalways", "DENY", "", "always"}) {
        EXPECT_EQ(fromRaw<ApprovalDecision>(word), std::nullopt) << word;
    }
}

TEST(ApprovalRequest, EncodesOnlyWhatIsPresentAndReadsItBack) {
    ApprovalRequest minimal;
    minimal.id = "8E3A1F2C-0B4D-4E5F-9A6B-7C8D9E0F1A2B";
    minimal.source = Source::copilot;
    minimal.sessionID = "s-1";
    minimal.cwd = "/work/p";
    EXPECT_EQ(
        OrderedJSON::serializeCompact(minimal.toJSON()),
        R"({"cwd":"\/work\/p","id":"8E3A1F2C-0B4D-4E5F-9A6B-7C8D9E0F1A2B","sessionID":"s-1","source":"copilot"})");

    ApprovalRequest full = minimal;
    full.source = Source::claude;
    full.tool = "AskUserQuestion";
    full.summary = "";
    full.suggestions = R"([{"type":"addRules"}])";
    full.questions = std::vector<Question>{{"Which?", "", {{"A", ""}, {"B", "second"}}, true}};
    full.questionsJSON = R"([{"question":"Which?"}])";
    EXPECT_EQ(ApprovalRequest::fromJSON(json(OrderedJSON::serializeCompact(full.toJSON()))), full);
    EXPECT_EQ(ApprovalRequest::fromJSON(minimal.toJSON()), minimal);

    const char* base = R"("id":"i","source":"codex","sessionID":"s","cwd":"/")";
    auto decode = [&](std::string_view extra) {
        return ApprovalRequest::fromJSON(json("{" + std::string(base) + std::string(extra) + "}"));
    };
    ASSERT_TRUE(decode(R"(,"tool":null,"questions":null,"unknown":[1])"));
    EXPECT_EQ(decode(R"(,"tool":null)")->tool, std::nullopt);
    for (std::string_view extra :
         {R"(,"tool":1)", R"(,"summary":false)", R"(,"questions":{})",
          R"(,"questions":[{"question":"q"}])", R"(,"questionsJSON":[])"}) {
        EXPECT_EQ(decode(extra), std::nullopt) << extra;
    }
    for (std::string_view text : {
             R"({"source":"codex","sessionID":"s","cwd":"/"})",
             R"({"id":"i","source":"Codex","sessionID":"s","cwd":"/"})",
             R"({"id":"i","source":"claude","sessionID":null,"cwd":"/"})",
             R"({"id":"i","source":"claude","sessionID":"s","cwd":3})",
             R"([])",
         }) {
        EXPECT_EQ(ApprovalRequest::fromJSON(json(text)), std::nullopt) << text;
    }
}

TEST(ApprovalResponse, DecodesTheAppsAnswer) {
    EXPECT_EQ(ApprovalResponse::fromJSON(json(R"({"decision":"deny","message":"not now"})")),
              (ApprovalResponse{ApprovalDecision::deny, "not now", std::nullopt}));
    EXPECT_EQ(ApprovalResponse::fromJSON(json(R"({"decision":"allow","answers":["A","B, C"]})")),
              (ApprovalResponse{ApprovalDecision::allow, std::nullopt,
                                std::vector<std::string>{"A", "B, C"}}));
    EXPECT_EQ(
        ApprovalResponse::fromJSON(json(R"({"decision":"ask","message":null,"answers":null})")),
        (ApprovalResponse{ApprovalDecision::ask, std::nullopt, std::nullopt}));
    for (std::string_view text :
         {R"({})", R"({"decision":"Allow"})", R"({"decision":1})",
          R"({"decision":"allow","answers":["a",1]})", R"({"decision":"allow","answers":"a"})",
          R"({"decision":"deny","message":5})", R"("allow")"}) {
        EXPECT_EQ(ApprovalResponse::fromJSON(json(text)), std::nullopt) << text;
    }
    ApprovalResponse response{ApprovalDecision::allowAlways, "", std::vector<std::string>{}};
    EXPECT_EQ(OrderedJSON::serializeCompact(response.toJSON()),
              R"({"answers":[],"decision":"allowAlways","message":""})");
    EXPECT_EQ(OrderedJSON::serializeCompact(
                  ApprovalResponse{ApprovalDecision::deny, std::nullopt, std::nullopt}.toJSON()),
              R"({"decision":"deny"})");
}

TEST(Question, DecodesOnlyCompleteRecords) {
    Question question{"Q", "H", {{"L", "D"}}, true};
    EXPECT_EQ(
        OrderedJSON::serializeCompact(question.toJSON()),
        R"({"header":"H","multiSelect":true,"options":[{"description":"D","label":"L"}],"question":"Q"})");
    EXPECT_EQ(Question::fromJSON(question.toJSON()), question);
    for (std::string_view text : {
             R"({"question":"Q","header":"H","options":[]})",
             R"({"question":"Q","header":"H","options":[],"multiSelect":"true"})",
             R"({"question":"Q","header":"H","options":[{"label":"L"}],"multiSelect":false})",
             R"({"question":"Q","options":[],"multiSelect":false})",
         }) {
        EXPECT_EQ(Question::fromJSON(json(text)), std::nullopt) << text;
    }
}

TEST(Question, ParsesTheAgentsQuestionsOrNothing) {
    EXPECT_EQ(parse(R"([{"question":"Which?","options":[{"label":"A","description":7},
                        {"label":"B","description":"b","x":1}],"header":3,"multiSelect":"true",
                        "extra":{}}])"),
              (std::vector<Question>{{"Which?", "", {{"A", ""}, {"B", "b"}}, false}}));
    EXPECT_EQ(
        parse(R"([{"question":"Q","header":"H","multiSelect":true,"options":[{"label":"A"}]},
                        {"question":"R","options":[{"label":"B"}]}])"),
        (std::vector<Question>{{"Q", "H", {{"A", ""}}, true}, {"R", "", {{"B", ""}}, false}}));
    EXPECT_EQ(parse(questions(4, 6))->size(), 4u);
    EXPECT_EQ(parse(questions(1, 1))->front().options.size(), 1u);

    EXPECT_EQ(Question::parse(nullptr), std::nullopt);
    for (const std::string& text : std::initializer_list<std::string>{
             questions(5, 1),
             questions(1, 7),
             questions(1, 0),
             questions(0, 1),
             "{}",
             "null",
             R"([{"question":"Q","options":[{"label":"A"}]}, "Q2"])",
             R"([{"question":"Q","options":[{"label":"A"},{"label":""}]}])",
             R"([{"question":"Q","options":[{"label":"A"},{"description":"no label"}]}])",
             R"([{"question":"Q","options":[{"label":"A"},{"label":1}]}])",
             R"([{"question":"Q","options":[{"label":"A"},"B"]}])",
             R"([{"question":"Q","options":{"label":"A"}}])",
             R"([{"question":"","options":[{"label":"A"}]}])",
             R"([{"question":1,"options":[{"label":"A"}]}])",
             R"([{"options":[{"label":"A"}]}])",
         }) {
        EXPECT_EQ(parse(text), std::nullopt) << text;
    }
}
