#pragma once

#include <filesystem>
#include <optional>

namespace pelmora::platform {

// The file this process was started from, with links resolved; none when
// the system will not say. `pelmora install` copies the programs it finds
// beside it, so it must not trust argv[0], which the caller chooses.
std::optional<std::filesystem::path> executablePath();

} // namespace pelmora::platform
