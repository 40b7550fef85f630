#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "hook/Source.h"

namespace pelmora::AgentDetection {

// home joined with the agent's configuration folder (never its alternative);
// none for activities.
std::optional<std::filesystem::path> configDirectory(Source source,
                                                     const std::filesystem::path& home);
// The agents whose configuration folder, or its alternative, exists, in
// declaration order.
std::vector<Source> detected(const std::filesystem::path& home);

} // namespace pelmora::AgentDetection
