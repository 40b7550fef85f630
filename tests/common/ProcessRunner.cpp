#include "common/ProcessRunner.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <stdexcept>
#include <sys/resource.h>

extern char** environ;

namespace pelmora::testing {
namespace {

using Clock = std::chrono::steady_clock;

FileDescriptor scratchFile() {
    char name[] = "/tmp/pelmora-output-XXXXXX";
    FileDescriptor fd(::mkstemp(name));
    ::unlink(name);
    ::fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
    return fd;
}

std::string contents(const FileDescriptor& fd) {
    std::string text;
    char chunk[4096];
    for (ssize_t got;
         (got = ::pread(fd.get(), chunk, sizeof chunk, static_cast<off_t>(text.size()))) > 0;) {
        text.append(chunk, static_cast<std::size_t>(got));
    }
    return text;
}

std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& extra) {
    // Variables that would change the source, the support directory or the
    // output style of the programs under test.
    constexpr std::string_view dropped =
        " PELMORA_HOME GROK_HOOK_EVENT COMMANDCODE_HOOK_EVENT DEVIN_PROJECT_DIR QWEN_PROJECT_DIR"
        " CURSOR_PROJECT_DIR NO_COLOR TERM_PROGRAM TERM_SESSION_ID ITERM_SESSION_ID TMUX"
        " __CFBundleIdentifier ";
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string name(*entry, std::strcspn(*entry, "="));
        if (dropped.find(" " + name + " ") == std::string_view::npos && extra.count(name) == 0) {
            entries.emplace_back(*entry);
        }
    }
    for (const auto& [name, value] : extra) {
        entries.push_back(name + "=" + value);
    }
    return entries;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result(strings.size() + 1, nullptr);
    std::transform(strings.begin(), strings.end(), result.begin(),
                   [](std::string& text) { return text.data(); });
    return result;
}

} // namespace

Child::Child(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment, std::string input,
             bool keepInputOpen, std::optional<std::uint64_t> fileSizeLimit)
    : out_(scratchFile()), err_(scratchFile()), input_(std::move(input)),
      keepInputOpen_(keepInputOpen), started_(Clock::now()) {
    // A child that exits before reading its input must not take the test along.
    ::signal(SIGPIPE, SIG_IGN);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0 || !out_.valid() || !err_.valid()) {
        throw std::runtime_error("no pipe or output file");
    }
    FileDescriptor childIn(fds[0]);
    in_.reset(fds[1]);
    std::vector<std::string> argumentCopy = arguments, envStrings = childEnvironment(environment);
    const std::vector<char*> argv = pointers(argumentCopy), envp = pointers(envStrings);
    const rlimit limit{fileSizeLimit.value_or(RLIM_INFINITY),
                       fileSizeLimit.value_or(RLIM_INFINITY)};

    // Only async-signal-safe calls between fork and exec, as the test may
    // have threads; the child gets SIGPIPE as an agent would leave it.
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(childIn.get(), STDIN_FILENO);
        ::dup2(out_.get(), STDOUT_FILENO);
        ::dup2(err_.get(), STDERR_FILENO);
        ::signal(SIGPIPE, SIG_DFL);
        if (!fileSizeLimit || ::setrlimit(RLIMIT_FSIZE, &limit) == 0) {
            ::execve(argv[0], argv.data(), envp.data());
        }
        ::_exit(127);
    }
    if (pid_ < 0) {
        throw std::runtime_error("cannot start " + arguments.front());
    }
    feeder_ = std::thread([this] {
        Files::writeAll(in_.get(), input_);
        if (!keepInputOpen_) {
            in_.reset();
        }
    });
}

Child::~Child() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status_, 0);
    }
    closeInput();
}

bool Child::ended() {
    if (::waitpid(pid_, &status_, WNOHANG) != pid_) {
        return false;
    }
    pid_ = -1;
    return true;
}

std::optional<std::string> Child::readLine(double seconds) {
    for (const auto deadline = LocalSocket::deadlineAfter(seconds);; ::usleep(2000)) {
        const std::string out = contents(out_);
        const std::size_t end = out.find('\n', outTaken_);
        if (end != std::string::npos) {
            std::string line = out.substr(outTaken_, end - outTaken_);
            outTaken_ = end + 1;
            return line;
        }
        if (Clock::now() >= deadline) {
            return std::nullopt;
        }
    }
}

bool Child::stillRunningAfter(double seconds) {
    const auto deadline = LocalSocket::deadlineAfter(seconds);
    while (pid_ > 0 && !ended() && Clock::now() < deadline) {
        ::usleep(2000);
    }
    return pid_ > 0;
}

void Child::closeInput() {
    if (feeder_.joinable()) {
        feeder_.join();
    }
    in_.reset();
}

Finished Child::finish(double seconds) {
    Finished result;
    if ((result.killed = stillRunningAfter(seconds))) {
        ::kill(pid_, SIGKILL);
        ::waitpid(std::exchange(pid_, -1), &status_, 0);
    }
    closeInput();
    result.exitStatus = WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
    result.signal = WIFSIGNALED(status_) ? WTERMSIG(status_) : 0;
    result.out = contents(out_);
    result.err = contents(err_);
    result.seconds = std::chrono::duration<double>(Clock::now() - started_).count();
    return result;
}

Finished run(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment, std::string input,
             double seconds) {
    return Child(arguments, environment, std::move(input)).finish(seconds);
}

} // namespace pelmora::testing
