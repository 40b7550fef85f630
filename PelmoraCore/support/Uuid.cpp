#include "support/Uuid.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

namespace pelmora {
namespace {

bool fromDevice(unsigned char* bytes, std::size_t count) {
    int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    std::size_t used = 0;
    while (used < count) {
        ssize_t got = ::read(fd, bytes + used, count - used);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        used += static_cast<std::size_t>(got);
    }
    ::close(fd);
    return used == count;
}

// Last resort when the system offers no randomness at all: distinct per
// process and per call, which is all an identifier needs.
void fromClock(unsigned char* bytes, std::size_t count) {
    static std::uint64_t counter = 0;
    std::uint64_t state =
        static_cast<std::uint64_t>(
            std::chrono::high_resolution_clock::now().time_since_epoch().count()) ^
        (static_cast<std::uint64_t>(::getpid()) << 32) ^ (++counter * 0x9E3779B97F4A7C15ull);
    for (std::size_t i = 0; i < count; ++i) {
        // splitmix64
        state += 0x9E3779B97F4A7C15ull;
        std::uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        bytes[i] = static_cast<unsigned char>(z ^ (z >> 31));
    }
}

} // namespace

std::string randomUUID() {
    unsigned char bytes[16];
    if (::getentropy(bytes, sizeof bytes) != 0 && !fromDevice(bytes, sizeof bytes)) {
        fromClock(bytes, sizeof bytes);
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant

    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += hex[bytes[i] >> 4];
        text += hex[bytes[i] & 0x0F];
    }
    return text;
}

} // namespace pelmora
