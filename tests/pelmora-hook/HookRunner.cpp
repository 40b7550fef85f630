#include "HookRunner.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace pelmora::testing {

namespace {

double monotonicSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void setNonBlocking(int fd) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

} // namespace

TempHome::TempHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "pelmora-hook-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempHome::~TempHome() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
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

RunResult runHook(const TempHome& home, const RunOptions& options) {
    int inPipe[2], outPipe[2], errPipe[2];
    if (pipe2(inPipe, O_CLOEXEC) != 0 || pipe2(outPipe, O_CLOEXEC) != 0 ||
        pipe2(errPipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    FileDescriptor stdinWrite(inPipe[1]), stdoutRead(outPipe[0]), stderrRead(errPipe[0]);
    FileDescriptor stdinRead(inPipe[0]), stdoutWrite(outPipe[1]), stderrWrite(errPipe[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, stdinRead.get(), 0);
    posix_spawn_file_actions_adddup2(&actions, stdoutWrite.get(), 1);
    posix_spawn_file_actions_adddup2(&actions, stderrWrite.get(), 2);

    std::map<std::string, std::string> environment = options.environment;
    environment.emplace("PATH", "/usr/bin:/bin");
    environment.emplace("PELMORA_HOME", home.path().string());
    std::vector<std::string> envText;
    for (const auto& [name, value] : environment) {
        envText.push_back(name + "=" + value);
    }
    std::vector<char*> envp;
    for (std::string& entry : envText) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    std::string binary = PELMORA_HOOK_BINARY;
    std::vector<std::string> argText{binary};
    argText.insert(argText.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> argv;
    for (std::string& entry : argText) {
        argv.push_back(entry.data());
    }
    argv.push_back(nullptr);

    double start = monotonicSeconds();
    pid_t child = 0;
    int spawned = posix_spawn(&child, binary.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        throw std::runtime_error("cannot start " + binary);
    }
    stdinRead.reset();
    stdoutWrite.reset();
    stderrWrite.reset();
    if (options.started) {
        options.started(child);
    }

    setNonBlocking(stdinWrite.get());
    setNonBlocking(stdoutRead.get());
    setNonBlocking(stderrRead.get());

    RunResult result;
    std::string_view pending = options.input;
    bool inputDone = false;
    auto finishInput = [&] {
        inputDone = true;
        if (options.holdStdinOpen <= 0) {
            stdinWrite.reset();
        }
    };
    if (pending.empty()) {
        finishInput();
    }
    double inputFinishedAt = inputDone ? start : -1;

    while (stdoutRead.valid() || stderrRead.valid()) {
        double now = monotonicSeconds();
        if (now - start > options.killAfter) {
            kill(child, SIGKILL);
            result.killed = true;
            break;
        }
        if (inputDone && stdinWrite.valid() && now - inputFinishedAt >= options.holdStdinOpen) {
            stdinWrite.reset();
        }
        pollfd fds[3];
        nfds_t count = 0;
        auto watch = [&](const FileDescriptor& fd, short events) {
            if (fd.valid()) {
                fds[count++] = pollfd{fd.get(), events, 0};
            }
        };
        watch(stdoutRead, POLLIN);
        watch(stderrRead, POLLIN);
        if (!inputDone) {
            watch(stdinWrite, POLLOUT);
        }
        poll(fds, count, 20);
        for (nfds_t i = 0; i < count; ++i) {
            if (fds[i].revents == 0) {
                continue;
            }
            if (fds[i].fd == stdinWrite.get()) {
                ssize_t written = ::write(stdinWrite.get(), pending.data(), pending.size());
                if (written > 0) {
                    pending.remove_prefix(static_cast<std::size_t>(written));
                } else if (written < 0 && errno != EAGAIN && errno != EINTR) {
                    pending = {};
                }
                if (pending.empty()) {
                    finishInput();
                    inputFinishedAt = monotonicSeconds();
                }
                continue;
            }
            bool isOut = fds[i].fd == stdoutRead.get();
            char buffer[65536];
            ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                (isOut ? result.out : result.err).append(buffer, static_cast<std::size_t>(got));
            } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                (isOut ? stdoutRead : stderrRead).reset();
            }
        }
    }
    stdinWrite.reset();

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.seconds = monotonicSeconds() - start;
    if (WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    return result;
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
