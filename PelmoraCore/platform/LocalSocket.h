#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "platform/FileDescriptor.h"
#include "platform/Platform.h"

// Unix-domain stream sockets between the hook, the companion and the app,
// each end talking only to a process of the same user. Every call is
// bounded by a deadline; none raises SIGPIPE; none throws except
// Listener's constructor.
//
// A client, in short:
//
//     const auto deadline = LocalSocket::deadlineAfter(125);
//     LocalSocket::Connection app = LocalSocket::connect(path, deadline);
//     if (!app.error && LocalSocket::sendAll(app.fd.get(), line, deadline)) {
//         LocalSocket::ReadResult reply = LocalSocket::readLine(app.fd.get(), deadline, 65536);
//     }
//
// and a server:
//
//     LocalSocket::Listener listener(path);
//     FileDescriptor peer = listener.accept(LocalSocket::deadlineAfter(60));
namespace pelmora::platform::LocalSocket {

using Clock = std::chrono::steady_clock;

// The path field of the smallest sockaddr_un among the supported systems
// (macOS) holds 104 bytes with the terminating zero. Holding every system
// to it keeps a path that works here from failing on a Mac.
inline constexpr std::size_t maxPathBytes = 103;

// A deadline `seconds` from now; NaN or negative gives now, infinity or a
// huge value gives a deadline far enough away never to matter.
Clock::time_point deadlineAfter(double seconds);

// Whole milliseconds until the deadline as poll() takes them: rounded up, so
// a wait never ends just short of it; 0 once it has passed; capped at the
// largest int. A caller that wants shorter waits takes the min.
int millisecondsLeft(Clock::time_point deadline);

enum class ConnectError {
    pathTooLong, // empty, over maxPathBytes, or holding a NUL
    noSocket,    // socket() failed
    refused,     // nothing listening, connect failed, or the deadline passed
    notOurs,     // the socket file or the peer belongs to another user
};

struct Connection {
    FileDescriptor fd; // valid exactly when `error` is absent
    std::optional<ConnectError> error;
};

// Connects within the deadline (a listener that never accepts cannot hold
// the caller past it). Before connecting, the socket file must belong to
// this user; once connected, so must the peer process: another user's
// socket in a shared folder such as /tmp is never sent a byte. The
// descriptor is close-on-exec and raises no SIGPIPE.
Connection connect(std::string_view path, Clock::time_point deadline);

// Sends every byte before the deadline, waiting for room as needed; false
// on any failure (the peer gone: EPIPE, never SIGPIPE) or timeout.
bool sendAll(int fd, std::string_view bytes, Clock::time_point deadline);

enum class ReadStatus {
    line,     // `text` holds the line, without its line feed
    tooLong,  // maxBytes arrived without a line feed
    closed,   // end of stream (or a read error) before a whole line
    timedOut, // the deadline passed
    stopped,  // `shouldStop` said so (a signal arrived)
};
struct ReadResult {
    ReadStatus status = ReadStatus::closed;
    std::string text;
};

// Reads until the first line feed, in chunks of `chunkBytes`; bytes after
// that line feed are dropped. A line of `maxBytes` or more, with or without
// its line feed, is tooLong. An interrupted wait resumes with the time left;
// `shouldStop`, when given, is asked before every wait, so a signal handler
// that sets a flag ends the read promptly.
ReadResult readLine(int fd, Clock::time_point deadline, std::size_t maxBytes,
                    std::size_t chunkBytes = 4096, bool (*shouldStop)() = nullptr);

// The user id of the process at the other end, where the system can tell.
inline std::optional<std::uint32_t> peerUserID(int fd) {
    return platform::peerUserID(fd);
}

// A listening socket at `path`, owner-only (0600) from the moment it exists,
// whose file is removed when the listener goes (unless another has taken
// its place). A stale socket file that nobody answers on is replaced; a live
// listener, another user's socket, or a file that is not a socket is never
// touched (pelmora::Error, naming the path). The folder must exist.
class Listener {
public:
    explicit Listener(std::filesystem::path path, int backlog = 16);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int fd() const { return fd_.get(); }
    const std::filesystem::path& path() const { return path_; }

    // The next connection from a process of this user (blocking,
    // close-on-exec, without SIGPIPE), or an invalid descriptor when the
    // deadline passed, `shouldStop` said so, or only other users'
    // connections came (those are closed unanswered).
    FileDescriptor accept(Clock::time_point deadline, bool (*shouldStop)() = nullptr);

private:
    std::filesystem::path path_;
    FileDescriptor fd_;
    bool bound_ = false;
    dev_t device_ = 0; // the socket file this listener made, so that only it
    ino_t inode_ = 0;  // is removed on the way out
};

} // namespace pelmora::platform::LocalSocket
