#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace pelmora::ProcessInspector {

struct Info {
    std::int32_t pid = 0;
    std::int32_t parentPID = 0;
    std::string name;
    double startTime = 0;
    std::optional<std::string> tty;
    bool operator==(const Info&) const = default;
};

// The wrappers that may stand between an agent and its hook: "sh", "bash",
// "zsh", "dash", "fish", "env", "nice", "timeout".
const std::set<std::string, std::less<>>& shells();

std::optional<Info> info(std::int32_t pid);
// The first ancestor from `pid` (itself included) that is not a shell,
// climbing at most four steps.
std::optional<Info> agentProcess(std::int32_t startingAt);
bool isAlive(std::int32_t pid, std::optional<double> startTime);

} // namespace pelmora::ProcessInspector
