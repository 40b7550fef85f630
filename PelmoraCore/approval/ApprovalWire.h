#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "approval/ApprovalRecords.h"

namespace pelmora::ApprovalWire {

// Neither the request line nor the accumulated reply may reach this size.
inline constexpr std::size_t maxLine = 65536;
inline constexpr std::size_t readChunk = 4096;

// The one-line JSON reply that the request's agent expects on standard
// output, or none when that agent must get no output.
std::optional<std::string> hookOutput(const ApprovalRequest& request,
                                      const ApprovalResponse& response);

} // namespace pelmora::ApprovalWire
