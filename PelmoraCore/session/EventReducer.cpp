#include "session/EventReducer.h"

#include <optional>
#include <string_view>

#include "session/Redactor.h"
#include "session/TaskTitle.h"

namespace pelmora::EventReducer {

namespace {

enum class Rule {
    sessionStart,
    userPromptSubmit,
    preToolUse,
    permissionRequest,
    toolFinished,
    notification,
    preCompact,
    stop,
    stopFailure,
    interrupt,
    sessionEnd,
    untracked,
};

bool isTrackedNotification(const std::optional<std::string>& type) {
    return type && (*type == "permission_prompt" || *type == "elicitation_dialog");
}

Rule ruleFor(const HookEvent& event) {
    std::optional<HookEventName> kind = event.kind();
    if (!kind) {
        return Rule::untracked;
    }
    switch (*kind) {
    case HookEventName::sessionStart:
        return Rule::sessionStart;
    case HookEventName::userPromptSubmit:
        return Rule::userPromptSubmit;
    case HookEventName::preToolUse:
        return Rule::preToolUse;
    case HookEventName::permissionRequest:
        return Rule::permissionRequest;
    case HookEventName::postToolUse:
    case HookEventName::postToolUseFailure:
    case HookEventName::postToolBatch:
    case HookEventName::postCompact:
    case HookEventName::postCompaction:
    case HookEventName::subagentStart:
        return Rule::toolFinished;
    case HookEventName::notification:
        // An idle prompt or any other notice is not a wait the session shows.
        return isTrackedNotification(event.notificationType) ? Rule::notification : Rule::untracked;
    case HookEventName::preCompact:
        return Rule::preCompact;
    case HookEventName::stop:
        return Rule::stop;
    case HookEventName::stopFailure:
        return Rule::stopFailure;
    case HookEventName::interrupt:
        return Rule::interrupt;
    case HookEventName::sessionEnd:
        return Rule::sessionEnd;
    case HookEventName::subagentStop:
        return Rule::untracked;
    }
    return Rule::untracked;
}

// stateSince marks a real change of state, so repeating the current state
// must leave it alone.
void enter(SessionRecord& record, SessionState state, double now) {
    if (record.state == state) {
        return;
    }
    record.state = state;
    record.stateSince = now;
}

std::optional<std::string_view> view(const std::optional<std::string>& text) {
    if (!text) {
        return std::nullopt;
    }
    return std::string_view(*text);
}

std::string failureSummary(const HookEvent& event, std::string_view projectDir) {
    if (event.lastAssistantMessage) {
        return Redactor::redact(*event.lastAssistantMessage, projectDir);
    }
    if (event.error) {
        return Redactor::redact(*event.error, projectDir);
    }
    return "Turn failed";
}

} // namespace

bool tracks(const HookEvent& event) {
    return ruleFor(event) != Rule::untracked;
}

bool apply(const HookEvent& event, SessionRecord& record, double now) {
    const Rule rule = ruleFor(event);
    // The caller throws away the record of an untracked event, so there is
    // nothing to gain from touching it.
    if (rule == Rule::untracked) {
        return false;
    }

    if (!event.cwd.empty()) {
        record.cwd = event.cwd;
    }
    record.lastEvent = event.name;
    record.updatedAt = now;

    switch (rule) {
    case Rule::sessionStart:
        if (event.source && *event.source == "clear") {
            record.title.reset();
        }
        // A resumed session keeps showing its last result, but a failure or
        // an ended session starts over.
        if (record.state == SessionState::failed || record.state == SessionState::ended) {
            enter(record, SessionState::idle, now);
        }
        break;
    case Rule::userPromptSubmit:
        if (std::optional<std::string> title =
                TaskTitle::make(view(event.prompt), view(event.source), record.cwd)) {
            record.title = std::move(*title);
        }
        // Qwen Code sends an empty prompt when it goes on after a tool's result
        // or a permission answer: the turn it continues keeps its start.
        if (!(event.prompt && event.prompt->empty() && record.turnStartedAt &&
              (record.state == SessionState::working || record.state == SessionState::awaiting))) {
            record.turnStartedAt = now;
        }
        record.tool.reset();
        record.summary.reset();
        enter(record, SessionState::working, now);
        break;
    case Rule::preToolUse:
        // A turn may begin with a tool and no prompt event.
        if (!record.turnStartedAt || record.state == SessionState::idle ||
            record.state == SessionState::done) {
            record.turnStartedAt = now;
        }
        record.tool = event.toolName;
        record.summary = event.toolSummary();
        enter(record, event.isQuestionTool() ? SessionState::awaiting : SessionState::working, now);
        break;
    case Rule::permissionRequest:
        // A request without tool details keeps those of the tool use before it.
        if (event.toolName) {
            record.tool = event.toolName;
        }
        if (std::optional<std::string> summary = event.toolSummary()) {
            record.summary = std::move(summary);
        }
        enter(record, SessionState::awaiting, now);
        break;
    case Rule::toolFinished:
        if (record.state == SessionState::awaiting || record.state == SessionState::compacting) {
            enter(record, SessionState::working, now);
        }
        break;
    case Rule::notification:
        // A second notice of the same wait must not replace the first one's
        // summary, which usually names the tool.
        if (record.state != SessionState::awaiting) {
            if (event.message) {
                record.summary = Redactor::redact(*event.message, record.cwd);
            }
            enter(record, SessionState::awaiting, now);
        }
        break;
    case Rule::preCompact:
        enter(record, SessionState::compacting, now);
        break;
    case Rule::stop:
        record.tool.reset();
        enter(record, SessionState::done, now);
        break;
    case Rule::stopFailure:
        record.tool.reset();
        record.summary = failureSummary(event, record.cwd);
        enter(record, SessionState::failed, now);
        break;
    case Rule::interrupt:
        record.tool.reset();
        enter(record, SessionState::idle, now);
        break;
    case Rule::sessionEnd:
        enter(record, SessionState::ended, now);
        break;
    case Rule::untracked:
        return false;
    }
    return true;
}

} // namespace pelmora::EventReducer
