// `pelmora install`: puts the programs into the support folder and the
// hook into each agent's configuration, so that a user who built the
// project has nothing to edit by hand.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "Commands.h"
#include "InstallShared.h"
#include "Terminal.h"
#include "hook/AgentDetection.h"
#include "hook/PelmoraPaths.h"
#include "integration/HookInstaller.h"
#include "integration/HookTarget.h"
#include "integration/ShellIntegration.h"
#include "integration/StatusLineInstaller.h"
#include "platform/Error.h"
#include "platform/Executable.h"
#include "support/Files.h"

namespace pelmora::cli {
namespace {

using std::filesystem::path;

struct InstallOptions {
    std::vector<std::string> agents;
    bool dryRun = false;
    bool statusLine = false;
    bool zsh = false;
    int zshSeconds = 10;
    std::string testHome;
};

bool isProgram(const path& file) {
    std::error_code error;
    return std::filesystem::is_regular_file(file, error) && ::access(file.c_str(), X_OK) == 0;
}

struct Program {
    std::string_view name;
    path built;
    path installed;
};

// This pelmora and the pelmora-hook beside it: in the same folder once
// installed or unpacked, in the sibling folder of the build tree.
std::vector<Program> programs() {
    const std::optional<path> self = platform::executablePath();
    if (!self) {
        throw Error("Cannot tell where this pelmora is, so not where pelmora-hook is either");
    }
    const path folder = self->parent_path();
    const std::string hookName(PelmoraPaths::hookBinaryName);
    for (const path& hook : {folder / hookName, folder.parent_path() / hookName / hookName}) {
        if (isProgram(hook)) {
            return {{PelmoraPaths::hookBinaryName, hook, PelmoraPaths::installedHookBinary()},
                    {PelmoraPaths::cliBinaryName, *self, PelmoraPaths::installedCLIBinary()}};
        }
    }
    throw Error("Cannot find " + hookName + " beside " + self->string() +
                    " nor in the build tree's " + hookName + " folder",
                folder);
}

// Replaced through a temporary file and a rename, so an agent that starts
// the hook meanwhile runs the old program or the new one, never half of one.
void copyProgram(const Program& program, bool dryRun) {
    const std::optional<std::string> bytes = Files::read(program.built);
    if (!bytes) {
        throw Error("Cannot read " + program.built.string(), program.built);
    }
    const int width = static_cast<int>(program.name.size());
    const std::string target = printable(program.installed.native());
    if (isProgram(program.installed) && Files::read(program.installed) == bytes) {
        if (!dryRun) {
            std::printf("%.*s: unchanged %s\n", width, program.name.data(), target.c_str());
        }
        return;
    }
    if (dryRun) {
        std::printf("%.*s: would copy %s to %s\n", width, program.name.data(),
                    printable(program.built.native()).c_str(), target.c_str());
        return;
    }
    PelmoraPaths::ensureDirectory(program.installed.parent_path());
    Files::atomicReplace(program.installed, *bytes, 0755);
    std::printf("%.*s: installed %s\n", width, program.name.data(), target.c_str());
}

int runInstall(const InstallOptions& options) {
    const path home = Install::homeFolder(options.testHome);
    std::vector<Source> agents = Install::agentsNamed(options.agents);
    if (options.agents.empty()) {
        agents = AgentDetection::detected(home);
        if (agents.empty()) {
            std::fprintf(stderr,
                         "pelmora: no agent's folder is in %s; name the agents to install, for "
                         "example 'pelmora install claude' (the agents are %s)\n",
                         printable(home.native()).c_str(), Install::agentList().c_str());
            if (!options.statusLine && !options.zsh) {
                return 1;
            }
        }
    }

    // The hooks name the installed program, so it goes in first; without
    // it they would only fail.
    for (const Program& program : programs()) {
        copyProgram(program, options.dryRun);
    }

    const std::string hook = PelmoraPaths::installedHookBinary().string();
    const HookTarget claude = HookTarget::target(Source::claude, home);
    auto statusLine = [&] {
        return StatusLineInstaller::planInstall(claude, hook, StatusLineInstaller::originalFile());
    };
    // A status line of ours is kept up to date like the hooks.
    const bool claudeNamed = std::count(agents.begin(), agents.end(), Source::claude) > 0;
    const bool withStatusLine =
        options.statusLine || (claudeNamed && StatusLineInstaller::status(claude).kind ==
                                                  StatusLineInstaller::Status::Case::on);
    BackupRun run = BackupRun::current();
    bool done = true;
    for (Source agent : agents) {
        const HookTarget target = HookTarget::target(agent, home);
        auto plan = [&]() -> std::vector<FileEdit> {
            FileEdit hooks = HookInstaller::planInstall(target, hook);
            if (agent == Source::claude && withStatusLine) {
                return Install::together(std::move(hooks), statusLine());
            }
            return {std::move(hooks)};
        };
        const bool installed = Install::carryOut(rawValue(agent), plan, options.dryRun, run);
        done = done && installed;
        const std::string_view advice = Install::advice(agent);
        if (installed && !advice.empty()) {
            std::printf("%s: %.*s\n", std::string(rawValue(agent)).c_str(),
                        static_cast<int>(advice.size()), advice.data());
        }
    }
    if (options.statusLine && !claudeNamed) {
        done = Install::carryOut("status line", statusLine, options.dryRun, run) && done;
    }
    if (options.zsh) {
        auto plan = [&] {
            return ShellIntegration::planInstall(
                PelmoraPaths::installedCLIBinary().string(), options.zshSeconds,
                ShellIntegration::zshrcURL(home), ShellIntegration::scriptURL());
        };
        done = Install::carryOut("zsh", plan, options.dryRun, run) && done;
    }
    return done ? 0 : 1;
}

Run declareInstall(CLI::App& app) {
    auto options = std::make_shared<InstallOptions>();
    Install::addAgents(app, options->agents,
                       "agents to install (default: those found in your home)");
    app.add_flag("--dry-run", options->dryRun, "show what would change and change nothing");
    app.add_flag("--statusline", options->statusLine,
                 "also wrap Claude Code's status line, keeping yours");
    CLI::Option* zsh =
        app.add_flag("--zsh", options->zsh, "also report long or failed commands typed in zsh");
    addWholeNumber(app, "--zsh-seconds", options->zshSeconds, 1,
                   "with --zsh: seconds before a command shows (default 10)")
        ->needs(zsh);
    Install::addTestHome(app, options->testHome);
    return [options] { return runInstall(*options); };
}

} // namespace

const Command installCommand{
    "install", "put the hooks into the agents' configuration",
    "Copies pelmora-hook and pelmora into the support folder's bin, then adds the\n"
    "hook to each agent's configuration, keeping all of yours (backed up first).\n"
    "Prints one line per file: created, updated or unchanged. A file that cannot\n"
    "be read or parsed is named, with the line and column of the error, and left\n"
    "as it is; the other agents go on, and the exit status is 1.\n"
    "Agents: claude, codex, grok, commandcode, devin, qwen, copilot, pi, kimi.\n"
    "Example: pelmora install --dry-run claude codex",
    declareInstall};

} // namespace pelmora::cli
