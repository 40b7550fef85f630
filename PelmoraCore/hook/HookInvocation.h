#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "hook/Source.h"

namespace pelmora {

// What one run of pelmora-hook was asked to do, read from its arguments and
// from the variables by which some agents announce themselves.
//
//     HookInvocation::read(args("--source", "codex", "--ppid", "+42"), getppid(), isSet)
//         == {Mode::hook, Source::codex, 42}
struct HookInvocation {
    enum class Mode {
        hook,       // fold one event into its session, maybe ask the app
        statusLine, // "--statusline" anywhere: record usage, run the user's command
        notOurs,    // a host whose sessions are not tracked: exit at once
    };

    Mode mode = Mode::hook;
    Source source = Source::claude;
    // Where the walk up to the agent's process starts.
    std::int32_t parentPID = 0;

    bool operator==(const HookInvocation&) const = default;

    // Whether an environment variable is set, whatever its value.
    using IsSet = std::function<bool(std::string_view name)>;

    // `arguments` are those after the program name; unknown ones are passed
    // over one at a time. "--source" and "--ppid" each take the next
    // argument even when they refuse it: an unknown source, or a pid that is
    // not a decimal 32-bit integer of at least 2, leaves the earlier choice.
    // Then the agents' own variables (Agents::Row::detectionVariable) may
    // name the source; with none of them, "CURSOR_PROJECT_DIR" makes the run
    // notOurs, since Cursor runs Claude Code's hooks too. Never fails.
    static HookInvocation read(std::span<const char* const> arguments, std::int32_t parentPID,
                               const IsSet& isSet);
};

} // namespace pelmora
