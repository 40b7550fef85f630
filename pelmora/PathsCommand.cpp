// `pelmora paths`: every location the system uses, as "name: path" lines
// that a script can pick apart with cut or sed.

#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

#include "Commands.h"
#include "hook/PelmoraPaths.h"

namespace pelmora::cli {
namespace {

int runPaths() {
    namespace P = PelmoraPaths;
    // Named as in the code, so a line can be traced to the one place that spells it.
    const std::pair<const char*, std::filesystem::path> locations[] = {
        {"supportDirectory", P::supportDirectory()},
        {"sessionsDirectory", P::sessionsDirectory()},
        {"logsDirectory", P::logsDirectory()},
        {"backupsDirectory", P::backupsDirectory()},
        {"binDirectory", P::binDirectory()},
        {"installedHookBinary", P::installedHookBinary()},
        {"installedCLIBinary", P::installedCLIBinary()},
        {"approvalSocket", P::approvalSocket()},
        {"alertSocket", P::alertSocket()},
        {"claudeSettings", P::claudeSettings()},
        {"codexHooks", P::codexHooks()},
        {"grokHooks", P::grokHooks()},
        {"commandCodeSettings", P::commandCodeSettings()},
        {"devinConfig", P::devinConfig()},
        {"qwenSettings", P::qwenSettings()},
        {"copilotHooks", P::copilotHooks()},
        {"kimiConfig", P::kimiConfig()},
        {"piExtension", P::piExtension()},
    };
    for (const auto& [name, location] : locations) {
        std::printf("%s: %s\n", name, location.c_str());
    }
    return 0;
}

Run declarePaths(CLI::App&) {
    return runPaths;
}

} // namespace

const Command pathsCommand{
    "paths", "every location the system uses",
    "Prints one \"name: path\" line per location, named as in the code, for scripts to pick\n"
    "apart with cut or sed. The paths follow PELMORA_HOME.",
    declarePaths};

} // namespace pelmora::cli
