#include <cstdint>
#include <mach-o/dyld.h>
#include <string>
#include <system_error>

#include "platform/Executable.h"

namespace pelmora::platform {

std::optional<std::filesystem::path> executablePath() {
    std::uint32_t size = 0;
    ::_NSGetExecutablePath(nullptr, &size);
    std::string buffer(size, '\0');
    if (size == 0 || ::_NSGetExecutablePath(buffer.data(), &size) != 0) {
        return std::nullopt;
    }
    buffer.resize(std::char_traits<char>::length(buffer.c_str()));
    // The loader's path may hold links and "..", and may name a link.
    std::error_code error;
    std::filesystem::path file = std::filesystem::canonical(buffer, error);
    if (error) {
        return std::nullopt;
    }
    return file;
}

} // namespace pelmora::platform
