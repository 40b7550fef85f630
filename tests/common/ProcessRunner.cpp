#include "common/ProcessRunner.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace pelmora::testing {
namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point after(double seconds) {
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60000));
}

// Close-on-exec on both ends: each child gets only the ends dup2'd into it.
void makePipe(FileDescriptor& readEnd, FileDescriptor& writeEnd) {
    int fds[2];
    if (::pipe(fds) != 0) {
        throw std::runtime_error("pipe failed");
    }
    readEnd.reset(fds[0]);
    writeEnd.reset(fds[1]);
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
}

std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& extra) {
    // Variables that would change the source, the support directory or the
    // output style of the programs under test.
    static const std::set<std::string, std::less<>> dropped = {"PELMORA_HOME",
                                                               "GROK_HOOK_EVENT",
                                                               "COMMANDCODE_HOOK_EVENT",
                                                               "DEVIN_PROJECT_DIR",
                                                               "QWEN_PROJECT_DIR",
                                                               "CURSOR_PROJECT_DIR",
                                                               "NO_COLOR",
                                                               "TERM_PROGRAM",
                                                               "TERM_SESSION_ID",
                                                               "ITERM_SESSION_ID",
                                                               "TMUX",
                                                               "__CFBundleIdentifier"};
    std::vector<std::string> entries;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const std::string_view name = text.substr(0, text.find('='));
        if (dropped.count(name) == 0 && extra.count(std::string(name)) == 0) {
            entries.emplace_back(text);
        }
    }
    for (const auto& [name, value] : extra) {
        entries.push_back(name + "=" + value);
    }
    return entries;
}

} // namespace

TempHome::TempHome() {
    std::string pattern = "/tmp/pelmora-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempHome::~TempHome() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::map<std::string, std::string> TempHome::environment() const {
    return {{"PELMORA_HOME", path_.string()}};
}

Child::Child(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment, std::string input,
             bool keepInputOpen)
    : input_(std::move(input)), keepInputOpen_(keepInputOpen), started_(Clock::now()) {
    // A child that exits before reading its input must not take the test along.
    ::signal(SIGPIPE, SIG_IGN);

    FileDescriptor childIn, childOut, childErr;
    makePipe(childIn, in_);
    makePipe(out_, childOut);
    makePipe(err_, childErr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childIn.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOut.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childErr.get(), STDERR_FILENO);

    std::vector<std::string> argumentCopy = arguments;
    std::vector<char*> argv;
    for (std::string& argument : argumentCopy) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> envStrings = childEnvironment(environment);
    std::vector<char*> envp;
    for (std::string& entry : envStrings) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    const int failed = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        pid_ = -1;
        throw std::runtime_error("cannot start " + arguments.front() + ": " +
                                 std::strerror(failed));
    }
    ::fcntl(in_.get(), F_SETFL, O_NONBLOCK);
    if (input_.empty() && !keepInputOpen_) {
        in_.reset();
    }
}

Child::~Child() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
}

void Child::pump(int timeoutMilliseconds) {
    pollfd entries[3];
    FileDescriptor* owners[3];
    nfds_t count = 0;
    if (in_.valid() && written_ < input_.size()) {
        entries[count] = {in_.get(), POLLOUT, 0};
        owners[count++] = &in_;
    }
    for (FileDescriptor* fd : {&out_, &err_}) {
        if (fd->valid()) {
            entries[count] = {fd->get(), POLLIN, 0};
            owners[count++] = fd;
        }
    }
    if (::poll(entries, count, timeoutMilliseconds) <= 0) {
        return;
    }
    for (nfds_t i = 0; i < count; ++i) {
        if (entries[i].revents == 0) {
            continue;
        }
        if (owners[i] == &in_) {
            const ssize_t sent =
                ::write(in_.get(), input_.data() + written_, input_.size() - written_);
            if (sent > 0) {
                written_ += static_cast<std::size_t>(sent);
            }
            if (sent < 0 && errno != EAGAIN && errno != EINTR) {
                in_.reset();
            } else if (written_ == input_.size() && !keepInputOpen_) {
                in_.reset();
            }
            continue;
        }
        char chunk[4096];
        const ssize_t got = ::read(owners[i]->get(), chunk, sizeof chunk);
        if (got > 0) {
            (owners[i] == &out_ ? outBuffer_ : errBuffer_)
                .append(chunk, static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            owners[i]->reset();
        }
    }
}

std::optional<std::string> Child::readLine(double seconds) {
    const Clock::time_point deadline = after(seconds);
    while (true) {
        const std::size_t end = outBuffer_.find('\n', outTaken_);
        if (end != std::string::npos) {
            std::string line = outBuffer_.substr(outTaken_, end - outTaken_);
            outTaken_ = end + 1;
            return line;
        }
        if (!out_.valid() || Clock::now() >= deadline) {
            return std::nullopt;
        }
        pump(millisecondsUntil(deadline));
    }
}

bool Child::stillRunningAfter(double seconds) {
    const Clock::time_point deadline = after(seconds);
    while (outputOpen() && Clock::now() < deadline) {
        pump(millisecondsUntil(deadline));
    }
    return outputOpen();
}

void Child::closeInput() {
    keepInputOpen_ = false;
    in_.reset();
}

Finished Child::finish(double seconds) {
    const Clock::time_point deadline = after(seconds);
    Finished result;
    while (outputOpen() && Clock::now() < deadline) {
        pump(millisecondsUntil(deadline));
    }
    int status = 0;
    while (true) {
        const pid_t waited = ::waitpid(pid_, &status, WNOHANG);
        if (waited == pid_) {
            break;
        }
        if (waited < 0 && errno != EINTR) {
            throw std::runtime_error("waitpid failed");
        }
        if (Clock::now() >= deadline) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
            result.killed = true;
            break;
        }
        ::usleep(2000);
    }
    pid_ = -1;
    in_.reset();
    if (WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    result.out = outBuffer_;
    result.err = errBuffer_;
    result.seconds = std::chrono::duration<double>(Clock::now() - started_).count();
    return result;
}

Finished run(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment, std::string input,
             double seconds) {
    Child child(arguments, environment, std::move(input));
    return child.finish(seconds);
}

void sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

StandInApp::StandInApp(const std::filesystem::path& socketPath, Behaviour behaviour)
    : behaviour_(std::move(behaviour)) {
    listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = socketPath.string();
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("socket path too long for the stand-in app");
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ::unlink(path.c_str());
    if (::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_.get(), 64) != 0) {
        throw std::runtime_error("cannot listen on " + path);
    }
    thread_ = std::thread([this] { serve(); });
}

StandInApp::~StandInApp() {
    stopping_ = true;
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
}

std::vector<std::string> StandInApp::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

void StandInApp::serve() {
    while (!stopping_) {
        pollfd ready{listener_.get(), POLLIN, 0};
        if (poll(&ready, 1, 50) <= 0) {
            continue;
        }
        FileDescriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection.valid()) {
            continue;
        }
        std::string line;
        char buffer[4096];
        while (line.find('\n') == std::string::npos) {
            ssize_t got = ::read(connection.get(), buffer, sizeof buffer);
            if (got <= 0) {
                break;
            }
            line.append(buffer, static_cast<std::size_t>(got));
        }
        line = line.substr(0, line.find('\n'));
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(line);
        }
        behaviour_(connection.get(), line);
    }
}

} // namespace pelmora::testing
