#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

// The operating-system services that differ between Linux and macOS. One
// implementation per platform lives in linux/ and darwin/; the build picks
// the folder, so no other code needs to know which system it runs on.
namespace pelmora::platform {

struct ProcessEntry {
    std::int32_t pid = 0;
    std::int32_t parentPID = 0;
    std::string name;               // the kernel's short command name
    double startTime = 0;           // seconds since 1970, microseconds as the fraction
    std::optional<std::string> tty; // controlling terminal as "/dev/..."
    bool operator==(const ProcessEntry&) const = default;
};

// The kernel's process-table entry for exactly this pid, if there is one.
std::optional<ProcessEntry> processEntry(std::int32_t pid);

// Posts a system-wide change notification (nothing where there is no such
// centre: readers there watch the directory instead).
void postNotification(const char* name);

// Makes writes on a socket report EPIPE instead of raising SIGPIPE where the
// socket can carry that option; sendNoSignal suppresses it per send where it
// cannot. Use both: one of them does nothing on each platform.
void suppressSigpipe(int socketFD);
// Never blocks: a full send buffer gives -1 with EAGAIN (or EWOULDBLOCK), so
// the caller decides how long to wait for room.
ssize_t sendNoSignal(int socketFD, const void* bytes, std::size_t count);

// The user id of the process at the other end of a connected Unix-domain
// socket (the one that connected, or the one that listened), as the kernel
// recorded it; none when the kernel will not say.
std::optional<std::uint32_t> peerUserID(int socketFD);

// A file's content-modification time (seconds since 1970, with the
// nanoseconds the system keeps) and size, from one stat; none when it
// cannot be read. Readers that rescan a folder often compare these to tell
// a file they have read before from one that changed.
struct FileStamp {
    double modified = 0;
    std::int64_t size = 0;
    bool operator==(const FileStamp&) const = default;
};
std::optional<FileStamp> fileStamp(const std::filesystem::path& file);

// From the password database, never from the environment.
std::filesystem::path homeDirectory();
std::uint32_t userID();

} // namespace pelmora::platform
