#include <system_error>

#include "platform/Executable.h"

namespace pelmora::platform {

std::optional<std::filesystem::path> executablePath() {
    std::error_code error;
    std::filesystem::path file = std::filesystem::canonical("/proc/self/exe", error);
    if (error) {
        return std::nullopt;
    }
    return file;
}

} // namespace pelmora::platform
