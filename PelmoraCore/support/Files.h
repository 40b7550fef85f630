#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "platform/FileDescriptor.h"

namespace pelmora {

namespace Files {

// Reads a whole regular file; std::nullopt when it cannot be opened or read,
// is not a regular file (a FIFO must not hang the reader), or holds more than
// `maxBytes` (judged from its size before any byte is read).
std::optional<std::string> read(const std::filesystem::path& path,
                                std::size_t maxBytes = static_cast<std::size_t>(-1));

// Writes every byte, resuming after partial writes and interruptions.
bool writeAll(int fd, std::string_view bytes);

// Reads a file descriptor (standard input, a pipe) to its end.
std::optional<std::string> readAll(int fd);

// What atomicReplace does when its temporary name is already taken. Only
// this process can have chosen that name, so the file is either planted (a
// link that must not be written through) or left by a writer that died
// with this pid before us. Without a lock, another thread of this process
// may be writing the same target: refuse. A caller that holds the target's
// lock knows the file is a dead writer's: replace it.
enum class TakenTemporary { refuse, replace };

// Writes `bytes` to ".<name>.<pid>.tmp" beside `target`, created exclusively
// and never through a link, gives it `mode`, and renames it over `target`,
// so a reader sees the old file or the new one, whole. On failure (a
// file-size limit included: ignore SIGXFSZ to get it as an error) the
// temporary is removed, the target is left as it was, and pelmora::Error is
// thrown.
void atomicReplace(const std::filesystem::path& target, std::string_view bytes, mode_t mode,
                   TakenTemporary taken = TakenTemporary::refuse);

// The temporary name used by atomicReplace, for tests and clean-up.
std::filesystem::path temporaryPath(const std::filesystem::path& target);

// Creates the directory and missing parents with `mode`; succeeds when it
// exists already. Throws pelmora::Error otherwise.
void ensureDirectory(const std::filesystem::path& path, mode_t mode = 0700);

// An exclusive flock on a lock file, held for the life of the object. The
// lock file is opened without following a link, must be a regular file, and
// is made 0600 whatever the umask (a read-only lock file would fail every
// later open). Throws pelmora::Error when it cannot be opened or locked.
class ExclusiveLock {
public:
    explicit ExclusiveLock(const std::filesystem::path& lockPath);
    ~ExclusiveLock();
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;

private:
    FileDescriptor fd_;
};

} // namespace Files
} // namespace pelmora
