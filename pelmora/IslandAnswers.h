#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "approval/ApprovalRecords.h"

// A permission request or a set of questions waiting on the island, and
// what each key does to it. A permission takes one key; questions take one
// choice each, in order, and are answered together after the last.
namespace pelmora::cli {

namespace AnswerKeys {
inline constexpr int allow = 'a';
inline constexpr int allowAlways = 'A';
inline constexpr int deny = 'd';
// The agent asks the user in its own terminal instead.
inline constexpr int skip = 's';
// Ends the choice of a question that takes several options.
inline constexpr int done = '\n';
} // namespace AnswerKeys

class PendingApproval {
public:
    explicit PendingApproval(ApprovalRequest request) : request_(std::move(request)) {}

    const ApprovalRequest& request() const { return request_; }
    bool asksQuestions() const { return request_.questions && !request_.questions->empty(); }
    // The question being answered, and the options toggled so far when it
    // takes several.
    std::size_t questionIndex() const { return answers_.size(); }
    const std::vector<bool>& toggled() const { return toggled_; }
    const std::vector<std::string>& answers() const { return answers_; }

    // The answer to send once a key settles the request; none while it
    // does not (a choice before the last question, a toggle, a key that
    // means nothing here). Digits count options from 1; the options of a
    // question that takes several are joined with ", ".
    std::optional<ApprovalResponse> press(int key);

private:
    const Question& current() const { return (*request_.questions)[answers_.size()]; }

    ApprovalRequest request_;
    std::vector<std::string> answers_;
    std::vector<bool> toggled_;
};

} // namespace pelmora::cli
