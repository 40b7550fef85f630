#include "approval/ApprovalWire.h"

#include <gtest/gtest.h>

namespace pelmora {
namespace {

using ApprovalWire::hookOutput;
using Decision = ApprovalDecision;
using Answers = std::optional<std::vector<std::string>>;

ApprovalRequest request(Source source) {
    ApprovalRequest result;
    result.id = "8C1A54F2-3B7E-4D0A-9F61-2E5B7C9D0A13";
    result.source = source;
    result.sessionID = "s-1";
    result.cwd = "/Users/ada/project";
    result.tool = "Bash";
    result.summary = "make test";
    return result;
}

// Two questions as the agent sent them, extra key and all, and the parsed view.
ApprovalRequest questionRequest(Source source) {
    ApprovalRequest result = request(source);
    result.tool = "AskUserQuestion";
    result.questions = std::vector<Question>{
        {"Which database?", "DB", {{"Postgres", ""}, {"SQLite", "file/based"}}, false},
        {"Run migrations?", "", {{"Yes", ""}, {"No", ""}}, false},
    };
    result.questionsJSON =
        R"json([{"question":"Which database?","header":"DB","options":[{"label":"Postgres","description":""},{"label":"SQLite","description":"file/based"}],"multiSelect":false,"x-extra":7},{"question":"Run migrations?","options":[{"label":"Yes"},{"label":"No"}]}])json";
    return result;
}

ApprovalResponse response(Decision decision, std::optional<std::string> message = std::nullopt,
                          Answers answers = std::nullopt) {
    return {decision, std::move(message), std::move(answers)};
}

const Answers twoAnswers = std::vector<std::string>{"SQLite", "No"};
const Answers oneAnswer = std::vector<std::string>{"SQLite"};
const std::string plainAllow =
    R"json({"hookSpecificOutput":{"decision":{"behavior":"allow"},"hookEventName":"PermissionRequest"}})json";

TEST(ApprovalWireTest, CopilotAndDevinIgnoreQuestionsAndSuggestions) {
    ApprovalRequest copilot = questionRequest(Source::copilot);
    copilot.suggestions = R"json([{"type":"addRules"}])json";
    EXPECT_EQ(hookOutput(copilot, response(Decision::allow)), R"json({"behavior":"allow"})json");
    EXPECT_EQ(hookOutput(copilot, response(Decision::allowAlways, std::nullopt, twoAnswers)),
              R"json({"behavior":"allow"})json");
    EXPECT_EQ(
        hookOutput(copilot, response(Decision::deny)),
        R"json({"behavior":"deny","interrupt":false,"message":"Denied from the Pelmora notch"})json");
    EXPECT_EQ(hookOutput(copilot, response(Decision::deny, "use ./run.sh")),
              R"json({"behavior":"deny","interrupt":false,"message":"use .\/run.sh"})json");
    EXPECT_EQ(hookOutput(copilot, response(Decision::ask)), std::nullopt);

    ApprovalRequest devin = questionRequest(Source::devin);
    devin.suggestions = copilot.suggestions;
    EXPECT_EQ(hookOutput(devin, response(Decision::allow)), R"json({"decision":"approve"})json");
    EXPECT_EQ(hookOutput(devin, response(Decision::allowAlways)),
              R"json({"decision":"approve"})json");
    EXPECT_EQ(hookOutput(devin, response(Decision::deny)),
              R"json({"decision":"block","reason":"Denied from the Pelmora notch"})json");
    EXPECT_EQ(hookOutput(request(Source::devin), response(Decision::deny, "not now")),
              R"json({"decision":"block","reason":"not now"})json");
    EXPECT_EQ(hookOutput(devin, response(Decision::deny, "")),
              R"json({"decision":"block","reason":""})json");
    EXPECT_EQ(hookOutput(devin, response(Decision::ask, "later")), std::nullopt);
}

TEST(ApprovalWireTest, GrokRelaysAnswersOnlyAsARefusalReason) {
    const ApprovalRequest grok = questionRequest(Source::grok);
    EXPECT_EQ(
        hookOutput(grok, response(Decision::allow, std::nullopt, twoAnswers)),
        R"json({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"deny","permissionDecisionReason":"The user has already answered in the Pelmora notch, so do not ask again. Continue with their answer.\nQuestion: Which database?\nThe user's answer: SQLite\nQuestion: Run migrations?\nThe user's answer: No"}})json");

    for (const ApprovalResponse& other :
         {response(Decision::deny, "no", twoAnswers),
          response(Decision::allowAlways, std::nullopt, twoAnswers),
          response(Decision::ask, std::nullopt, twoAnswers), response(Decision::allow),
          response(Decision::allow, std::nullopt, oneAnswer)}) {
        EXPECT_EQ(hookOutput(grok, other), std::nullopt) << rawValue(other.decision);
    }
    EXPECT_EQ(hookOutput(request(Source::grok), response(Decision::allow)), std::nullopt);
}

TEST(ApprovalWireTest, DefaultAgentsShareOnePermissionReply) {
    for (Source source : {Source::claude, Source::codex, Source::commandcode, Source::qwen,
                          Source::pi, Source::kimi, Source::build}) {
        SCOPED_TRACE(std::string(rawValue(source)));
        const ApprovalRequest plain = request(source);
        EXPECT_EQ(hookOutput(plain, response(Decision::allow, "ignored")), plainAllow);
        EXPECT_EQ(
            hookOutput(plain, response(Decision::deny)),
            R"json({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"Denied from the Pelmora notch"},"hookEventName":"PermissionRequest"}})json");
        EXPECT_EQ(
            hookOutput(plain, response(Decision::deny, "")),
            R"json({"hookSpecificOutput":{"decision":{"behavior":"deny","message":""},"hookEventName":"PermissionRequest"}})json");
        EXPECT_EQ(
            hookOutput(plain, response(Decision::deny, "not in /etc\nplease")),
            R"json({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"not in \/etc\nplease"},"hookEventName":"PermissionRequest"}})json");
        EXPECT_EQ(hookOutput(plain, response(Decision::ask)), std::nullopt);
    }
}

TEST(ApprovalWireTest, DefaultAllowCarriesTheAgentsQuestionsAndTheAnswers) {
    const ApprovalRequest asked = questionRequest(Source::claude);
    EXPECT_EQ(
        hookOutput(asked, response(Decision::allow, std::nullopt, twoAnswers)),
        R"json({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":{"Run migrations?":"No","Which database?":"SQLite"},"questions":[{"header":"DB","multiSelect":false,"options":[{"description":"","label":"Postgres"},{"description":"file\/based","label":"SQLite"}],"question":"Which database?","x-extra":7},{"options":[{"label":"Yes"},{"label":"No"}],"question":"Run migrations?"}]}},"hookEventName":"PermissionRequest"}})json");

    ApprovalRequest sameText = asked;
    (*sameText.questions)[1].question = "Which database?";
    sameText.questionsJSON = R"json([{"question":"Which database?"}])json";
    EXPECT_EQ(
        hookOutput(sameText, response(Decision::allow, std::nullopt, twoAnswers)),
        R"json({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":{"Which database?":"No"},"questions":[{"question":"Which database?"}]}},"hookEventName":"PermissionRequest"}})json");

    EXPECT_EQ(hookOutput(asked, response(Decision::allow)), std::nullopt);
    EXPECT_EQ(hookOutput(asked, response(Decision::allow, std::nullopt, oneAnswer)), std::nullopt);
    ApprovalRequest lostJSON = asked;
    for (std::optional<std::string> stored : {std::optional<std::string>(), {"[{\"question\":"}}) {
        lostJSON.questionsJSON = stored;
        EXPECT_EQ(hookOutput(lostJSON, response(Decision::allow, std::nullopt, twoAnswers)),
                  std::nullopt);
    }
}

TEST(ApprovalWireTest, AllowAlwaysPassesOnlyANonEmptySuggestionList) {
    ApprovalRequest always = questionRequest(Source::codex);
    EXPECT_EQ(hookOutput(always, response(Decision::allowAlways)), plainAllow);
    for (const char* suggestions : {"[]", R"json({"type":"addRules"})json", "[1,", "\"x\""}) {
        always.suggestions = suggestions;
        EXPECT_EQ(hookOutput(always, response(Decision::allowAlways)), plainAllow) << suggestions;
    }
    always.suggestions =
        R"json([{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm run build:*"}],"behavior":"allow","destination":"localSettings"}])json";
    EXPECT_EQ(
        hookOutput(always, response(Decision::allowAlways, "ignored", twoAnswers)),
        R"json({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedPermissions":[{"behavior":"allow","destination":"localSettings","rules":[{"ruleContent":"npm run build:*","toolName":"Bash"}],"type":"addRules"}]},"hookEventName":"PermissionRequest"}})json");
}

} // namespace
} // namespace pelmora
