#include "platform/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace pelmora::platform {
namespace {

// Close-on-exec, and clear of 0 to 2: were a pipe end to land on the very
// descriptor the child should get it as (this process's own stdin closed),
// the dup2 onto itself would keep close-on-exec and the child would lose it.
bool safeForChild(FileDescriptor& end) {
    if (end.get() <= STDERR_FILENO) {
        int moved = ::fcntl(end.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (moved < 0) {
            return false;
        }
        end.reset(moved);
        return true;
    }
    return ::fcntl(end.get(), F_SETFD, FD_CLOEXEC) == 0;
}

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

std::optional<Pipe> makePipe() {
    int fds[2];
    if (::pipe(fds) != 0) {
        return std::nullopt;
    }
    Pipe made{FileDescriptor(fds[0]), FileDescriptor(fds[1])};
    if (!safeForChild(made.readEnd) || !safeForChild(made.writeEnd)) {
        return std::nullopt;
    }
    return made;
}

// Handlers go back to the default on exec by themselves; ignored signals
// would be inherited.
sigset_t ignoredSignals() {
    sigset_t ignored;
    sigemptyset(&ignored);
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction current {};
        if (::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN) {
            sigaddset(&ignored, signal);
        }
    }
    return ignored;
}

// posix_spawn's attribute objects, destroyed on every way out.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

} // namespace

std::optional<ChildProcess> ChildProcess::start(const std::vector<std::string>& arguments,
                                                const Options& options) {
    if (arguments.empty()) {
        errno = EINVAL;
        return std::nullopt;
    }
    SpawnSetup setup;
    ChildProcess child;
    // The child's ends, closed here once it has its copies.
    FileDescriptor childEnds[3];
    const bool wanted[3] = {options.pipeInput, options.pipeOutput, options.pipeErrors};
    FileDescriptor* ours[3] = {&child.input_, &child.output_, &child.errors_};
    for (int stream = 0; stream < 3; ++stream) {
        if (!wanted[stream]) {
            continue;
        }
        std::optional<Pipe> pipe = makePipe();
        if (!pipe) {
            return std::nullopt;
        }
        const bool childReads = stream == STDIN_FILENO;
        childEnds[stream] = std::move(childReads ? pipe->readEnd : pipe->writeEnd);
        *ours[stream] = std::move(childReads ? pipe->writeEnd : pipe->readEnd);
        posix_spawn_file_actions_adddup2(&setup.actions, childEnds[stream].get(), stream);
    }

    sigset_t defaults = ignoredSignals();
    posix_spawnattr_setsigdefault(&setup.attributes, &defaults);
    sigset_t noneBlocked;
    sigemptyset(&noneBlocked);
    posix_spawnattr_setsigmask(&setup.attributes, &noneBlocked);
    posix_spawnattr_setflags(&setup.attributes,
                             static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));

    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        // posix_spawn's signature predates const; it does not write.
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const int failed = (options.searchPath ? posix_spawnp : posix_spawn)(
        &child.pid_, argv[0], &setup.actions, &setup.attributes, argv.data(), environ);
    if (failed != 0) {
        errno = failed;
        return std::nullopt;
    }
    return child;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), input_(std::move(other.input_)),
      output_(std::move(other.output_)), errors_(std::move(other.errors_)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    if (this != &other) {
        pid_ = std::exchange(other.pid_, -1);
        input_ = std::move(other.input_);
        output_ = std::move(other.output_);
        errors_ = std::move(other.errors_);
    }
    return *this;
}

bool ChildProcess::writeInput(std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(input_.get(), bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::optional<ChildProcess::Termination> ChildProcess::wait() {
    if (pid_ <= 0) {
        return std::nullopt;
    }
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
        if (errno != EINTR) {
            return std::nullopt;
        }
    }
    pid_ = -1;
    if (WIFSIGNALED(status)) {
        return Termination{WTERMSIG(status), true};
    }
    return Termination{WIFEXITED(status) ? WEXITSTATUS(status) : 0, false};
}

} // namespace pelmora::platform
