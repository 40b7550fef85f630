#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <notify.h>
#include <unistd.h>
#include <utility>

#include "platform/DirectoryWatch.h"
#include "platform/Error.h"

namespace pelmora::platform {

// Every writer of the sessions folder posts the notification after its
// rename; the folder itself is not watched (an FSEvents stream would need
// a run loop, and kqueue a descriptor per file).
DirectoryWatch::DirectoryWatch(const std::filesystem::path& directory, const char* notificationName,
                               std::string suffix)
    : directory_(directory), suffix_(std::move(suffix)) {
    if (::notify_register_file_descriptor(notificationName, &fd_, 0, &watch_) != NOTIFY_STATUS_OK) {
        throw Error("cannot register for the change notification", directory_);
    }
    // The notification names no file, so there is nothing to filter by.
    static_cast<void>(suffix_);
    // Reads must never block the loop that drains them.
    ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK);
    ::fcntl(fd_, F_SETFD, FD_CLOEXEC);
}

// Cancelling the only token registered on the descriptor closes it too.
DirectoryWatch::~DirectoryWatch() {
    ::notify_cancel(watch_);
}

bool DirectoryWatch::rearm() {
    return true;
}

// Each delivery writes the token, four bytes, to the descriptor. The
// notification names no file, so any delivery means "read it all".
DirectoryWatch::Changes DirectoryWatch::drain() {
    bool changed = false;
    std::int32_t tokens[64];
    for (;;) {
        const ssize_t got = ::read(fd_, tokens, sizeof tokens);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        changed = true;
    }
    int check = 0;
    ::notify_check(watch_, &check);
    Changes changes;
    changes.everything = changed || check != 0;
    return changes;
}

} // namespace pelmora::platform
