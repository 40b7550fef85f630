#include "hook/ProcessInspector.h"

#include <cerrno>
#include <cmath>
#include <signal.h>

#include "platform/Platform.h"

namespace pelmora::ProcessInspector {
namespace {

// The walk never climbs past this many parents: far enough for the deepest
// wrapper chain an agent uses, never into launchd or the login session.
constexpr int maxSteps = 4;

} // namespace

const std::set<std::string, std::less<>>& shells() {
    static const std::set<std::string, std::less<>> names{"sh",   "bash", "zsh",  "dash",
                                                          "fish", "env",  "nice", "timeout"};
    return names;
}

std::optional<Info> info(std::int32_t pid) {
    auto entry = platform::processEntry(pid);
    if (!entry) {
        return std::nullopt;
    }
    return Info{entry->pid, entry->parentPID, std::move(entry->name), entry->startTime,
                std::move(entry->tty)};
}

std::optional<Info> agentProcess(std::int32_t startingAt) {
    auto current = info(startingAt);
    int steps = 0;
    while (current && shells().contains(current->name)) {
        if (current->parentPID < 2 || steps >= maxSteps) {
            return current;
        }
        current = info(current->parentPID);
        ++steps;
    }
    return current;
}

bool isAlive(std::int32_t pid, std::optional<double> startTime) {
    if (pid < 1) {
        return false;
    }
    // A process of another user answers EPERM: it exists all the same.
    if (::kill(pid, 0) != 0 && errno != EPERM) {
        return false;
    }
    if (!startTime) {
        return true;
    }
    auto current = info(pid);
    if (!current) {
        return true;
    }
    // A different start time means the pid now belongs to another process.
    return std::fabs(*startTime - current->startTime) < 1.0;
}

} // namespace pelmora::ProcessInspector
