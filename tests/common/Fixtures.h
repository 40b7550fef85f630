#pragma once

// What the tests stand on: a temporary folder, and stand-ins on real sockets
// through the listener the real servers use (the notch app played by a
// thread, another user played by a child process).

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/LocalSocket.h"

namespace pelmora::testing {

namespace LocalSocket = platform::LocalSocket;

// A fresh, short support directory under /tmp, removed with its contents.
class TempHome {
public:
    TempHome() {
        std::string pattern = "/tmp/pelmora-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    ~TempHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path sessions() const { return path_ / "sessions"; }
    std::filesystem::path socket() const { return path_ / "approval.sock"; }
    std::map<std::string, std::string> environment() const {
        return {{"PELMORA_HOME", path_.string()}};
    }

private:
    std::filesystem::path path_;
};

// A send that fails means the client gave up, which some tests provoke.
inline void sendAll(int fd, std::string_view bytes) {
    LocalSocket::sendAll(fd, bytes, LocalSocket::deadlineAfter(10));
}

// Reads each request line and hands the connection to a behaviour that
// answers in pieces, late, never, or with too much.
class StandInApp {
public:
    using Behaviour = std::function<void(int socketFD, const std::string& requestLine)>;
    StandInApp(const std::filesystem::path& socketPath, Behaviour behaviour)
        : listener_(socketPath, 64), behaviour_(std::move(behaviour)),
          thread_([this] { serve(); }) {}
    ~StandInApp() {
        stopping_ = true;
        thread_.join();
    }
    std::vector<std::string> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }

private:
    void serve() {
        while (!stopping_) {
            const FileDescriptor peer = listener_.accept(LocalSocket::deadlineAfter(0.02));
            if (peer.valid()) {
                auto line =
                    LocalSocket::readLine(peer.get(), LocalSocket::deadlineAfter(10), 1 << 20);
                std::unique_lock lock(mutex_);
                requests_.push_back(line.text);
                lock.unlock();
                behaviour_(peer.get(), line.text);
            }
        }
    }

    LocalSocket::Listener listener_;
    Behaviour behaviour_;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_; // last: starts once the rest is in place
};

// Runs `body` in a child process as the user nobody and exits with its
// result (125 when it cannot become nobody). Needs root.
class AsNobody {
public:
    static constexpr uid_t user = 65534;
    explicit AsNobody(const std::function<int()>& body) : pid_(::fork()) {
        if (pid_ == 0) {
            ::_exit(::setgid(user) == 0 && ::setuid(user) == 0 ? body() : 125);
        }
    }
    ~AsNobody() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            wait();
        }
    }
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_;
};

} // namespace pelmora::testing
