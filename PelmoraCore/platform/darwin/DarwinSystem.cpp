#include <cerrno>
#include <notify.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "platform/Platform.h"

namespace pelmora::platform {

void postNotification(const char* name) {
    ::notify_post(name);
}

void suppressSigpipe(int socketFD) {
    int on = 1;
    ::setsockopt(socketFD, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
}

// SO_NOSIGPIPE, set by suppressSigpipe, already covers every send.
ssize_t sendNoSignal(int socketFD, const void* bytes, std::size_t count) {
    return ::send(socketFD, bytes, count, MSG_DONTWAIT);
}

// The effective ids the kernel stored when the peer connected or listened.
std::optional<std::uint32_t> peerUserID(int socketFD) {
    uid_t user = 0;
    gid_t group = 0;
    if (::getpeereid(socketFD, &user, &group) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(user);
}

std::filesystem::path homeDirectory() {
    long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 4096);
    for (;;) {
        struct passwd entry {};
        struct passwd* found = nullptr;
        int error = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0 || found == nullptr || found->pw_dir == nullptr ||
            found->pw_dir[0] == '\0') {
            return "/";
        }
        return found->pw_dir;
    }
}

std::uint32_t userID() {
    return static_cast<std::uint32_t>(::getuid());
}

} // namespace pelmora::platform
