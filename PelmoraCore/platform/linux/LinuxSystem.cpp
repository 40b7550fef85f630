#include <cerrno>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Platform.h"
#include "platform/linux/SystemFiles.h"

namespace pelmora::platform {

// Linux has no system-wide notification centre; readers there watch the
// sessions directory instead.
void postNotification(const char*) {}

// Linux sockets carry no SO_NOSIGPIPE; sendNoSignal covers every send.
void suppressSigpipe(int) {}

ssize_t sendNoSignal(int socketFD, const void* bytes, std::size_t count) {
    return ::send(socketFD, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
}

// SO_PEERCRED holds the credentials of the peer when it called connect() or
// listen(), so a process cannot pass a connection on under another name.
std::optional<std::uint32_t> peerUserID(int socketFD) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socketFD, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
        size != sizeof credentials) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(credentials.uid);
}

std::optional<std::string_view> homeFromPasswd(std::string_view contents, std::uint32_t uid) {
    // name:password:uid:gid:gecos:home:shell
    const std::string uidText = std::to_string(uid);
    std::string_view rest = contents;
    while (!rest.empty()) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        std::string_view fields[7];
        std::size_t count = 0;
        while (count < 7) {
            std::size_t colon = line.find(':');
            fields[count++] = line.substr(0, colon);
            if (colon == std::string_view::npos) {
                break;
            }
            line.remove_prefix(colon + 1);
        }
        if (count >= 6 && fields[2] == uidText && !fields[5].empty()) {
            return fields[5];
        }
    }
    return std::nullopt;
}

// The local password database, read directly: the hook links statically,
// and glibc's lookup in a static program would consult nsswitch.conf and try
// the name-service daemon on every run for an answer that lives here.
std::filesystem::path homeDirectory() {
    int fd = ::open("/etc/passwd", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return "/";
    }
    std::string contents;
    char buffer[16384];
    for (;;) {
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        contents.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(fd);

    const std::optional<std::string_view> home = homeFromPasswd(contents, ::getuid());
    return home ? std::filesystem::path(*home) : std::filesystem::path("/");
}

std::uint32_t userID() {
    return static_cast<std::uint32_t>(::getuid());
}

} // namespace pelmora::platform
