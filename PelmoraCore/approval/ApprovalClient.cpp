#include "approval/ApprovalClient.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "approval/ApprovalWire.h"
#include "json/OrderedJSON.h"
#include "platform/Platform.h"
#include "support/Files.h"

namespace pelmora::ApprovalClient {
namespace {

// The path field of the smallest sockaddr_un among the supported systems
// (macOS) holds 104 bytes including the terminating zero. Holding every
// system to it keeps a path that works here from failing on a Mac.
constexpr std::size_t maxSocketPathBytes = 103;
constexpr double maxPollMilliseconds = 2147483647.0;

FileDescriptor connectTo(std::string_view socketPath) {
    // An empty path would name Linux's abstract namespace, not a file.
    if (socketPath.empty() || socketPath.size() > maxSocketPathBytes ||
        socketPath.find('\0') != std::string_view::npos) {
        return {};
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.data(), socketPath.size());

    // SOCK_CLOEXEC does not exist on macOS; the hook command is single-threaded,
    // so setting the flag right after creation leaves no window for a fork.
    FileDescriptor socketFD(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!socketFD.valid() || ::fcntl(socketFD.get(), F_SETFD, FD_CLOEXEC) != 0) {
        return {};
    }
    platform::suppressSigpipe(socketFD.get());
    // An interrupted connect carries on in the background and cannot simply be
    // repeated; it is rare enough on a local socket to count as a failure.
    if (::connect(socketFD.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        return {};
    }
    return socketFD;
}

bool writeLine(int socketFD, const std::string& line) {
    ssize_t written = 0;
    do {
        written = platform::sendNoSignal(socketFD, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    return written >= 0 && static_cast<std::size_t>(written) == line.size();
}

// Whole milliseconds, rounded up so that the wait never ends before the
// deadline and a sliver of time left is not mistaken for none.
int pollMilliseconds(double secondsLeft) {
    const double milliseconds = std::ceil(secondsLeft * 1000.0);
    return milliseconds >= maxPollMilliseconds ? static_cast<int>(maxPollMilliseconds)
                                               : static_cast<int>(milliseconds);
}

std::optional<ApprovalResponse> decodeLine(std::string_view line) {
    const auto json = OrderedJSON::tryParse(line);
    if (!json) {
        return std::nullopt;
    }
    return ApprovalResponse::fromJSON(*json);
}

} // namespace

std::optional<ApprovalResponse> ask(const ApprovalRequest& request, double timeout,
                                    std::string_view socketPath) {
    std::string line = OrderedJSON::serializeCompact(request.toJSON());
    if (line.size() >= ApprovalWire::maxLine) {
        return std::nullopt;
    }
    line.push_back('\n');

    const FileDescriptor socketFD = connectTo(socketPath);
    if (!socketFD.valid() || !writeLine(socketFD.get(), line)) {
        return std::nullopt;
    }

    // Kept in doubles so that any timeout, infinite or not a number, stays
    // well defined: NaN leaves no time at all, infinity waits in capped steps.
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const auto secondsLeft = [&] {
        return timeout - std::chrono::duration<double>(Clock::now() - start).count();
    };

    std::string reply;
    char chunk[ApprovalWire::readChunk];
    while (true) {
        if (reply.size() >= ApprovalWire::maxLine) {
            return std::nullopt;
        }
        const double left = secondsLeft();
        if (!(left > 0)) {
            return std::nullopt;
        }
        pollfd waiter{socketFD.get(), POLLIN, 0};
        const int ready = ::poll(&waiter, 1, pollMilliseconds(left));
        if (ready < 0 && errno == EINTR) {
            continue; // a signal: wait again for what is left, not the whole timeout
        }
        if (ready <= 0) {
            return std::nullopt;
        }

        ssize_t received = 0;
        do {
            received = ::read(socketFD.get(), chunk, sizeof(chunk));
        } while (received < 0 && errno == EINTR);
        if (received <= 0) {
            return std::nullopt;
        }

        const std::size_t searchFrom = reply.size();
        reply.append(chunk, static_cast<std::size_t>(received));
        const std::size_t lineEnd = reply.find('\n', searchFrom);
        if (lineEnd != std::string::npos) {
            return decodeLine(std::string_view(reply).substr(0, lineEnd));
        }
    }
}

} // namespace pelmora::ApprovalClient
