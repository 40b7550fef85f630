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

// `count` questions with `optionCount` labelled options each.
std::string questions(int count, int optionCount) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        text += i > 0 ? R"(,{"question":"q","options":[)" : R"({"question":"q","options":[)";
        for (int j = 0; j < optionCount; ++j) {
            text += j > 0 ? R"(,{"label":"o"})" : R"({"label":"o"})";
        }
        text += "]}";
    }
    return text + "]";
}

} // namespace

TEST(ApprovalRequest, EncodesOnlyWhatIsPresentAndReadsItBack) {
    ApprovalRequest minimal;
    minimal.id = "8E3A1F2C-0B4D-4E5F-9A6B-7C8D9E0F1A2B";
    minimal.source = Source::copilot;
    minimal.sessionID = "s-1";
    minimal.cwd = "/work/p";
    EXPECT_EQ(
        OrderedJSON::serializeCompact(minimal.toJSON()),
        R"({"cwd":"\/work\/p","id":"8E3A1F2C-0B4D-4E5F-9A6B-7C8D9E0F1A2B","sessionID":"s-1","source":"copilot"})");
    EXPECT_EQ(ApprovalRequest::fromJSON(minimal.toJSON()), minimal);

    ApprovalRequest full = minimal;
    full.tool = "AskUserQuestion";
    full.summary = "";
    full.suggestions = R"([{"type":"addRules"}])";
    full.questions = std::vector<Question>{{"Which?", "H", {{"A", ""}, {"B", "second"}}, true}};
    full.questionsJSON = R"([{"question":"Which?"}])";
    const std::string fullText =
        R"({"cwd":"\/work\/p","id":"8E3A1F2C-0B4D-4E5F-9A6B-7C8D9E0F1A2B","questions":[{"header":"H",)"
        R"("multiSelect":true,"options":[{"description":"","label":"A"},{"description":"second",)"
        R"("label":"B"}],"question":"Which?"}],"questionsJSON":"[{\"question\":\"Which?\"}]",)"
        R"("sessionID":"s-1","source":"copilot","suggestions":"[{\"type\":\"addRules\"}]",)"
        R"("summary":"","tool":"AskUserQuestion"})";
    EXPECT_EQ(OrderedJSON::serializeCompact(full.toJSON()), fullText);
    EXPECT_EQ(ApprovalRequest::fromJSON(json(fullText)), full);

    const std::string base = R"({"id":"i","source":"codex","sessionID":"s","cwd":"/")";
    const auto lenient = ApprovalRequest::fromJSON(json(base + R"(,"tool":null,"unknown":[1]})"));
    ASSERT_TRUE(lenient);
    EXPECT_EQ(lenient->tool, std::nullopt);
    // A question or option missing a required field spoils the request.
    for (
        std::string_view extra :
        {R"("tool":1)", R"("questionsJSON":[])", R"("questions":{})",
         R"("questions":[{"question":"Q","options":[],"multiSelect":false}])",
         R"("questions":[{"question":"Q","header":"H","options":[],"multiSelect":"true"}])",
         R"("questions":[{"question":"Q","header":"H","options":[{"label":"L"}],"multiSelect":true}])"}) {
        EXPECT_EQ(ApprovalRequest::fromJSON(json(base + "," + std::string(extra) + "}")),
                  std::nullopt)
            << extra;
    }
    for (std::string_view text :
         {R"({"source":"codex","sessionID":"s","cwd":"/"})",
          R"({"id":"i","source":"Codex","sessionID":"s","cwd":"/"})",
          R"({"id":"i","source":"claude","sessionID":null,"cwd":"/"})",
          R"({"id":"i","source":"claude","sessionID":"s","cwd":3})", "[]"}) {
        EXPECT_EQ(ApprovalRequest::fromJSON(json(text)), std::nullopt) << text;
    }
}

TEST(ApprovalResponse, DecodesTheAppsAnswer) {
    for (ApprovalDecision decision : {ApprovalDecision::allow, ApprovalDecision::allowAlways,
                                      ApprovalDecision::deny, ApprovalDecision::ask}) {
        EXPECT_EQ(fromRaw<ApprovalDecision>(rawValue(decision)), decision);
    }
    EXPECT_EQ(rawValue(ApprovalDecision::allowAlways), "allowAlways");
    EXPECT_EQ(ApprovalResponse::fromJSON(json(R"({"decision":"deny","message":"not now"})")),
              (ApprovalResponse{ApprovalDecision::deny, "not now", std::nullopt}));
    EXPECT_EQ(ApprovalResponse::fromJSON(json(R"({"decision":"allow","answers":["A","B, C"]})")),
              (ApprovalResponse{ApprovalDecision::allow, std::nullopt,
                                std::vector<std::string>{"A", "B, C"}}));
    EXPECT_EQ(
        ApprovalResponse::fromJSON(json(R"({"decision":"ask","message":null,"answers":null})")),
        (ApprovalResponse{ApprovalDecision::ask, std::nullopt, std::nullopt}));
    for (std::string_view text :
         {R"({})", R"({"decision":"Allow"})", R"({"decision":"allowalways"})", R"({"decision":1})",
          R"({"decision":"allow","answers":["a",1]})", R"({"decision":"allow","answers":"a"})",
          R"({"decision":"deny","message":5})", R"("allow")"}) {
        EXPECT_EQ(ApprovalResponse::fromJSON(json(text)), std::nullopt) << text;
    }
    auto encoded = [](const ApprovalResponse& response) {
        return OrderedJSON::serializeCompact(response.toJSON());
    };
    EXPECT_EQ(encoded({ApprovalDecision::allowAlways, "", std::vector<std::string>{}}),
              R"({"answers":[],"decision":"allowAlways","message":""})");
    EXPECT_EQ(encoded({ApprovalDecision::deny, std::nullopt, std::nullopt}),
              R"({"decision":"deny"})");
}

TEST(Question, ParsesTheAgentsQuestionsOrNothing) {
    // Missing or mistyped header, description and multiSelect fall back to
    // empty and false; keys beyond the known ones are ignored.
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
    for (const std::string& text :
         {questions(5, 1), questions(1, 7), questions(1, 0), questions(0, 1), std::string("{}"),
          std::string("null"), questions(1, 1).insert(1, R"("Q0",)")}) {
        EXPECT_EQ(parse(text), std::nullopt) << text;
    }
    // One unusable option or question field spoils the whole list.
    for (std::string_view option :
         {R"({"label":""})", R"({"description":"x"})", R"({"label":1})", R"("B")"}) {
        EXPECT_EQ(
            parse(R"([{"question":"Q","options":[{"label":"A"},)" + std::string(option) + "]}]"),
            std::nullopt)
            << option;
    }
    for (std::string_view fields :
         {R"("question":"Q","options":{"label":"A"})", R"("question":1,"options":[{"label":"A"}])",
          R"("options":[{"label":"A"}])", R"("question":"","options":[{"label":"A"}])"}) {
        EXPECT_EQ(parse("[{" + std::string(fields) + "}]"), std::nullopt) << fields;
    }
}
