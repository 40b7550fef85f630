// `pelmora paths`: every location the system uses, as "name: path" lines
// that a script can pick apart with cut or sed.

#include <cstdio>

#include "Commands.h"
#include "hook/PelmoraPaths.h"

namespace pelmora::cli {
namespace {

int runPaths() {
    // Named as in the code, so a line can be traced to the one place that spells it.
    for (const PelmoraPaths::NamedLocation& location : PelmoraPaths::namedLocations()) {
        std::printf("%.*s: %s\n", static_cast<int>(location.name.size()), location.name.data(),
                    location.location.c_str());
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
