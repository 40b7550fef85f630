#pragma once

#include <filesystem>
#include <string>

// Tells a poll() loop that a folder may have changed, through one
// descriptor. Linux watches the folder itself (inotify); macOS listens for
// the change notification that every writer of the folder posts, so the
// notch app and the companion wake on the same event.
//
//     DirectoryWatch watch(sessions, "com.pelmora.state-changed", ".json");
//     pollfd entry{watch.fd(), POLLIN, 0};
//     if (::poll(&entry, 1, 1000) > 0 && watch.drain()) {
//         rescan();
//     }
//
// A notice says only "look again": bursts are coalesced and no file names
// are kept, so the reader rescans the folder, which its cache makes cheap.
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

    // Takes every pending notice; true when any arrived.
    bool drain();

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
