#pragma once

#include <optional>
#include <string_view>

#include "approval/ApprovalRecords.h"

namespace pelmora::ApprovalClient {

// One connection: one request line out, one reply line back, all within
// `timeout` seconds (connecting and sending included). Only an app of this
// user is asked: a socket file or a listening process of another user gets
// no request. Every failure gives none, silently; the agent then asks the
// user in its own way.
std::optional<ApprovalResponse> ask(const ApprovalRequest& request, double timeout,
                                    std::string_view socketPath);

} // namespace pelmora::ApprovalClient
