#pragma once

// Runs the built executables as a person or an agent does: arguments, an
// environment with its own PELMORA_HOME, bytes on stdin; and keeps a
// long-running one (the approvals stand-in) going while the test talks to it.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "common/Fixtures.h"
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

// `arguments` starts with the program's path. The child gets this process's
// environment without any variable that would change what the programs under
// test do, plus `environment`; standard input is closed once the input is
// written, unless `keepInputOpen`; with `fileSizeLimit`, no file may grow
// past that many bytes (as under `ulimit -f`).
class Child {
public:
    Child(const std::vector<std::string>& arguments,
          const std::map<std::string, std::string>& environment, std::string input = {},
          bool keepInputOpen = false, std::optional<std::uint64_t> fileSizeLimit = std::nullopt);
    ~Child(); // kills a child that is still running
    // The next line of standard output, without its line feed, if one comes in time.
    std::optional<std::string> readLine(double seconds);
    bool stillRunningAfter(double seconds);
    void closeInput();
    Finished finish(double seconds = 20); // kills the child after `seconds`

private:
    bool ended(); // reaps the child once it has exited
    pid_t pid_ = -1;
    int status_ = 0;
    FileDescriptor in_;
    FileDescriptor out_; // unlinked files: output is read whenever the test likes
    FileDescriptor err_;
    std::string input_;
    bool keepInputOpen_ = false;
    std::thread feeder_; // input may exceed a pipe's buffer
    std::chrono::steady_clock::time_point started_;
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

} // namespace pelmora::testing
