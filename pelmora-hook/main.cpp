// pelmora-hook: run by every coding agent on its lifecycle hooks, and by
// Claude Code as its status line. It sits on the agent's critical path, so
// every failure ends it quietly with status 0 and nothing on stderr: a broken
// or absent app must never block or fail an agent.

#include <csignal>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unistd.h>

#include "approval/ApprovalClient.h"
#include "approval/ApprovalWire.h"
#include "approval/HookApproval.h"
#include "hook/HookInvocation.h"
#include "hook/HostInfo.h"
#include "hook/PelmoraPaths.h"
#include "hook/ProcessInspector.h"
#include "integration/StatusLineInstaller.h"
#include "platform/ChildProcess.h"
#include "session/EventReducer.h"
#include "session/HookEvent.h"
#include "session/SessionRecord.h"
#include "session/SessionStore.h"
#include "support/Files.h"
#include "support/Time.h"
#include "usage/ClaudeUsage.h"

namespace {

using namespace pelmora;

// Long enough for a slow process table or a contended session lock, short
// enough that an agent never notices a hook whose stdin is never closed.
constexpr unsigned guardSeconds = 2;
// The user may take a while to decide in the notch.
constexpr double approvalTimeout = 125;

void endQuietly(int) {
    _exit(0);
}

bool environmentHas(std::string_view name) {
    return std::getenv(std::string(name).c_str()) != nullptr;
}

void updateSession(const HookEvent& event, Source source, double now,
                   const std::optional<ProcessInspector::Info>& agent) {
    SessionStore::update(
        source, event.sessionID, PelmoraPaths::sessionsDirectory(),
        [&](std::optional<SessionRecord>& stored) {
            // Moving out is safe: an untracked event resets `stored` below.
            SessionRecord record =
                stored ? std::move(*stored)
                       : SessionRecord::make(source, event.sessionID, event.cwd, now);
            if (!EventReducer::apply(event, record, now)) {
                // Untracked: the stored file stays exactly as it is, unwritten.
                stored.reset();
                return;
            }
            // A later event from a process without a terminal must not erase
            // the terminal an earlier one found.
            std::optional<std::string> tty = agent && agent->tty ? agent->tty : record.host.tty;
            record.host = HostInfo::fromEnvironment(HostInfo::processEnvironment(), std::move(tty));
            if (agent) {
                record.pid = agent->pid;
                record.pidStartTime = agent->startTime;
            }
            stored = std::move(record);
        });
}

int runHookMode(const HookInvocation& invocation) {
    std::optional<std::string> input = Files::readAll(STDIN_FILENO);
    if (!input) {
        return 0;
    }
    std::optional<HookEvent> event = HookEvent::decode(*input);
    if (!event) {
        return 0;
    }
    input.reset();

    // An event no session keeps is worth neither a look at the process table
    // nor the session's lock: it costs a run little more than reading it.
    if (EventReducer::tracks(*event)) {
        double now = Time::now();
        std::optional<ProcessInspector::Info> agent =
            ProcessInspector::agentProcess(invocation.parentPID);
        try {
            updateSession(*event, invocation.source, now, agent);
            SessionStore::postChangeNotification();
        } catch (...) {
            // A session that cannot be written must not stop the approval below.
        }
    }

    if (!HookApproval::asksHere(*event, invocation.source)) {
        return 0;
    }
    // The user's decision is bounded by the exchange's own timeout.
    alarm(0);
    std::optional<ApprovalRequest> request = HookApproval::request(*event, invocation.source);
    if (!request) {
        return 0;
    }
    std::optional<ApprovalResponse> answer =
        ApprovalClient::ask(*request, approvalTimeout, PelmoraPaths::approvalSocket().native());
    if (!answer) {
        return 0;
    }
    std::optional<std::string> reply = ApprovalWire::hookOutput(*request, *answer);
    if (!reply) {
        return 0;
    }
    reply->push_back('\n');
    Files::writeAll(STDOUT_FILENO, *reply);
    return 0;
}

int runStatusLineMode() {
    std::string input = Files::readAll(STDIN_FILENO).value_or(std::string());

    if (std::optional<std::string> usage = ClaudeUsage::record(input, Time::now())) {
        try {
            std::filesystem::path file = ClaudeUsage::file();
            PelmoraPaths::ensureDirectory(file.parent_path());
            Files::atomicReplace(file, *usage, 0600);
        } catch (...) {
            // The status line itself matters more than the usage figures.
        }
    }

    std::optional<std::string> command =
        StatusLineInstaller::originalCommand(StatusLineInstaller::originalFile());
    if (!command) {
        return 0;
    }
    // The user's command gets exactly the input Claude Code sent.
    auto shell = platform::ChildProcess::start({"/bin/sh", "-c", *command}, {.pipeInput = true});
    if (!shell) {
        return 0;
    }
    shell->writeInput(input);
    shell->closeInput();
    std::optional<platform::ChildProcess::Termination> end = shell->wait();
    return end ? end->status : 0;
}

} // namespace

int main(int argc, char** argv) {
    struct sigaction guard {};
    guard.sa_handler = endQuietly;
    sigemptyset(&guard.sa_mask);
    sigaction(SIGALRM, &guard, nullptr);
    // A reader that has gone (the agent, or a status-line command that never
    // reads its input) and a file-size limit must each fail a write, not
    // kill the process with a signal.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);

    try {
        // An exec with no arguments at all leaves argc at 0.
        std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc > 0 ? argc : 0));
        const HookInvocation invocation = HookInvocation::read(
            arguments.subspan(arguments.empty() ? 0 : 1), getppid(), environmentHas);
        switch (invocation.mode) {
        case HookInvocation::Mode::statusLine:
            return runStatusLineMode();
        case HookInvocation::Mode::notOurs:
            return 0;
        case HookInvocation::Mode::hook:
            alarm(guardSeconds);
            return runHookMode(invocation);
        }
    } catch (...) {
        // Whatever went wrong, the agent carries on as if no hook had run.
    }
    return 0;
}
