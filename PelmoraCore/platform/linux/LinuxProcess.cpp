#include <cerrno>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/sysmacros.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "platform/Platform.h"
#include "platform/linux/SystemFiles.h"

// The process table on Linux is /proc. This runs on every hook, so each file
// is taken with plain read() calls into a stack buffer: no streams, no heap
// beyond the result itself.
namespace pelmora::platform {
namespace {

// A whole field of a /proc file as a decimal number: the kernel prints these
// itself, so no sign but a minus and no blanks are to be expected; anything
// else, or a value out of range, gives none.
template <class Int> std::optional<Int> parseField(std::string_view text) {
    Int value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

// Reads a whole small file into `buffer`; the length read, or -1 on failure
// or when the file does not fit.
ssize_t readSmallFile(const char* path, char* buffer, std::size_t capacity) {
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    std::size_t used = 0;
    while (used < capacity) {
        ssize_t got = ::read(fd, buffer + used, capacity - used);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            ::close(fd);
            return -1;
        }
        if (got == 0) {
            ::close(fd);
            return static_cast<ssize_t>(used);
        }
        used += static_cast<std::size_t>(got);
    }
    ::close(fd);
    return -1;
}

// The wall-clock second the machine booted, as /proc/stat's "btime" gives it:
// the kernel computes that line from the same two clocks, so reading them
// spares every hook run opening and scanning a file whose size grows with
// the number of CPUs. Read once per process.
std::optional<std::int64_t> bootTime() {
    static const std::optional<std::int64_t> cached = []() -> std::optional<std::int64_t> {
        struct timespec wall {};
        struct timespec sinceBoot {};
        if (::clock_gettime(CLOCK_REALTIME, &wall) != 0 ||
            ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) {
            return std::nullopt;
        }
        std::int64_t seconds = wall.tv_sec - sinceBoot.tv_sec;
        if (wall.tv_nsec < sinceBoot.tv_nsec) {
            --seconds;
        }
        return seconds;
    }();
    return cached;
}

// The device number of a controlling terminal as its /dev path. Only the
// terminals an agent can run in are named: pseudo-terminals, virtual
// consoles and serial lines.
std::optional<std::string> terminalPath(std::int64_t ttyNumber) {
    if (ttyNumber == 0) {
        return std::nullopt;
    }
    auto device = static_cast<dev_t>(static_cast<std::uint32_t>(ttyNumber));
    unsigned int major = ::major(device);
    unsigned int minor = ::minor(device);
    if (major >= 136 && major <= 143) {
        return "/dev/pts/" + std::to_string((major - 136) * 256 + minor);
    }
    if (major == 4 && minor < 64) {
        return "/dev/tty" + std::to_string(minor);
    }
    if (major == 4) {
        return "/dev/ttyS" + std::to_string(minor - 64);
    }
    return std::nullopt;
}

} // namespace

std::optional<ProcStat> parseProcStat(std::string_view line) {
    // The command name sits in parentheses and may itself hold ")" and
    // spaces, so it ends at the last ")" of the line.
    auto open = line.find('(');
    auto close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
        return std::nullopt;
    }
    ProcStat stat;
    stat.name = std::string(line.substr(open + 1, close - open - 1));

    // Fields after the name, counted from the state (field 3 of the table).
    constexpr int parentField = 4, ttyField = 7, startField = 22;
    std::string_view rest = line.substr(close + 1);
    int field = 2;
    std::optional<std::int32_t> parent;
    std::optional<std::uint64_t> start;
    while (!rest.empty() && field < startField) {
        auto begin = rest.find_first_not_of(" \n");
        if (begin == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(begin);
        auto end = rest.find_first_of(" \n");
        std::string_view token = rest.substr(0, end);
        rest.remove_prefix(token.size());
        ++field;
        if (field == parentField) {
            parent = parseField<std::int32_t>(token);
        } else if (field == ttyField) {
            stat.ttyNumber = parseField<std::int64_t>(token).value_or(0);
        } else if (field == startField) {
            start = parseField<std::uint64_t>(token);
        }
    }
    if (!parent || !start) {
        return std::nullopt;
    }
    stat.parentPID = *parent;
    stat.startTicks = *start;
    return stat;
}

std::optional<ProcessEntry> processEntry(std::int32_t pid) {
    if (pid < 1) {
        return std::nullopt;
    }
    std::string statPath = "/proc/" + std::to_string(pid) + "/stat";
    // A stat line is a few hundred bytes: 52 numeric fields and a name of at
    // most 16.
    char buffer[2048];
    ssize_t length = readSmallFile(statPath.c_str(), buffer, sizeof buffer);
    if (length <= 0) {
        return std::nullopt;
    }
    std::optional<ProcStat> stat =
        parseProcStat(std::string_view(buffer, static_cast<std::size_t>(length)));
    if (!stat) {
        return std::nullopt;
    }
    ProcessEntry entry;
    entry.pid = pid;
    entry.name = std::move(stat->name);
    entry.parentPID = stat->parentPID;
    const std::uint64_t startTicks = stat->startTicks;

    auto boot = bootTime();
    long ticksPerSecond = ::sysconf(_SC_CLK_TCK);
    if (!boot || ticksPerSecond <= 0) {
        return std::nullopt;
    }
    // Whole microseconds, as the kernel process tables of other systems give.
    auto ticks = static_cast<std::uint64_t>(ticksPerSecond);
    std::uint64_t micros = (startTicks % ticks) * 1'000'000 / ticks;
    entry.startTime = static_cast<double>(*boot) + static_cast<double>(startTicks / ticks) +
                      static_cast<double>(micros) / 1e6;
    entry.tty = terminalPath(stat->ttyNumber);
    return entry;
}

} // namespace pelmora::platform
