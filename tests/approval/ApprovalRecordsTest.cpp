#include "approval/ApprovalRecords.h"

#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

#include "approval/ApprovalWire.h"
#include "approval/HookApproval.h"
#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

JSONValue json(std::string_view text) {
    return OrderedJSON::parse(text);
}

const std::string questionsValue =
    R"([{"question":"Which?","header":"H","multiSelect":true,"x-extra":1,)"
    R"("options":[{"label":"A/B","description":"first"},{"label":"C"}]}])";

HookEvent event(std::string_view name, std::string_view tool, std::string_view more = "",
                const std::string& questions = questionsValue) {
    return HookEvent::decode(R"({"hook_event_name":")" + std::string(name) +
                             R"(","session_id":"s-1","cwd":"/w","tool_name":")" +
                             std::string(tool) + R"(","tool_input":{"questions":)" + questions +
                             std::string(more) + "}}")
        .value();
}

TEST(ApprovalRequest, BuiltFromTheEventEncodedAndReadBack) {
    std::optional<ApprovalRequest> minimal =
        HookApproval::request(HookEvent::decode(R"({"hookEventName":"permissionRequest",
            "sessionId":"s-1","workspaceRoot":"/w"})")
                                  .value(),
                              Source::copilot);
    ASSERT_TRUE(minimal);
    EXPECT_TRUE(std::regex_match(minimal->id, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                                         "[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
    minimal->id = "i";
    EXPECT_EQ(OrderedJSON::serializeCompact(minimal->toJSON()),
              R"({"cwd":"\/w","id":"i","sessionID":"s-1","source":"copilot"})");
    EXPECT_EQ(ApprovalRequest::fromJSON(minimal->toJSON()), minimal);

    HookEvent asked =
        event("PermissionRequest", "AskUserQuestion", R"(,"description":"For /w/db")");
    asked.permissionSuggestions = R"([{"type":"addRules"}])";
    std::optional<ApprovalRequest> full = HookApproval::request(asked, Source::claude);
    ASSERT_TRUE(full);
    full->id = "i";
    // The agent's question objects go out whole, extra keys and all, beside the parsed view.
    const std::string text =
        R"({"cwd":"\/w","id":"i","questions":[{"header":"H","multiSelect":true,"options":[)"
        R"({"description":"first","label":"A\/B"},{"description":"","label":"C"}],"question":)"
        R"("Which?"}],"questionsJSON":"[{\"header\":\"H\",\"multiSelect\":true,\"options\":[)"
        R"({\"description\":\"first\",\"label\":\"A\\\/B\"},{\"label\":\"C\"}],\"question\":)"
        R"(\"Which?\",\"x-extra\":1}]","sessionID":"s-1","source":"claude","suggestions":)"
        R"("[{\"type\":\"addRules\"}]","summary":"For db","tool":"AskUserQuestion"})";
    EXPECT_EQ(OrderedJSON::serializeCompact(full->toJSON()), text);
    EXPECT_EQ(ApprovalRequest::fromJSON(json(text)), full);

    const std::string base = R"("id":"i","source":"copilot","sessionID":"s-1","cwd":"/w"})";
    // A field of the wrong type, or a question or option missing a required
    // field, spoils the request (of two keys alike, the first counts).
    for (
        std::string_view first :
        {R"("tool":1)", R"("questions":{})", R"("cwd":3)", R"("source":"Copilot")",
         R"("questions":[{"question":"Q","options":[],"multiSelect":false}])",
         R"("questions":[{"question":"Q","header":"","options":[{"label":"L"}],"multiSelect":true}])"}) {
        EXPECT_EQ(ApprovalRequest::fromJSON(json("{" + std::string(first) + "," + base)),
                  std::nullopt)
            << first;
    }
}

TEST(Question, ParsesTheAgentsQuestionsOrNothing) {
    const auto parse = [](std::string_view text) {
        const JSONValue value = json(text);
        return Question::parse(&value);
    };
    // Missing or mistyped header, description and multiSelect fall back to
    // empty and false.
    EXPECT_EQ(parse(R"([{"question":"Q","options":[{"label":"A","description":7},{"label":"B",
                        "description":"b"}],"header":3,"multiSelect":"true"}])"),
              (std::vector<Question>{{"Q", "", {{"A", ""}, {"B", "b"}}, false}}));
    // `count` questions of `options` labelled options each.
    const auto list = [](const std::string& item, int count) {
        std::string text = "[";
        for (int i = 0; i < count; ++i) {
            text += (i > 0 ? "," : "") + item;
        }
        return text + "]";
    };
    const auto questions = [&](int count, int options) {
        return parse(
            list(R"({"question":"q","options":)" + list(R"({"label":"o"})", options) + "}", count));
    };
    EXPECT_EQ(questions(4, 6).value().size(), 4u);
    for (auto [count, options] : {std::pair{5, 1}, {1, 7}, {1, 0}, {0, 1}}) {
        EXPECT_EQ(questions(count, options), std::nullopt) << count << "x" << options;
    }
    // One unusable question or option spoils the whole list.
    for (std::string_view text : {R"([{"question":"","options":[{"label":"A"}]}])",
                                  R"([{"question":"Q","options":[{"label":"A"},{"label":""}]}])",
                                  R"([{"question":"Q","options":[{"label":"A"},"B"]}])", "{}"}) {
        EXPECT_EQ(parse(text), std::nullopt) << text;
    }
}

// Every row of the reply table goes through the built hook in
// tests/pelmora-hook; these are the replies no agent's event can reach.
TEST(ApprovalWire, RepliesNoAgentEventReaches) {
    ApprovalRequest asked;
    asked.source = Source::build;
    asked.questions = std::vector<Question>{{"Q?", "", {{"A", ""}}, false}, {"Q?", "", {}, false}};
    asked.questionsJSON = R"([{"question":"Q?"},{"question":"Q?","x":1}])";
    const ApprovalResponse answered{ApprovalDecision::allow, std::nullopt,
                                    std::vector<std::string>{"A", "B"}};
    // A source with no dialect of its own, activities included, gets the
    // standard one; of two questions alike the later answer wins.
    EXPECT_EQ(ApprovalWire::hookOutput(asked, answered),
              R"({"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":)"
              R"({"Q?":"B"},"questions":[{"question":"Q?"},{"question":"Q?","x":1}]}},)"
              R"("hookEventName":"PermissionRequest"}})");
    for (std::optional<std::string> stored : {std::optional<std::string>(), {"[{\"question\":"}}) {
        asked.questionsJSON = stored;
        EXPECT_EQ(ApprovalWire::hookOutput(asked, answered), std::nullopt);
    }
    // Only a non-empty list of rules goes back; anything else still allows.
    for (const char* suggestions : {"[]", R"({"type":"addRules"})", "[1,", "\"x\""}) {
        asked.suggestions = suggestions;
        EXPECT_EQ(
            ApprovalWire::hookOutput(asked, {ApprovalDecision::allowAlways, "", answered.answers}),
            R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},)"
            R"("hookEventName":"PermissionRequest"}})")
            << suggestions;
    }
}

TEST(HookApproval, AsksForPermissionsAndForGroksQuestionsOnly) {
    using enum Source;
    const std::set<Source> approvals{claude, codex, devin, qwen, copilot};
    const std::pair<HookEvent, std::set<Source>> cases[] = {
        {event("PermissionRequest", "Bash"), approvals},
        {event("permissionRequest", "AskUserQuestion"), approvals},
        {event("PreToolUse", "ask_user_question"), {grok}},
        {event("preToolUse", "AskUserQuestion", "", "[]"), {grok}},
        {event("PostToolUse", "askUserQuestion"), {}},
    };
    for (const auto& [hookEvent, asking] : cases) {
        for (Source source : allSources) {
            EXPECT_EQ(HookApproval::asksHere(hookEvent, source), asking.contains(source))
                << hookEvent.name << " " << *hookEvent.toolName << " from " << rawValue(source);
        }
    }
}

TEST(HookApproval, QuestionsOnlyWhereTheyCanBeAnswered) {
    // A question tool without questions to show is left to the agent, as is
    // every question tool of an agent that cannot take the answers.
    EXPECT_EQ(HookApproval::request(event("PermissionRequest", "AskUserQuestion"), Source::codex),
              std::nullopt);
    EXPECT_EQ(HookApproval::request(event("PermissionRequest", "ask_user_question", "", "[]"),
                                    Source::claude),
              std::nullopt);
    EXPECT_EQ(HookApproval::questions(event("PermissionRequest", "Ask")), std::nullopt);
    // Sets of 32 KiB or more stay with the agent.
    JSONValue padded = json(R"([{"question":"Q","options":[{"label":"L"}],"p":""}])");
    const std::size_t base = OrderedJSON::serializeCompact(padded).size();
    for (std::size_t size : {std::size_t{32767}, std::size_t{32768}}) {
        (*padded.arrayElements())[0].set("p", JSONValue::string(std::string(size - base, 'x')));
        const HookEvent asked = event("PermissionRequest", "AskUserQuestion", "",
                                      OrderedJSON::serializeCompact(padded));
        std::optional<HookApproval::Questions> questions = HookApproval::questions(asked);
        EXPECT_EQ(questions.has_value(), size < 32768) << size;
        EXPECT_EQ(questions ? questions->json.size() : size, size);
    }
}

} // namespace
} // namespace pelmora
