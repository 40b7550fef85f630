#pragma once

// Stand-ins on real sockets, through the listener the real servers use: the
// notch app played by a thread, another user played by a child process.

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/LocalSocket.h"

namespace pelmora::testing {

namespace LocalSocket = platform::LocalSocket;

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
