#include "support/Files.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Error.h"

namespace pelmora {

namespace Files {
namespace {

std::string describe(std::string_view what, int error) {
    return std::string(what) + ": " + std::strerror(error);
}

// Reads to the end, giving up once more than `limit` bytes have arrived.
// Straight into the string's own storage, grown as it fills: a buffer on the
// stack would cost every hook run fresh stack pages.
std::optional<std::string> readUpTo(int fd, std::size_t limit, std::size_t expected) {
    // A regular file's size is known: room for a byte more than that finds it
    // all in one read, and having exactly that size is the end, which spares
    // the hook the read that would only confirm it.
    std::string contents(expected > 0 ? expected + 1 : 4096, '\0');
    std::size_t filled = 0;
    for (;;) {
        if (filled == contents.size()) {
            contents.resize(contents.size() * 2);
        }
        ssize_t got = ::read(fd, contents.data() + filled, contents.size() - filled);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return std::nullopt;
        }
        filled += static_cast<std::size_t>(got);
        if (filled > limit) {
            return std::nullopt;
        }
        if (got == 0 || (expected > 0 && filled == expected)) {
            contents.resize(filled);
            return contents;
        }
    }
}

bool isDirectory(const std::filesystem::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace

std::optional<std::string> read(const std::filesystem::path& path, std::size_t maxBytes) {
    // O_NONBLOCK keeps a FIFO planted under a file's name from hanging the
    // open; such files are refused below anyway.
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.valid()) {
        return std::nullopt;
    }
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 0) {
        return std::nullopt;
    }
    auto size = static_cast<std::uint64_t>(info.st_size);
    if (size > maxBytes) {
        return std::nullopt;
    }
    return readUpTo(fd.get(), maxBytes, static_cast<std::size_t>(size));
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (written == 0) {
            errno = EIO; // no progress and no error: trying again would spin
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::optional<std::string> readAll(int fd) {
    return readUpTo(fd, static_cast<std::size_t>(-1), 0);
}

std::filesystem::path temporaryPath(const std::filesystem::path& target) {
    std::string name = ".";
    name += target.filename().native();
    name += '.';
    name += std::to_string(::getpid());
    name += ".tmp";
    return target.parent_path() / name;
}

void atomicReplace(const std::filesystem::path& target, std::string_view bytes, mode_t mode,
                   TakenTemporary taken) {
    std::filesystem::path temporary = temporaryPath(target);
    // O_EXCL: a hard link planted under the temporary name must not have its
    // other name truncated and overwritten; O_NOFOLLOW: nor a symbolic link.
    const auto create = [&] {
        return ::open(temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW,
                      mode);
    };
    FileDescriptor fd(create());
    if (!fd.valid() && errno == EEXIST && taken == TakenTemporary::replace &&
        ::unlink(temporary.c_str()) == 0) {
        fd.reset(create());
    }
    if (!fd.valid()) {
        // The name is not ours to remove: it may be another thread's file.
        throw Error(describe("Cannot create temporary file", errno), target);
    }
    auto fail = [&](std::string_view what, int error) {
        ::unlink(temporary.c_str());
        throw Error(describe(what, error), target);
    };
    // A write cut short by a file-size limit or a full disk ends here, before
    // the rename, so the old file stays whole.
    if (!writeAll(fd.get(), bytes)) {
        fail("Cannot write temporary file", errno);
    }
    // The creation mode passes through the umask; the file's mode must not.
    if (::fchmod(fd.get(), mode) != 0) {
        fail("Cannot set permissions", errno);
    }
    if (::close(fd.release()) != 0) {
        fail("Cannot write temporary file", errno);
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
        fail("Cannot replace file", errno);
    }
}

void ensureDirectory(const std::filesystem::path& path, mode_t mode) {
    if (path.empty()) {
        throw Error("Cannot create a directory with an empty path", path);
    }
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode)) {
            return;
        }
        throw Error(describe("Cannot create directory", ENOTDIR), path);
    }
    if (errno != ENOENT) {
        throw Error(describe("Cannot create directory", errno), path);
    }
    std::filesystem::path parent = path.parent_path();
    if (!parent.empty() && parent != path) {
        ensureDirectory(parent, mode);
    }
    if (::mkdir(path.c_str(), mode) != 0) {
        int error = errno;
        // Another process may have created it between the check and here.
        if (error == EEXIST && isDirectory(path)) {
            return;
        }
        throw Error(describe("Cannot create directory", error), path);
    }
    // mkdir's mode passes through the umask; a new folder gets exactly `mode`.
    ::chmod(path.c_str(), mode);
}

ExclusiveLock::ExclusiveLock(const std::filesystem::path& lockPath)
    // O_NONBLOCK keeps a FIFO in the lock's place from hanging the open; it
    // is refused below. It does not affect flock.
    : fd_(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600)) {
    if (!fd_.valid()) {
        throw Error(describe("Cannot open lock file", errno), lockPath);
    }
    struct stat info {};
    if (::fstat(fd_.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        throw Error("Cannot use a lock file that is not a regular file", lockPath);
    }
    if ((info.st_mode & 07777) != 0600 && ::fchmod(fd_.get(), 0600) != 0) {
        throw Error(describe("Cannot set permissions", errno), lockPath);
    }
    while (::flock(fd_.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            throw Error(describe("Cannot lock", errno), lockPath);
        }
    }
}

ExclusiveLock::~ExclusiveLock() {
    if (fd_.valid()) {
        ::flock(fd_.get(), LOCK_UN);
    }
}

} // namespace Files
} // namespace pelmora
