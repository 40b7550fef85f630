#pragma once

// Runs the built executables as a person or an agent does: arguments, an
// environment with its own PELMORA_HOME, bytes on stdin; and keeps a
// long-running one (the approvals stand-in) going while the test talks to it.

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "support/Files.h"

namespace pelmora::testing {

struct Finished {
    int exitStatus = -1; // -1 when ended by a signal
    int signal = 0;
    bool killed = false; // still running at the limit, so killed
    std::string out;
    std::string err;
    double seconds = 0; // from start to end
};

// A fresh, short support directory under /tmp, removed with its contents.
class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path sessions() const { return path_ / "sessions"; }
    std::filesystem::path socket() const { return path_ / "approval.sock"; }
    // PELMORA_HOME for a child.
    std::map<std::string, std::string> environment() const;

private:
    std::filesystem::path path_;
};

class Child {
public:
    // `arguments` starts with the program's path. The child gets this
    // process's environment without any variable that would change what the
    // programs under test do, plus `environment`. Standard input is closed
    // once the input is written, unless `keepInputOpen`.
    Child(const std::vector<std::string>& arguments,
          const std::map<std::string, std::string>& environment, std::string input = {},
          bool keepInputOpen = false);
    ~Child(); // kills a child that is still running
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }

    // The next line of standard output without its line feed, or none when
    // no whole line came within `seconds` or the output ended.
    std::optional<std::string> readLine(double seconds);

    // Collects output for `seconds`; true when the child's output is still open then.
    bool stillRunningAfter(double seconds);
    void closeInput();

    // Waits for the child to end, collecting the rest of its output; kills it
    // after `seconds`.
    Finished finish(double seconds = 20);

private:
    // One round of waiting: writes pending input, reads what is there.
    void pump(int timeoutMilliseconds);
    bool outputOpen() const { return out_.valid() || err_.valid(); }

    pid_t pid_ = -1;
    FileDescriptor in_;
    FileDescriptor out_;
    FileDescriptor err_;
    std::string input_;
    std::size_t written_ = 0;
    bool keepInputOpen_ = false;
    std::chrono::steady_clock::time_point started_;
    std::string outBuffer_;
    std::string errBuffer_;
    std::size_t outTaken_ = 0; // bytes already handed out by readLine
};

Finished run(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& environment, std::string input = {},
             double seconds = 20);

// The two executables under test.
inline std::string cliBinary() {
    return PELMORA_CLI_BINARY;
}
inline std::string hookBinary() {
    return PELMORA_HOOK_BINARY;
}

// A stand-in for the notch app: accepts connections on the approval socket
// and answers each with `behaviour`, which gets the connected socket and the
// request line it read (without its line feed).
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
