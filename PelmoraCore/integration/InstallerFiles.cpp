#include "integration/InstallerFiles.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "integration/HookInstaller.h"
#include "platform/Error.h"
#include "platform/FileDescriptor.h"
#include "support/Files.h"
#include "support/Text.h"

namespace pelmora {
namespace {

[[noreturn]] void fail(std::string_view what, const std::filesystem::path& file, int error) {
    throw Error(std::string(what) + " " + file.string() + ": " + std::strerror(error), file);
}

} // namespace

namespace InstallerFiles {

std::optional<std::string> readText(const std::filesystem::path& file) {
    FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.valid()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        fail("Cannot read", file, errno);
    }
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        fail("Cannot read", file, errno);
    }
    // A FIFO or a device under a settings file's name must not hang the reader.
    if (!S_ISREG(info.st_mode)) {
        fail("Cannot read", file, S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
    }
    std::optional<std::string> text = Files::readAll(fd.get());
    if (!text) {
        fail("Cannot read", file, errno);
    }
    return text;
}

std::optional<std::string> readUTF8(const std::filesystem::path& file) {
    std::optional<std::string> text = readText(file);
    if (text && !Text::isValidUTF8(*text)) {
        throw Error(file.string() + ": not UTF-8", file);
    }
    return text;
}

std::filesystem::path resolvingLinks(const std::filesystem::path& file) {
    std::filesystem::path current = file;
    // As many hops as the kernel allows before it calls it a loop.
    for (int hop = 0; hop < 40; ++hop) {
        struct stat info {};
        if (::lstat(current.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) {
            break;
        }
        std::string target(static_cast<std::size_t>(info.st_size) + 256, '\0');
        ssize_t length = ::readlink(current.c_str(), target.data(), target.size());
        if (length < 0) {
            break;
        }
        target.resize(static_cast<std::size_t>(length));
        std::filesystem::path next(target);
        current = (next.is_absolute() ? next : current.parent_path() / next).lexically_normal();
    }
    return current;
}

bool isExecutableFile(std::string_view file) {
    const std::string name(file);
    struct stat info {};
    return ::stat(name.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(name.c_str(), X_OK) == 0;
}

std::string shellQuoted(std::string_view text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    quoted += '\'';
    return quoted;
}

} // namespace InstallerFiles

void HookInstaller::writeText(std::string_view text, const path& url) {
    // A settings file that is a link into a dotfiles repository is updated
    // where it really lives, and the link stays a link.
    const path file = InstallerFiles::resolvingLinks(url);
    const path folder = file.has_parent_path() ? file.parent_path() : path(".");
    Files::ensureDirectory(folder, 0700);
    // Appended piece by piece: GCC 12 at -O3 misreads "." + a temporary
    // string as an overlapping copy (-Wrestrict) and -Werror stops the build.
    std::string temporaryName = ".";
    temporaryName += file.filename().native();
    temporaryName += ".pelmora.tmp";
    const path temporary = folder / temporaryName;

    // O_NOFOLLOW: a link planted under the temporary name must not carry the
    // write somewhere else. Whatever stands there and cannot be opened (a
    // folder, say) is not ours to remove.
    FileDescriptor fd(
        ::open(temporary.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!fd.valid()) {
        fail("Cannot write", file, errno);
    }
    auto failAfterCreating = [&](int error) {
        ::unlink(temporary.c_str());
        fail("Cannot write", file, error);
    };
    if (!Files::writeAll(fd.get(), text) || ::fsync(fd.get()) != 0) {
        failAfterCreating(errno);
    }
    struct stat old {};
    if (::stat(file.c_str(), &old) == 0 && ::fchmod(fd.get(), old.st_mode & 07777) != 0) {
        failAfterCreating(errno);
    }
    if (::close(fd.release()) != 0) {
        failAfterCreating(errno);
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0) {
        failAfterCreating(errno);
    }
}

} // namespace pelmora
