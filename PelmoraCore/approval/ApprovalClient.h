#pragma once

#include <optional>
#include <string_view>

#include "approval/ApprovalRecords.h"

namespace pelmora::ApprovalClient {

// One connection: one request line out, one reply line back, within
// `timeout` seconds. Every failure gives none, silently; the agent then asks
// the user in its own way.
std::optional<ApprovalResponse> ask(const ApprovalRequest& request, double timeout,
                                    std::string_view socketPath);

} // namespace pelmora::ApprovalClient
