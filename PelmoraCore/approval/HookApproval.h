#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "approval/ApprovalRecords.h"
#include "hook/Source.h"
#include "session/HookEvent.h"

// What a decoded hook event asks of the app: whether this run relays it at
// all, the questions of a question tool, and the request that goes out.
namespace pelmora::HookApproval {

// A permission request from an agent that can take an allow or deny, or a
// question tool caught before it runs from the one agent that asks there
// (asksOnPreToolUse). Compares the canonical name, so camel-case agents
// count too.
bool asksHere(const HookEvent& event, Source source);

// Question sets whose JSON text is this long or longer stay with the agent.
inline constexpr std::size_t maxQuestionsJSON = 32768;

struct Questions {
    std::vector<Question> questions;
    // The agent's own "questions" value as compact JSON with sorted keys.
    std::string json;
    bool operator==(const Questions&) const = default;
};

// The questions of a question tool, with the exact JSON text to forward;
// none for any other tool, for questions that Question::parse refuses, and
// for sets of maxQuestionsJSON bytes or more.
std::optional<Questions> questions(const HookEvent& event);

// The request for the app, with a fresh id. None when the event is a
// question tool without questions this source can have answered (nothing to
// relay: the agent asks the user itself).
std::optional<ApprovalRequest> request(const HookEvent& event, Source source);

} // namespace pelmora::HookApproval
