#include "approval/ApprovalWire.h"

#include <gtest/gtest.h>

// Every row of the reply table goes through the built hook in
// tests/pelmora-hook; here are the cases no agent's event can reach.
namespace pelmora {
namespace {

using ApprovalWire::hookOutput;
using Decision = ApprovalDecision;

ApprovalRequest request(Source source) {
    ApprovalRequest result;
    result.source = source;
    result.tool = "AskUserQuestion";
    result.questions = std::vector<Question>{{"Which?", "", {{"A", ""}}, false},
                                             {"Which?", "", {{"B", ""}}, false}};
    result.questionsJSON = R"([{"question":"Which?"},{"question":"Which?","x":1}])";
    return result;
}

const ApprovalResponse answered{Decision::allow, std::nullopt, std::vector<std::string>{"A", "B"}};
const std::string plainAllow =
    R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})";

TEST(ApprovalWireTest, RepliesNoAgentEventReaches) {
    // A source with no dialect of its own, activities included, gets the standard one.
    for (Source source : {Source::commandcode, Source::pi, Source::kimi, Source::build}) {
        EXPECT_EQ(
            hookOutput(request(source), {Decision::deny, "not in /etc\nplease", std::nullopt}),
            R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"not in \/etc\nplease"},"hookEventName":"PermissionRequest"}})");
    }
    // Two questions with the same text: the later answer wins.
    EXPECT_EQ(
        hookOutput(request(Source::claude), answered),
        R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":{"Which?":"B"},"questions":[{"question":"Which?"},{"question":"Which?","x":1}]}},"hookEventName":"PermissionRequest"}})");
    ApprovalRequest lost = request(Source::claude);
    for (std::optional<std::string> stored : {std::optional<std::string>(), {"[{\"question\":"}}) {
        lost.questionsJSON = stored;
        EXPECT_EQ(hookOutput(lost, answered), std::nullopt);
    }
    // Only a non-empty list of rules goes back; anything else still allows.
    ApprovalRequest always = request(Source::codex);
    for (const char* suggestions : {"[]", R"({"type":"addRules"})", "[1,", "\"x\""}) {
        always.suggestions = suggestions;
        EXPECT_EQ(hookOutput(always, {Decision::allowAlways, std::nullopt, std::nullopt}),
                  plainAllow)
            << suggestions;
    }
    // Questions and suggestions play no part for Copilot and Devin.
    ApprovalRequest copilot = request(Source::copilot);
    copilot.suggestions = R"([{"type":"addRules"}])";
    EXPECT_EQ(hookOutput(copilot, {Decision::allowAlways, std::nullopt, std::nullopt}),
              R"({"behavior":"allow"})");
    EXPECT_EQ(hookOutput(request(Source::devin), {Decision::deny, "", std::nullopt}),
              R"({"decision":"block","reason":""})");
    EXPECT_EQ(hookOutput(request(Source::grok),
                         {Decision::allowAlways, std::nullopt, std::vector<std::string>{"A", "B"}}),
              std::nullopt);
}

} // namespace
} // namespace pelmora
