#pragma once

#include <string_view>

#include "alert/AlertRecords.h"

// Hands a validated alert to the running app over its alert socket and
// turns the answer into an outcome. Blocking, never throws; every failure
// is an outcome:
//   notRunning                    nothing accepts on the socket, the socket
//                                 belongs to another user, or the app went
//                                 away before answering
//   failed "too large"            the request line would reach AlertWire::maxLine
//   failed "socket path too long" the path does not fit a socket address
//   failed "could not open a socket"
//   failed "Pelmora did not answer"     no line within `timeout` seconds
//   failed "unexpected answer"          AlertWire::maxReply bytes without a line feed
//   failed "could not read the answer"  waiting for the answer failed
//   failed "unexpected reply"           the line is not an AlertReply
// and otherwise AlertReply::outcome of the app's reply.
//
//     const AlertOutcome outcome =
//         AlertClient::send(request, PelmoraPaths::alertSocket().string(), 10);
//     std::puts(outcome.message().c_str());
//     return outcome.exitCode();
namespace pelmora::AlertClient {

// The clock and the wait for the reply, which a test replaces to follow a
// long timeout's waits without spending them.
class ReplyWait {
public:
    virtual ~ReplyWait() = default;
    // Seconds on a clock that never goes back.
    virtual double now() = 0;
    // Waits at most `milliseconds` for `fd` to become readable, and answers
    // as poll(2) does: above 0 readable (or closed), 0 timed out, -1 with errno.
    virtual int wait(int fd, int milliseconds) = 0;
};

AlertOutcome send(const AlertRequest& request, std::string_view socketPath, double timeout);
AlertOutcome send(const AlertRequest& request, std::string_view socketPath, double timeout,
                  ReplyWait& replyWait);

} // namespace pelmora::AlertClient
