#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

// The full output of each tracked run is kept in "<support>/logs/<id>.log";
// pruning keeps that folder small. Neither operation reports a failure: a
// log that cannot be listed or removed is simply left where it is.
namespace pelmora::BuildLogs {

// PelmoraPaths::logsDirectory(): "<support directory>/logs".
std::filesystem::path directory();

// "<support directory>/logs/<id>.log". The id is used as it is: callers pass
// identifiers they made (a UUID, a session key), never outside text.
std::filesystem::path logURL(std::string_view id);

// Removes the ".log" files of the logs folder that are older than `days`
// days at `now` (seconds since 1970), and all but the `maxFiles` newest.
// Other files are never touched; a log whose date cannot be read counts as
// the oldest.
void prune(std::int64_t days, std::int64_t maxFiles, double now);
// The same over any folder (tests, and callers that keep logs elsewhere).
void prune(const std::filesystem::path& folder, std::int64_t days, std::int64_t maxFiles,
           double now);

} // namespace pelmora::BuildLogs
