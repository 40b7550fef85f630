#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "platform/FileDescriptor.h"

namespace pelmora::platform {

// A program started with posix_spawn, with any of its standard streams on a
// pipe to this process and the rest shared with it. The child starts with
// an empty signal mask and with every signal this process ignores back at
// its default, as a shell would start it: the hook ignores SIGPIPE and
// SIGXFSZ for itself, not for the user's commands.
//
//     auto shell = ChildProcess::start({"/bin/sh", "-c", command}, {.pipeInput = true});
//     shell->writeInput(json);
//     shell->closeInput();
//     int status = shell->wait()->status;
//
// Reading output()/errors() as the child writes is the caller's loop (poll
// both: a child blocked on a full stderr pipe never closes its stdout).
class ChildProcess {
public:
    struct Options {
        bool pipeInput = false;
        bool pipeOutput = false;
        bool pipeErrors = false;
        // Look arguments[0] up in PATH when it holds no slash.
        bool searchPath = false;
    };

    struct Termination {
        // The exit status, or the number of the signal that ended the child.
        int status = 0;
        bool signalled = false;
        bool operator==(const Termination&) const = default;
    };

    // Starts arguments[0] with `arguments` and this process's environment.
    // None when it cannot be started (errno says why).
    static std::optional<ChildProcess> start(const std::vector<std::string>& arguments,
                                             const Options& options);

    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // Closes this side's pipes; a child not waited for keeps running.
    ~ChildProcess() = default;

    pid_t pid() const { return pid_; }
    // This side's ends of the pipes asked for; invalid for shared streams.
    FileDescriptor& input() { return input_; }
    FileDescriptor& output() { return output_; }
    FileDescriptor& errors() { return errors_; }

    // Writes all of `bytes` to the child's input. False when that fails, for
    // instance because the child ended without reading it all; a caller that
    // does not ignore SIGPIPE is killed by that instead.
    bool writeInput(std::string_view bytes);
    // End of input for the child.
    void closeInput() { input_.reset(); }

    // Blocks until the child ends. None when it cannot be waited for (it
    // already was, or the system refuses).
    std::optional<Termination> wait();

private:
    ChildProcess() = default;

    pid_t pid_ = -1;
    FileDescriptor input_;
    FileDescriptor output_;
    FileDescriptor errors_;
};

} // namespace pelmora::platform
