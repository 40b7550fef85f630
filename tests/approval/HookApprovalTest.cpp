#include "approval/HookApproval.h"

#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

HookEvent event(std::string_view json) {
    return HookEvent::decode(json).value();
}

const std::string questionsValue =
    R"([{"question":"Which?","header":"Pick","multiSelect":false,"x-extra":1,)"
    R"("options":[{"label":"A/B","description":"first"},{"label":"C"}]}])";

HookEvent question(std::string_view name, std::string_view tool, const std::string& questions) {
    return event(R"({"hook_event_name":")" + std::string(name) +
                 R"(","session_id":"s","cwd":"/w","tool_name":")" + std::string(tool) +
                 R"(","tool_input":{"questions":)" + questions + "}}");
}

TEST(HookApproval, AsksForPermissionsAndForGroksQuestionsOnly) {
    using enum Source;
    const std::set<Source> approvals{claude, codex, devin, qwen, copilot};
    const std::pair<HookEvent, std::set<Source>> cases[] = {
        {event(R"({"hook_event_name":"PermissionRequest","session_id":"s","tool_name":"Bash"})"),
         approvals},
        {event(R"({"hookEventName":"permissionRequest","sessionId":"s"})"), approvals},
        {question("PermissionRequest", "AskUserQuestion", questionsValue), approvals},
        {question("PreToolUse", "ask_user_question", questionsValue), {grok}},
        {question("preToolUse", "AskUserQuestion", "[]"), {grok}},
        {question("PreToolUse", "askUserQuestion", questionsValue), {}},
        {question("PostToolUse", "AskUserQuestion", questionsValue), {}},
        {event(R"({"hook_event_name":"Notification","session_id":"s",)"
               R"("notification_type":"permission_prompt"})"),
         {}},
    };
    for (const auto& [hookEvent, asking] : cases) {
        for (Source source : allSources) {
            EXPECT_EQ(HookApproval::asksHere(hookEvent, source), asking.contains(source))
                << hookEvent.name << " " << hookEvent.toolName.value_or("") << " from "
                << rawValue(source);
        }
    }
}

TEST(HookApproval, RequestCarriesTheEventWithARedactedSummaryAndAFreshId) {
    const HookEvent permission = event(
        R"({"session_id":"s-1","cwd":"/Users/ann/shop","hook_event_name":"PermissionRequest",)"
        R"("tool_name":"Bash","tool_input":{"command":"rm -rf /Users/ann/shop/build"},)"
        R"("permission_suggestions":[{"type":"addRules","behavior":"allow"}]})");
    std::optional<ApprovalRequest> request = HookApproval::request(permission, Source::codex);
    ASSERT_TRUE(request);
    EXPECT_TRUE(std::regex_match(
        request->id,
        std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
    EXPECT_NE(HookApproval::request(permission, Source::codex)->id, request->id);
    request->id = "i";
    EXPECT_EQ(OrderedJSON::serializeCompact(request->toJSON()),
              R"({"cwd":"\/Users\/ann\/shop","id":"i","sessionID":"s-1","source":"codex",)"
              R"("suggestions":"[{\"behavior\":\"allow\",\"type\":\"addRules\"}]",)"
              R"("summary":"rm -rf build","tool":"Bash"})");
}

TEST(HookApproval, QuestionsGoOutWholeOnlyWhereTheyCanBeAnswered) {
    const std::string sorted =
        R"([{"header":"Pick","multiSelect":false,"options":[{"description":"first","label":"A\/B"},)"
        R"({"label":"C"}],"question":"Which?","x-extra":1}])";
    const std::vector<Question> parsed{{"Which?", "Pick", {{"A/B", "first"}, {"C", ""}}, false}};
    const HookEvent asked = question("PermissionRequest", "AskUserQuestion", questionsValue);
    std::optional<ApprovalRequest> request = HookApproval::request(asked, Source::claude);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->questions, parsed);
    EXPECT_EQ(request->questionsJSON, sorted);
    // A question tool without questions that can be shown is left to the
    // agent, as is every question tool of an agent that cannot take answers.
    EXPECT_EQ(HookApproval::request(asked, Source::codex), std::nullopt);
    EXPECT_EQ(HookApproval::request(question("PermissionRequest", "AskUserQuestion", "[]"),
                                    Source::claude),
              std::nullopt);
    EXPECT_EQ(HookApproval::questions(question("PermissionRequest", "Ask", questionsValue)),
              std::nullopt);

    // Sets of 32 KiB or more stay with the agent.
    JSONValue padded = OrderedJSON::parse(R"([{"question":"Q","options":[{"label":"L"}],"p":""}])");
    const std::size_t base = OrderedJSON::serializeCompact(padded).size();
    for (std::size_t size : {std::size_t{32767}, std::size_t{32768}}) {
        (*padded.arrayElements())[0].set("p", JSONValue::string(std::string(size - base, 'x')));
        const HookEvent big =
            question("PermissionRequest", "AskUserQuestion", OrderedJSON::serializeCompact(padded));
        std::optional<HookApproval::Questions> questions = HookApproval::questions(big);
        EXPECT_EQ(questions.has_value(), size < 32768) << size;
        EXPECT_EQ(questions ? questions->json.size() : size, size);
    }
}

} // namespace
} // namespace pelmora
