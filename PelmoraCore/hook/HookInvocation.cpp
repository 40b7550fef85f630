#include "hook/HookInvocation.h"

#include <optional>

#include "hook/Agents.h"
#include "support/Integers.h"

namespace pelmora {
namespace {

// An agent whose variable is set, among the rows with this rule, the first
// row winning.
std::optional<Source> announced(Agents::Detection rule, const HookInvocation::IsSet& isSet) {
    for (const Agents::Row& row : Agents::rows()) {
        if (row.detection == rule && isSet(row.detectionVariable)) {
            return row.source;
        }
    }
    return std::nullopt;
}

} // namespace

HookInvocation HookInvocation::read(std::span<const char* const> arguments, std::int32_t parentPID,
                                    const IsSet& isSet) {
    HookInvocation invocation;
    invocation.parentPID = parentPID;
    for (std::string_view argument : arguments) {
        if (argument == "--statusline") {
            invocation.mode = Mode::statusLine;
            return invocation;
        }
    }

    for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
        std::string_view argument = arguments[i];
        if (argument == "--source") {
            if (std::optional<Source> named = fromRaw<Source>(arguments[++i])) {
                invocation.source = *named;
            }
        } else if (argument == "--ppid") {
            // 0 is the kernel and 1 launchd (or init): neither is an agent,
            // so such a value can only be a mistake and the real parent is
            // the better guess.
            std::optional<std::int32_t> pid = parseInteger<std::int32_t>(arguments[++i]);
            if (pid && *pid >= 2) {
                invocation.parentPID = *pid;
            }
        }
    }

    if (std::optional<Source> agent = announced(Agents::Detection::overridesSource, isSet)) {
        invocation.source = *agent;
    }
    // Agents that run Claude Code's hook settings as they are can be told
    // apart only by their variables, and only when nothing else named them.
    if (invocation.source == Source::claude) {
        if (std::optional<Source> agent = announced(Agents::Detection::whenUnnamed, isSet)) {
            invocation.source = *agent;
        } else if (isSet("CURSOR_PROJECT_DIR")) {
            invocation.mode = Mode::notOurs;
        }
    }
    return invocation;
}

} // namespace pelmora
