#include "platform/LocalSocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/Error.h"

namespace pelmora::platform::LocalSocket {
namespace {

// Far enough never to matter (about 31 years), near enough that adding it to
// a steady-clock reading cannot overflow.
constexpr double foreverSeconds = 1e9;

std::optional<sockaddr_un> addressOf(std::string_view path) {
    // An empty path would name Linux's abstract namespace, not a file.
    if (path.empty() || path.size() > maxPathBytes || path.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

std::string describe(std::string_view what, int error) {
    return std::string(what) + ": " + std::strerror(error);
}

// SOCK_CLOEXEC does not exist on macOS; setting the flag right after creation
// leaves a window only for a fork in another thread of the same process.
FileDescriptor newSocket() {
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!fd.valid() || ::fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0) {
        return {};
    }
    suppressSigpipe(fd.get());
    return fd;
}

enum class Wait { ready, timedOut, stopped, failed };

// Readiness includes hang-up and error: the read or send that follows says which.
Wait waitFor(int fd, short events, Clock::time_point deadline, bool (*shouldStop)()) {
    for (;;) {
        if (shouldStop != nullptr && shouldStop()) {
            return Wait::stopped;
        }
        const int milliseconds = millisecondsLeft(deadline);
        if (milliseconds == 0) {
            return Wait::timedOut;
        }
        pollfd entry{fd, events, 0};
        const int ready = ::poll(&entry, 1, milliseconds);
        if (ready > 0) {
            return Wait::ready;
        }
        if (ready < 0 && errno != EINTR) {
            return Wait::failed;
        }
    }
}

// Linux makes connect() wait while the listener's backlog is full, for as
// long as the send timeout allows (forever by default: an app that listens
// but never accepts would hold the hook past every guard); macOS refuses at
// once. A local connect that a signal interrupted is left unconnected, so
// it is simply tried again with the time left.
bool connectWithin(int fd, const sockaddr_un& address, Clock::time_point deadline) {
    constexpr std::int64_t foreverMicroseconds =
        static_cast<std::int64_t>(foreverSeconds) * 1000000;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now());
        // At least a millisecond: a zero timeout means "no limit" to the kernel.
        const std::int64_t micro =
            std::clamp<std::int64_t>(left.count(), 1000, foreverMicroseconds);
        timeval limit{static_cast<time_t>(micro / 1000000),
                      static_cast<suseconds_t>(micro % 1000000)};
        if (::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
            return false;
        }
        if (::connect(fd, generic(address), sizeof address) == 0 || errno == EISCONN) {
            break;
        }
        if (errno != EINTR || Clock::now() >= deadline) {
            return false;
        }
    }
    // Later sends wait by poll() against their own deadline.
    timeval none{};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &none, sizeof none);
    return true;
}

Connection failure(ConnectError error) {
    return Connection{FileDescriptor(), error};
}

} // namespace

Clock::time_point deadlineAfter(double seconds) {
    const Clock::time_point now = Clock::now();
    if (!(seconds > 0)) {
        return now;
    }
    const double bounded = std::min(seconds, foreverSeconds);
    return now +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

int millisecondsLeft(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
}

Connection connect(std::string_view path, Clock::time_point deadline) {
    const std::optional<sockaddr_un> address = addressOf(path);
    if (!address) {
        return failure(ConnectError::pathTooLong);
    }
    // Another user can create the socket first where the path is shared
    // (/tmp). Its owner is checked before connecting, and the peer after, so
    // a file swapped in between is caught as well.
    struct stat info {};
    if (::stat(address->sun_path, &info) != 0 || !S_ISSOCK(info.st_mode)) {
        return failure(ConnectError::refused);
    }
    if (info.st_uid != userID()) {
        return failure(ConnectError::notOurs);
    }
    FileDescriptor fd = newSocket();
    if (!fd.valid()) {
        return failure(ConnectError::noSocket);
    }
    if (!connectWithin(fd.get(), *address, deadline)) {
        return failure(ConnectError::refused);
    }
    if (peerUserID(fd.get()) != userID()) {
        return failure(ConnectError::notOurs);
    }
    return Connection{std::move(fd), std::nullopt};
}

bool sendAll(int fd, std::string_view bytes, Clock::time_point deadline) {
    while (!bytes.empty()) {
        const ssize_t sent = sendNoSignal(fd, bytes.data(), bytes.size());
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent == 0 || (errno != EAGAIN && errno != EWOULDBLOCK) ||
            waitFor(fd, POLLOUT, deadline, nullptr) != Wait::ready) {
            return false;
        }
    }
    return true;
}

ReadResult readLine(int fd, Clock::time_point deadline, std::size_t maxBytes,
                    std::size_t chunkBytes, bool (*shouldStop)()) {
    chunkBytes = std::max<std::size_t>(chunkBytes, 1);
    std::string buffer;
    for (;;) {
        if (buffer.size() >= maxBytes) {
            return {ReadStatus::tooLong, {}};
        }
        switch (waitFor(fd, POLLIN, deadline, shouldStop)) {
        case Wait::ready:
            break;
        case Wait::timedOut:
            return {ReadStatus::timedOut, {}};
        case Wait::stopped:
            return {ReadStatus::stopped, {}};
        case Wait::failed:
            return {ReadStatus::closed, {}};
        }
        const std::size_t had = buffer.size();
        buffer.resize(had + chunkBytes);
        const ssize_t got = ::read(fd, buffer.data() + had, chunkBytes);
        buffer.resize(had + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
            continue;
        }
        if (got <= 0) {
            return {ReadStatus::closed, {}};
        }
        const std::size_t end = buffer.find('\n', had);
        if (end != std::string::npos) {
            if (end >= maxBytes) {
                return {ReadStatus::tooLong, {}};
            }
            buffer.resize(end);
            return {ReadStatus::line, std::move(buffer)};
        }
    }
}

Listener::Listener(std::filesystem::path path, int backlog) : path_(std::move(path)) {
    const std::optional<sockaddr_un> address = addressOf(path_.native());
    if (!address) {
        throw Error("the socket path is too long for a Unix socket", path_);
    }

    // A socket file that nobody answers on is left over from a listener that
    // did not clean up. A live one (it connects, or Linux says its backlog is
    // full; macOS refuses then, and such a socket passes for stale) is another
    // program's; a plain file is the user's.
    struct stat info {};
    if (::lstat(path_.c_str(), &info) == 0) {
        if (!S_ISSOCK(info.st_mode)) {
            throw Error("refusing to replace a file that is not a socket", path_);
        }
        if (info.st_uid != userID()) {
            throw Error("refusing to replace another user's socket", path_);
        }
        FileDescriptor probe = newSocket();
        if (!probe.valid() || ::fcntl(probe.get(), F_SETFL, O_NONBLOCK) != 0) {
            throw Error(describe("cannot create a socket", errno), path_);
        }
        if (::connect(probe.get(), generic(*address), sizeof *address) == 0 ||
            (errno != ECONNREFUSED && errno != ENOENT)) {
            throw Error("another program is already answering on this socket", path_);
        }
        ::unlink(path_.c_str());
    }

    fd_ = newSocket();
    if (!fd_.valid()) {
        throw Error(describe("cannot create a socket", errno), path_);
    }
    // Owner-only from the moment the file exists: a chmod after bind would
    // leave a moment in which another user could connect.
    const mode_t previous = ::umask(0177);
    const int bound = ::bind(fd_.get(), generic(*address), sizeof *address);
    const int bindError = errno;
    ::umask(previous);
    if (bound != 0) {
        throw Error(describe("cannot bind the socket", bindError), path_);
    }
    if (::lstat(path_.c_str(), &info) == 0) {
        bound_ = true;
        device_ = info.st_dev;
        inode_ = info.st_ino;
    }
    // Non-blocking, so a client that gives up between poll and accept cannot
    // leave accept() waiting past the deadline.
    if (::fcntl(fd_.get(), F_SETFL, O_NONBLOCK) != 0 || ::listen(fd_.get(), backlog) != 0) {
        const int error = errno;
        ::unlink(path_.c_str());
        bound_ = false;
        throw Error(describe("cannot listen on the socket", error), path_);
    }
}

Listener::~Listener() {
    struct stat info {};
    if (bound_ && ::lstat(path_.c_str(), &info) == 0 && info.st_dev == device_ &&
        info.st_ino == inode_) {
        ::unlink(path_.c_str());
    }
}

FileDescriptor Listener::accept(Clock::time_point deadline, bool (*shouldStop)()) {
    for (;;) {
        if (waitFor(fd_.get(), POLLIN, deadline, shouldStop) != Wait::ready) {
            return {};
        }
        FileDescriptor peer(::accept(fd_.get(), nullptr, nullptr));
        if (!peer.valid()) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK ||
                errno == ECONNABORTED) {
                continue; // the client gave up, or a signal came
            }
            return {};
        }
        // macOS hands the listener's O_NONBLOCK on to the connection; callers
        // get the same blocking socket on every system.
        const int flags = ::fcntl(peer.get(), F_GETFL);
        if (flags < 0 || ::fcntl(peer.get(), F_SETFL, flags & ~O_NONBLOCK) != 0 ||
            ::fcntl(peer.get(), F_SETFD, FD_CLOEXEC) != 0) {
            continue;
        }
        suppressSigpipe(peer.get());
        if (peerUserID(peer.get()) == userID()) {
            return peer;
        }
        // Another user's process: closed unanswered, and the wait goes on.
    }
}

} // namespace pelmora::platform::LocalSocket
