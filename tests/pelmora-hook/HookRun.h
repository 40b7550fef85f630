#pragma once

// Runs the built pelmora-hook as an agent does: bytes on stdin, arguments,
// environment, and a temporary PELMORA_HOME.

#include <map>
#include <string>
#include <vector>

#include "common/ProcessRunner.h"

namespace pelmora::testing {

using RunResult = Finished;

struct RunOptions {
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
    std::string input;
    // Keep stdin open this long after writing the input (0: close at once).
    double holdStdinOpen = 0;
    double killAfter = 20;
};

inline RunResult runHook(const TempHome& home, const RunOptions& options) {
    std::vector<std::string> arguments{hookBinary()};
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    std::map<std::string, std::string> environment = options.environment;
    environment["PELMORA_HOME"] = home.path().string();
    Child child(arguments, environment, options.input, options.holdStdinOpen > 0);
    if (options.holdStdinOpen > 0 && child.stillRunningAfter(options.holdStdinOpen)) {
        child.closeInput();
    }
    return child.finish(options.killAfter);
}

} // namespace pelmora::testing
