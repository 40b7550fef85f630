#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "hook/HostInfo.h"

// The receiving end of the zsh integration: `pelmora shell start` and
// `pelmora shell end`, run in the background by the script, turn a command
// into an activity session (source build, or git for git commands) that the
// island shows running, then done or failed, and lets go as the scheduler
// says. Each call is one locked update of one session file: a few
// milliseconds, so the prompt never waits.
namespace pelmora::ShellActivity {

struct Event {
    bool finished = false; // shell end rather than shell start
    std::int32_t shellPID = 0;
    std::int64_t startTime = 0;    // seconds since 1970, as the shell saw it
    std::optional<int> exitStatus; // shell end only
    std::string cwd;
    std::string commandLine;
    bool operator==(const Event&) const = default;
};

// The arguments after "start" or "end": --pid PID --start SECONDS
// [--exit STATUS] --cwd DIR -- COMMAND LINE... (the words after "--" are
// joined with spaces). None when one is missing or malformed; --exit is
// required for an end.
std::optional<Event> parse(bool finished, std::span<const std::string_view> arguments);

// "<shell pid>-<start time>": one session per command run.
std::string sessionID(const Event& event);

// Folds the event into its session record in `sessionsDirectory` and posts
// the change notification. A start makes a working record unless the
// command is already recorded (its end may have won the race); an end
// records done or failed with the exit status, and quietly closes a record
// for a command the user interrupted. False when the filter passes the
// command over and nothing was written. `environment` gives the terminal
// facts that let the app bring the shell's window forward. Throws
// pelmora::Error when the store cannot be written.
bool record(const Event& event, const std::filesystem::path& sessionsDirectory, double now,
            const HostInfo::Environment& environment);

} // namespace pelmora::ShellActivity
