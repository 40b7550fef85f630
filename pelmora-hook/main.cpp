// pelmora-hook: run by every coding agent on its lifecycle hooks, and by
// Claude Code as its status line. It sits on the agent's critical path, so
// every failure ends it quietly with status 0 and nothing on stderr: a broken
// or absent app must never block or fail an agent.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "approval/ApprovalClient.h"
#include "approval/ApprovalRecords.h"
#include "approval/ApprovalWire.h"
#include "hook/HostInfo.h"
#include "hook/PelmoraPaths.h"
#include "hook/ProcessInspector.h"
#include "hook/Source.h"
#include "integration/StatusLineInstaller.h"
#include "session/EventReducer.h"
#include "session/HookEvent.h"
#include "session/SessionRecord.h"
#include "session/SessionStore.h"
#include "support/Files.h"
#include "support/Time.h"
#include "support/Uuid.h"
#include "usage/ClaudeUsage.h"

extern char** environ;

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

// A decimal 32-bit signed integer with an optional sign, nothing else.
std::optional<std::int32_t> parseInt32(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + (c - '0');
        if (value > std::int64_t{INT32_MAX} + 1) {
            return std::nullopt;
        }
    }
    value = negative ? -value : value;
    if (value > INT32_MAX) {
        return std::nullopt;
    }
    return static_cast<std::int32_t>(value);
}

HostInfo::Environment readEnvironment() {
    HostInfo::Environment env;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        std::string_view text = *entry;
        std::size_t equals = text.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        env.emplace(std::string(text.substr(0, equals)), std::string(text.substr(equals + 1)));
    }
    return env;
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
            record.host = HostInfo::fromEnvironment(readEnvironment(), std::move(tty));
            if (agent) {
                record.pid = agent->pid;
                record.pidStartTime = agent->startTime;
            }
            stored = std::move(record);
        });
}

int runHookMode(int argc, char** argv) {
    alarm(guardSeconds);
    // The agent reads our stdout; if it has gone, a reply must not kill us.
    signal(SIGPIPE, SIG_IGN);
    // Under a file-size limit a long write must fail, not kill us mid-way.
    signal(SIGXFSZ, SIG_IGN);

    Source source = Source::claude;
    std::int32_t parentPID = getppid();
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        if ((argument == "--source" || argument == "--ppid") && i + 1 < argc) {
            std::string_view value = argv[++i];
            if (argument == "--source") {
                if (std::optional<Source> named = fromRaw<Source>(value)) {
                    source = *named;
                }
            } else if (std::optional<std::int32_t> pid = parseInt32(value); pid && *pid >= 2) {
                parentPID = *pid;
            }
        }
    }

    auto present = [](const char* name) { return std::getenv(name) != nullptr; };
    if (present("GROK_HOOK_EVENT")) {
        source = Source::grok;
    } else if (present("COMMANDCODE_HOOK_EVENT")) {
        source = Source::commandcode;
    }
    if (source == Source::claude) {
        if (present("DEVIN_PROJECT_DIR")) {
            source = Source::devin;
        } else if (present("QWEN_PROJECT_DIR")) {
            source = Source::qwen;
        } else if (present("CURSOR_PROJECT_DIR")) {
            return 0; // Cursor runs Claude's hooks too; its sessions are not ours to track.
        }
    }

    std::optional<std::string> input = Files::readAll(STDIN_FILENO);
    if (!input) {
        return 0;
    }
    std::optional<HookEvent> event = HookEvent::decode(*input);
    if (!event) {
        return 0;
    }
    input.reset();

    double now = Time::now();
    std::optional<ProcessInspector::Info> agent = ProcessInspector::agentProcess(parentPID);
    try {
        updateSession(*event, source, now, agent);
        SessionStore::postChangeNotification();
    } catch (...) {
        // A session that cannot be written must not stop the approval below.
    }

    bool asksHere =
        (event->name == "PermissionRequest" && supportsApprovals(source)) ||
        (event->name == "PreToolUse" && event->isQuestionTool() && asksOnPreToolUse(source));
    if (!asksHere) {
        return 0;
    }
    // The user's decision is bounded by the exchange's own timeout.
    alarm(0);

    std::optional<HookEvent::Questions> questions;
    if (supportsQuestions(source)) {
        questions = event->questions();
    }
    if (event->isQuestionTool() && !questions) {
        return 0;
    }

    ApprovalRequest request;
    request.id = randomUUID();
    request.source = source;
    request.sessionID = event->sessionID;
    request.cwd = event->cwd;
    request.tool = event->toolName;
    request.summary = event->toolSummary();
    request.suggestions = event->permissionSuggestions;
    if (questions) {
        request.questions = std::move(questions->questions);
        request.questionsJSON = std::move(questions->json);
    }

    std::optional<ApprovalResponse> answer =
        ApprovalClient::ask(request, approvalTimeout, PelmoraPaths::approvalSocket().native());
    if (!answer) {
        return 0;
    }
    std::optional<std::string> reply = ApprovalWire::hookOutput(request, *answer);
    if (!reply) {
        return 0;
    }
    reply->push_back('\n');
    Files::writeAll(STDOUT_FILENO, *reply);
    return 0;
}

// Runs the user's own status-line command with exactly the input Claude
// Code sent, and hands back its exit status.
int forwardToStatusLine(const std::string& command, std::string_view input) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return 0;
    }
    FileDescriptor readEnd(fds[0]);
    FileDescriptor writeEnd(fds[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, readEnd.get(), STDIN_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The user's command gets the signal dispositions it would get from a shell.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGALRM);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::string shell = "/bin/sh";
    std::string dashC = "-c";
    std::string commandText = command;
    char* childArgv[] = {shell.data(), dashC.data(), commandText.data(), nullptr};
    pid_t child = 0;
    int spawned = posix_spawn(&child, shell.c_str(), &actions, &attributes, childArgv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        return 0;
    }
    readEnd.reset();
    Files::writeAll(writeEnd.get(), input);
    writeEnd.reset();

    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return 0;
        }
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

int runStatusLineMode() {
    // A status-line command that exits without reading its input must not
    // take us down with SIGPIPE.
    signal(SIGPIPE, SIG_IGN);
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
    return forwardToStatusLine(*command, input);
}

bool hasArgument(int argc, char** argv, std::string_view wanted) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i] == wanted) {
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    struct sigaction guard {};
    guard.sa_handler = endQuietly;
    sigemptyset(&guard.sa_mask);
    sigaction(SIGALRM, &guard, nullptr);

    if (hasArgument(argc, argv, "--statusline")) {
        try {
            return runStatusLineMode();
        } catch (...) {
            return 0;
        }
    }
    try {
        return runHookMode(argc, argv);
    } catch (...) {
        return 0;
    }
}
