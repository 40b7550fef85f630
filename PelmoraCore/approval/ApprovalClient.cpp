#include "approval/ApprovalClient.h"

#include <string>

#include "approval/ApprovalWire.h"
#include "json/OrderedJSON.h"
#include "platform/LocalSocket.h"

namespace pelmora::ApprovalClient {

namespace LocalSocket = platform::LocalSocket;

std::optional<ApprovalResponse> ask(const ApprovalRequest& request, double timeout,
                                    std::string_view socketPath) {
    std::string line = OrderedJSON::serializeCompact(request.toJSON());
    if (line.size() >= ApprovalWire::maxLine) {
        return std::nullopt;
    }
    line.push_back('\n');

    // One deadline for connecting, sending and waiting: the hook has lifted
    // its 2-second guard, so an app that listens but never accepts or never
    // reads must not hold it any longer than one that never answers. The
    // socket file and the peer must be this user's, or nothing is sent.
    const LocalSocket::Clock::time_point deadline = LocalSocket::deadlineAfter(timeout);
    const LocalSocket::Connection app = LocalSocket::connect(socketPath, deadline);
    if (app.error || !LocalSocket::sendAll(app.fd.get(), line, deadline)) {
        return std::nullopt;
    }
    const LocalSocket::ReadResult reply = LocalSocket::readLine(
        app.fd.get(), deadline, ApprovalWire::maxLine, ApprovalWire::readChunk);
    if (reply.status != LocalSocket::ReadStatus::line) {
        return std::nullopt;
    }
    const std::optional<JSONValue> json = OrderedJSON::tryParse(reply.text);
    if (!json) {
        return std::nullopt;
    }
    return ApprovalResponse::fromJSON(*json);
}

} // namespace pelmora::ApprovalClient
