#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

#include "platform/DirectoryWatch.h"
#include "platform/Error.h"

namespace pelmora::platform {
namespace {

// Writers replace files by renaming a temporary over them (moved to), the
// app deletes them, and an editor may write in place (close after write).
// Lock and temporary files raise notices too; a rescan skips them cheaply.
constexpr std::uint32_t folderEvents = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM |
                                       IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

DirectoryWatch::DirectoryWatch(const std::filesystem::path& directory, const char*,
                               std::string suffix)
    : directory_(directory), suffix_(std::move(suffix)),
      fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ < 0) {
        throw Error(std::string("cannot watch the folder: ") + std::strerror(errno), directory_);
    }
    if (!rearm()) {
        const int error = errno;
        ::close(fd_);
        throw Error(std::string("cannot watch the folder: ") + std::strerror(error), directory_);
    }
}

DirectoryWatch::~DirectoryWatch() {
    ::close(fd_);
}

bool DirectoryWatch::rearm() {
    if (watch_ < 0) {
        watch_ = ::inotify_add_watch(fd_, directory_.c_str(), folderEvents);
    }
    return watch_ >= 0;
}

DirectoryWatch::Changes DirectoryWatch::drain() {
    Changes changes;
    alignas(inotify_event) char buffer[8192];
    for (;;) {
        const ssize_t got = ::read(fd_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return changes;
        }
        for (ssize_t offset = 0; offset < got;) {
            inotify_event event{};
            std::memcpy(&event, buffer + offset, sizeof event);
            // The name is padded with NULs to its length.
            const std::string_view name(buffer + offset + sizeof event,
                                        ::strnlen(buffer + offset + sizeof event, event.len));
            // An event without a name is the folder's own (it went away), and
            // an overflowed queue has lost names: either way, read it all.
            if (event.len == 0 || (event.mask & IN_Q_OVERFLOW) != 0) {
                changes.everything = true;
            } else if (name.ends_with(suffix_)) {
                changes.names.emplace(name);
            }
            // The kernel drops the watch once the folder is gone.
            if ((event.mask & IN_IGNORED) != 0 && event.wd == watch_) {
                watch_ = -1;
            }
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event.len);
        }
    }
}

} // namespace pelmora::platform
