#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The text of the Linux system files the platform layer reads, parsed apart
// from the reading. Both hold text that other people choose: a process's
// name is whatever its starter set, a password file line whatever an
// administrator (or a container image) wrote.
namespace pelmora::platform {

// The fields of a /proc/<pid>/stat line that the process table needs.
struct ProcStat {
    std::string name;             // between the first "(" and the last ")"
    std::int32_t parentPID = 0;   // field 4
    std::int64_t ttyNumber = 0;   // field 7; 0 for none or unreadable
    std::uint64_t startTicks = 0; // field 22: clock ticks after boot
    bool operator==(const ProcStat&) const = default;
};

// None when the name's parentheses or the parent or start field are missing
// or not numbers.
//
//     parseProcStat("42 (a) b) S 1 42 42 34816 ...")->name == "a) b"
std::optional<ProcStat> parseProcStat(std::string_view line);

// The home folder of the first line of a password file ("name:password:
// uid:gid:gecos:home:shell") whose uid field is exactly `uid` in decimal and
// whose home field is not empty; a view into `contents`.
std::optional<std::string_view> homeFromPasswd(std::string_view contents, std::uint32_t uid);

} // namespace pelmora::platform
