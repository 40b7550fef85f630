#include "integration/ShellActivity.h"

#include "integration/ShellCommandFilter.h"
#include "platform/Platform.h"
#include "session/Redactor.h"
#include "session/SessionStore.h"
#include "support/Integers.h"

namespace pelmora::ShellActivity {

std::optional<Event> parse(bool finished, std::span<const std::string_view> arguments) {
    Event event;
    event.finished = finished;
    bool hasPID = false;
    bool hasStart = false;
    bool hasCwd = false;
    std::size_t at = 0;
    for (; at < arguments.size() && arguments[at] != "--"; at += 2) {
        if (at + 1 >= arguments.size()) {
            return std::nullopt;
        }
        const std::string_view name = arguments[at];
        const std::string_view value = arguments[at + 1];
        if (name == "--pid") {
            auto pid = parseInteger<std::int32_t>(value);
            if (!pid || *pid < 1) {
                return std::nullopt;
            }
            event.shellPID = *pid;
            hasPID = true;
        } else if (name == "--start") {
            auto start = parseInteger<std::int64_t>(value);
            if (!start || *start < 0) {
                return std::nullopt;
            }
            event.startTime = *start;
            hasStart = true;
        } else if (name == "--exit" && finished) {
            event.exitStatus = parseInteger<int>(value);
            if (!event.exitStatus) {
                return std::nullopt;
            }
        } else if (name == "--cwd") {
            event.cwd = value;
            hasCwd = true;
        } else {
            return std::nullopt;
        }
    }
    if (at >= arguments.size() || !hasPID || !hasStart || !hasCwd ||
        (finished && !event.exitStatus)) {
        return std::nullopt;
    }
    for (++at; at < arguments.size(); ++at) {
        if (!event.commandLine.empty()) {
            event.commandLine += ' ';
        }
        event.commandLine += arguments[at];
    }
    return event;
}

std::string sessionID(const Event& event) {
    return std::to_string(event.shellPID) + "-" + std::to_string(event.startTime);
}

bool record(const Event& event, const std::filesystem::path& sessionsDirectory, double now,
            const HostInfo::Environment& environment) {
    std::optional<ShellCommandFilter::Verdict> verdict;
    SessionState state = SessionState::working;
    if (event.finished) {
        auto ending = ShellCommandFilter::onEnd(event.commandLine, event.exitStatus.value_or(0));
        if (ending) {
            verdict = ending->verdict;
            state = ending->state;
        }
    } else {
        verdict = ShellCommandFilter::onStart(event.commandLine);
    }
    const std::string id = sessionID(event);
    std::error_code error;
    // Nothing to close: no session directory, lock file or record is made.
    if (!verdict || (state == SessionState::ended &&
                     !std::filesystem::exists(
                         SessionStore::fileURL(verdict->source, id, sessionsDirectory), error))) {
        return false;
    }

    bool written = false;
    SessionStore::update(
        verdict->source, id, sessionsDirectory, [&](std::optional<SessionRecord>& stored) {
            // A start never overwrites: the command's end may have been
            // recorded first. A quiet close never creates a record.
            if (stored ? !event.finished : state == SessionState::ended) {
                return;
            }
            if (!stored) {
                SessionRecord made =
                    SessionRecord::make(verdict->source, sessionID(event), event.cwd, now);
                made.turnStartedAt = static_cast<double>(event.startTime);
                made.title = Redactor::redact(event.commandLine, event.cwd);
                made.tool = verdict->tool;
                made.detail = verdict->provider;
                made.pid = event.shellPID;
                std::optional<platform::ProcessEntry> shell =
                    platform::processEntry(event.shellPID);
                if (shell) {
                    made.pidStartTime = shell->startTime;
                }
                made.host =
                    HostInfo::fromEnvironment(environment, shell ? shell->tty : std::nullopt);
                stored = std::move(made);
            }
            stored->state = state;
            stored->stateSince = now;
            stored->updatedAt = now;
            stored->lastEvent = event.finished ? "ShellEnd" : "ShellStart";
            stored->exitCode = event.exitStatus;
            written = true;
        });
    if (written) {
        SessionStore::postChangeNotification();
    }
    return written;
}

} // namespace pelmora::ShellActivity
