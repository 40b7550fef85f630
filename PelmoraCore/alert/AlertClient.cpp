#include "alert/AlertClient.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "alert/AlertWire.h"
#include "json/OrderedJSON.h"
#include "platform/LocalSocket.h"

namespace pelmora::AlertClient {
namespace {

namespace LocalSocket = platform::LocalSocket;

class SystemWait final : public ReplyWait {
public:
    double now() override {
        return std::chrono::duration<double>(LocalSocket::Clock::now().time_since_epoch()).count();
    }
    int wait(int fd, int milliseconds) override {
        pollfd waiter{fd, POLLIN, 0};
        return ::poll(&waiter, 1, milliseconds);
    }
};

AlertOutcome decodeReply(std::string_view line) {
    const std::optional<JSONValue> json = OrderedJSON::tryParse(line);
    const std::optional<AlertReply> reply = json ? AlertReply::fromJSON(*json) : std::nullopt;
    if (!reply) {
        return AlertOutcome::failed("unexpected reply");
    }
    return reply->outcome();
}

// Reads until the first line feed. The waits are cut into pieces of at
// most AlertWire::maxWaitMilliseconds, so the deadline is checked again
// after each.
AlertOutcome awaitReply(int fd, double timeout, ReplyWait& replyWait) {
    const double deadline = replyWait.now() + timeout;
    std::string reply;
    char chunk[AlertWire::readChunk];
    while (true) {
        if (reply.size() >= AlertWire::maxReply) {
            return AlertOutcome::failed("unexpected answer");
        }
        const double left = deadline - replyWait.now();
        if (!(left > 0)) { // NaN included
            return AlertOutcome::failed("Pelmora did not answer");
        }
        // Rounded up, so that a sliver of time left is not a wait of none.
        const double leftMilliseconds = std::ceil(left * 1000);
        const bool capped = leftMilliseconds > AlertWire::maxWaitMilliseconds;
        const int ready = replyWait.wait(fd, capped ? AlertWire::maxWaitMilliseconds
                                                    : static_cast<int>(leftMilliseconds));
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            return AlertOutcome::failed("could not read the answer");
        }
        if (ready == 0) {
            if (capped) {
                continue;
            }
            return AlertOutcome::failed("Pelmora did not answer");
        }

        ssize_t received = 0;
        do {
            received = ::read(fd, chunk, sizeof chunk);
        } while (received < 0 && errno == EINTR);
        if (received <= 0) {
            return AlertOutcome::notRunning(); // the app went away
        }
        const std::size_t searchFrom = reply.size();
        reply.append(chunk, static_cast<std::size_t>(received));
        const std::size_t lineEnd = reply.find('\n', searchFrom);
        if (lineEnd != std::string::npos) {
            return decodeReply(std::string_view(reply).substr(0, lineEnd));
        }
    }
}

} // namespace

AlertOutcome send(const AlertRequest& request, std::string_view socketPath, double timeout) {
    SystemWait systemWait;
    return send(request, socketPath, timeout, systemWait);
}

AlertOutcome send(const AlertRequest& request, std::string_view socketPath, double timeout,
                  ReplyWait& replyWait) {
    std::string line = OrderedJSON::serializeCompact(request.toJSON());
    if (line.size() >= AlertWire::maxLine) {
        return AlertOutcome::failed("too large");
    }
    line += '\n';

    // An app that is hung with a full backlog cannot hold the caller past
    // the timeout while connecting or sending either.
    const LocalSocket::Clock::time_point deadline = LocalSocket::deadlineAfter(timeout);
    const LocalSocket::Connection connection = LocalSocket::connect(socketPath, deadline);
    if (connection.error) {
        switch (*connection.error) {
        case LocalSocket::ConnectError::pathTooLong:
            return AlertOutcome::failed("socket path too long");
        case LocalSocket::ConnectError::noSocket:
            return AlertOutcome::failed("could not open a socket");
        case LocalSocket::ConnectError::refused:
        case LocalSocket::ConnectError::notOurs:
            return AlertOutcome::notRunning();
        }
    }
    if (!LocalSocket::sendAll(connection.fd.get(), line, deadline)) {
        return AlertOutcome::notRunning();
    }
    return awaitReply(connection.fd.get(), timeout, replyWait);
}

} // namespace pelmora::AlertClient
