// pelmora: the companion command. It shows the sessions that the hooks have
// recorded and can stand in for the notch app, so the whole system can be
// used and tested from a terminal.

#include <cstdio>
#include <exception>
#include <string>

#include "Commands.h"
#include "platform/Error.h"

namespace pelmora::cli {

void printUsage(std::FILE* stream) {
    std::fputs(
        "usage: pelmora <command> [options]\n"
        "\n"
        "commands:\n"
        "  sessions [--json]        the agent sessions the hooks have recorded, newest first;\n"
        "                           --json prints one record per line\n"
        "  approvals --answer allow|allowAlways|deny|ask [--message TEXT]\n"
        "            [--answers TEXT]... [--count N] [--timeout SECONDS]\n"
        "                           answer the agents' permission requests and questions in\n"
        "                           place of the notch app: N requests (default 1), for at most\n"
        "                           SECONDS (default 60); --answers once per question\n"
        "  paths                    every location the system uses\n"
        "  help                     this text\n"
        "\n"
        "PELMORA_HOME chooses the support directory "
        "(default: ~/Library/Application Support/Pelmora).\n",
        stream);
}

int usageError(std::string_view message) {
    std::fprintf(stderr, "pelmora: %.*s\nRun 'pelmora help' for usage.\n",
                 static_cast<int>(message.size()), message.data());
    return 2;
}

} // namespace pelmora::cli

int main(int argc, char** argv) {
    using namespace pelmora::cli;
    Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    const std::string_view command = arguments.empty() ? "help" : arguments.front();
    if (!arguments.empty()) {
        arguments.erase(arguments.begin());
    }

    try {
        if (command == "help" || command == "--help" || command == "-h") {
            printUsage(stdout);
            return 0;
        }
        if (command == "sessions") {
            return runSessions(arguments);
        }
        if (command == "approvals") {
            return runApprovals(arguments);
        }
        if (command == "paths") {
            return runPaths(arguments);
        }
    } catch (const pelmora::Error& error) {
        if (error.path().empty()) {
            std::fprintf(stderr, "pelmora: %s\n", error.what());
        } else {
            std::fprintf(stderr, "pelmora: %s: %s\n", error.what(), error.path().c_str());
        }
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pelmora: %s\n", error.what());
        return 1;
    }
    std::fprintf(stderr, "pelmora: unknown command '%.*s'\n\n", static_cast<int>(command.size()),
                 command.data());
    printUsage(stderr);
    return 2;
}
