// The Linux system files the hook reads on every run hold text that other
// people choose: a process's name is set by whoever starts it (up to the
// kernel's 15 bytes, any of them but NUL), and a password file is written
// by an administrator or a container image. Whatever the bytes, the readers
// must not crash; a stat line must keep its numbers whatever the name, and
// the password lookup must give the first usable line of the user's uid.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/linux/SystemFiles.h"

namespace {

using namespace pelmora::platform;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A stat line as the kernel writes it: 52 fields, the name in parentheses as
// it is, nothing escaped.
std::string statLine(std::string_view name, std::int32_t parent, std::int64_t tty,
                     std::uint64_t start) {
    std::string line = "4242 (" + std::string(name) + ") S " + std::to_string(parent) +
                       " 4242 4242 " + std::to_string(tty) + " -1 4194560 120 0 0 0 3 1 0 0 20 0" +
                       " 1 0 " + std::to_string(start);
    for (int field = 23; field <= 52; ++field) {
        line += " 0";
    }
    return line + "\n";
}

std::uint64_t number(const std::uint8_t* data, std::size_t size) {
    std::uint64_t value = 0;
    std::memcpy(&value, data, std::min(size, sizeof value));
    return value;
}

void anyStatText(std::string_view text) {
    const auto stat = parseProcStat(text);
    if (!stat) {
        return;
    }
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    check(open != std::string_view::npos && close != std::string_view::npos && open < close);
    check(stat->name == text.substr(open + 1, close - open - 1));
    // What was read, written as the kernel would, reads back the same.
    check(parseProcStat(statLine(stat->name, stat->parentPID, stat->ttyNumber, stat->startTicks)) ==
          stat);
}

void chosenName(const std::uint8_t* data, std::size_t size) {
    if (size < 16) {
        return;
    }
    const auto parent = static_cast<std::int32_t>(number(data, 4));
    const auto tty = static_cast<std::int64_t>(static_cast<std::int32_t>(number(data + 4, 4)));
    const std::uint64_t start = number(data + 8, 8);
    const std::string_view name(reinterpret_cast<const char*>(data + 16), size - 16);
    const auto stat = parseProcStat(statLine(name, parent, tty, start));
    check(stat && *stat == (ProcStat{std::string(name), parent, tty, start}));
}

// The line of `contents` that holds the view `home`, split at its colons.
void checkHomeLine(std::string_view contents, std::string_view home, std::uint32_t uid) {
    check(home.data() >= contents.data() &&
          home.data() + home.size() <= contents.data() + contents.size());
    check(!home.empty() && home.find(':') == std::string_view::npos &&
          home.find('\n') == std::string_view::npos);
    const auto offset = static_cast<std::size_t>(home.data() - contents.data());
    const std::size_t lineStart = contents.rfind('\n', offset) + 1; // npos + 1 is 0
    std::string_view line = contents.substr(lineStart);
    line = line.substr(0, line.find('\n'));
    std::string_view fields[6];
    for (std::string_view& field : fields) {
        const std::size_t colon = line.find(':');
        field = line.substr(0, colon);
        line = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 1);
    }
    check(fields[2] == std::to_string(uid));
    check(fields[5].data() == home.data() && fields[5].size() == home.size());
}

void passwd(const std::uint8_t* data, std::size_t size) {
    if (size < 4) {
        return;
    }
    // Small uids often, so that the text can spell them.
    std::uint32_t uid = static_cast<std::uint32_t>(number(data, 4));
    if ((uid & 0x80000000U) == 0) {
        uid %= 1024;
    }
    const std::string_view contents(reinterpret_cast<const char*>(data + 4), size - 4);
    const auto home = homeFromPasswd(contents, uid);
    if (home) {
        checkHomeLine(contents, *home, uid);
    }
    const std::string id = std::to_string(uid);
    const std::string first = "first:x:" + id + ":0:First:/first:/bin/sh\n";
    check(homeFromPasswd(first + std::string(contents), uid) == "/first");
    const std::string last = std::string(contents) + "\nlast:x:" + id + ":0::/last:/bin/sh";
    check(homeFromPasswd(last, uid) == home.value_or("/last"));
}

} // namespace

// The first byte chooses: a stat text as it comes, a name chosen inside a
// well-formed stat line, or a password file and a uid.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    switch (data[0] % 3) {
    case 0:
        anyStatText(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
        break;
    case 1:
        chosenName(data + 1, size - 1);
        break;
    default:
        passwd(data + 1, size - 1);
        break;
    }
    return 0;
}
