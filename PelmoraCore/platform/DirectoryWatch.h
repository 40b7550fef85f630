#pragma once

#include <filesystem>
#include <set>
#include <string>

// Tells a poll() loop that a folder may have changed, through one
// descriptor. Linux watches the folder itself (inotify); macOS listens for
// the change notification that every writer of the folder posts, so the
// notch app and the companion wake on the same event.
//
//     DirectoryWatch watch(sessions, "com.pelmora.state-changed", ".json");
//     pollfd entry{watch.fd(), POLLIN, 0};
//     if (::poll(&entry, 1, 1000) > 0) {
//         DirectoryWatch::Changes changes = watch.drain();
//         if (changes.everything) { rescan(); } else { reread(changes.names); }
//     }
//
// Bursts are coalesced. Where the system names the files that changed
// (Linux), the reader need look at those alone; where it cannot (macOS, or
// a queue that overflowed), it rescans the whole folder.
namespace pelmora::platform {

class DirectoryWatch {
public:
    // Only changes to names that end in `suffix` count where the system
    // names them (Linux), so a writer's temporary and lock files do not
    // wake the reader three times for one replace. Throws pelmora::Error
    // when the folder (which must exist) cannot be watched or the
    // notification cannot be registered.
    DirectoryWatch(const std::filesystem::path& directory, const char* notificationName,
                   std::string suffix = {});
    ~DirectoryWatch();
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    // Readable when a notice is pending; never blocks a read.
    int fd() const { return fd_; }

    struct Changes {
        // The names (within the folder) of the files that changed, ending in
        // the suffix, when `everything` is false.
        std::set<std::string> names;
        // Something changed that the names do not tell: read it all again.
        bool everything = false;
        bool any() const { return everything || !names.empty(); }
    };
    // Takes every pending notice.
    Changes drain();

    // False once the folder itself was removed or moved away: Linux then
    // stops watching it. rearm() tries again, and is true when the folder
    // is watched once more (it should then be read afresh).
    bool watching() const { return watch_ >= 0; }
    bool rearm();

private:
    std::filesystem::path directory_;
    std::string suffix_;
    int fd_ = -1;
    int watch_ = -1; // the inotify watch, or the notification's token
};

} // namespace pelmora::platform
