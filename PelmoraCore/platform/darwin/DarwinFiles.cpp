#include <sys/stat.h>

#include "platform/Platform.h"

namespace pelmora::platform {

std::optional<FileStamp> fileStamp(const std::filesystem::path& file) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) {
        return std::nullopt;
    }
    return FileStamp{static_cast<double>(info.st_mtimespec.tv_sec) +
                         static_cast<double>(info.st_mtimespec.tv_nsec) / 1e9,
                     static_cast<std::int64_t>(info.st_size)};
}

} // namespace pelmora::platform
