#include "IslandAnswers.h"

#include <algorithm>

namespace pelmora::cli {

std::optional<ApprovalResponse> PendingApproval::press(int key) {
    if (key == AnswerKeys::deny) {
        return ApprovalResponse{ApprovalDecision::deny, std::nullopt, std::nullopt};
    }
    if (key == AnswerKeys::skip) {
        return ApprovalResponse{ApprovalDecision::ask, std::nullopt, std::nullopt};
    }
    if (!asksQuestions()) {
        if (key == AnswerKeys::allow) {
            return ApprovalResponse{ApprovalDecision::allow, std::nullopt, std::nullopt};
        }
        if (key == AnswerKeys::allowAlways) {
            return ApprovalResponse{ApprovalDecision::allowAlways, std::nullopt, std::nullopt};
        }
        return std::nullopt;
    }

    if (answers_.size() >= request_.questions->size()) {
        return std::nullopt; // answered already
    }
    const Question& question = current();
    toggled_.resize(question.options.size());
    const int choice = key - '1';
    if (choice >= 0 && static_cast<std::size_t>(choice) < question.options.size()) {
        const auto index = static_cast<std::size_t>(choice);
        if (question.multiSelect) {
            toggled_[index] = !toggled_[index];
            return std::nullopt;
        }
        answers_.push_back(question.options[index].label);
    } else if (key == AnswerKeys::done && question.multiSelect &&
               std::find(toggled_.begin(), toggled_.end(), true) != toggled_.end()) {
        std::string joined;
        for (std::size_t index = 0; index < toggled_.size(); ++index) {
            if (toggled_[index]) {
                joined += (joined.empty() ? "" : ", ") + question.options[index].label;
            }
        }
        answers_.push_back(std::move(joined));
    } else {
        return std::nullopt;
    }
    toggled_.clear();
    if (answers_.size() < request_.questions->size()) {
        return std::nullopt;
    }
    return ApprovalResponse{ApprovalDecision::allow, std::nullopt, answers_};
}

} // namespace pelmora::cli
