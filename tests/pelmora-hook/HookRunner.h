#pragma once

// Runs the built pelmora-hook as an agent does: bytes on stdin, arguments,
// a chosen environment, and a temporary PELMORA_HOME; and plays the notch app
// on the approval socket.

#include "support/Files.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace pelmora::testing {

struct RunResult {
    int exitStatus = -1; // -1 when killed by a signal
    int signal = 0;
    std::string out;
    std::string err;
    double seconds = 0;
    bool killed = false; // still running after the limit
};

struct RunOptions {
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment; // added to PATH and PELMORA_HOME
    std::string input;
    // Keep stdin open after writing the input, for this many seconds (0: close at once).
    double holdStdinOpen = 0;
    double killAfter = 20;
    // Called with the child's pid once it runs (for tests that watch it).
    std::function<void(pid_t)> started;
};

class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path sessions() const { return path_ / "sessions"; }
    std::filesystem::path socket() const { return path_ / "approval.sock"; }

private:
    std::filesystem::path path_;
};

RunResult runHook(const TempHome& home, const RunOptions& options);

// A stand-in for the notch app: accepts connections on the approval socket
// and answers each with `behaviour`, which gets the connected socket and
// the request line it read (without its line feed).
class StandInApp {
public:
    using Behaviour = std::function<void(int socketFD, const std::string& requestLine)>;
    StandInApp(const std::filesystem::path& socketPath, Behaviour behaviour);
    ~StandInApp();
    StandInApp(const StandInApp&) = delete;
    StandInApp& operator=(const StandInApp&) = delete;

    std::vector<std::string> requests() const;

private:
    void serve();
    FileDescriptor listener_;
    Behaviour behaviour_;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

void sendAll(int fd, std::string_view bytes);

} // namespace pelmora::testing
