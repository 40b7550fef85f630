// `pelmora uninstall`: takes out what `pelmora install` put in, and
// nothing else: the product's entries are found by their markers, and each
// file keeps the user's own as they were.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "InstallShared.h"
#include "Terminal.h"
#include "hook/PelmoraPaths.h"
#include "integration/HookInstaller.h"
#include "integration/HookTarget.h"
#include "integration/ShellIntegration.h"
#include "integration/StatusLineInstaller.h"

namespace pelmora::cli {
namespace {

using std::filesystem::path;

struct UninstallOptions {
    std::vector<std::string> agents;
    bool dryRun = false;
    bool statusLine = false;
    bool zsh = false;
    bool binaries = false;
    std::string testHome;
};

// What still runs the installed programs after this run: they stay while
// anything does, or an agent would fail on every hook.
std::vector<std::string> stillUsing(const std::vector<Source>& leaving, bool statusLineLeaves,
                                    bool zshLeaves, const path& home) {
    const std::string hook = PelmoraPaths::installedHookBinary().string();
    std::vector<std::string> users;
    for (Source agent : agentSources) {
        const HookInstaller::Status::Case status =
            HookInstaller::status(HookTarget::target(agent, home), hook).kind;
        if (std::count(leaving.begin(), leaving.end(), agent) == 0 &&
            status != HookInstaller::Status::Case::notInstalled) {
            users.emplace_back(rawValue(agent));
        }
    }
    if (!statusLineLeaves &&
        StatusLineInstaller::status(HookTarget::target(Source::claude, home)).kind !=
            StatusLineInstaller::Status::Case::off) {
        users.emplace_back("the status line");
    }
    if (!zshLeaves && ShellIntegration::isInstalled(ShellIntegration::zshrcURL(home))) {
        users.emplace_back("zsh");
    }
    return users;
}

bool removePrograms(bool dryRun) {
    bool done = true;
    for (const path& program :
         {PelmoraPaths::installedHookBinary(), PelmoraPaths::installedCLIBinary()}) {
        std::error_code error;
        if (!std::filesystem::exists(std::filesystem::symlink_status(program, error))) {
            continue;
        }
        const std::string name = printable(program.filename().native());
        const std::string shown = printable(program.native());
        if (dryRun) {
            std::printf("%s: would delete %s\n", name.c_str(), shown.c_str());
        } else if (std::filesystem::remove(program, error); error) {
            std::fprintf(stderr, "pelmora: %s: Cannot delete %s: %s\n", name.c_str(), shown.c_str(),
                         error.message().c_str());
            done = false;
        } else {
            std::printf("%s: deleted %s\n", name.c_str(), shown.c_str());
        }
    }
    return done;
}

int runUninstall(const UninstallOptions& options) {
    const path home = Install::homeFolder(options.testHome);
    const bool everything = options.agents.empty();
    const std::vector<Source> agents =
        everything ? std::vector<Source>(agentSources.begin(), agentSources.end())
                   : Install::agentsNamed(options.agents);
    const bool claudeLeaves = std::count(agents.begin(), agents.end(), Source::claude) > 0;
    const bool zshLeaves = options.zsh || everything;

    const HookTarget claude = HookTarget::target(Source::claude, home);
    auto statusLine = [&] {
        return StatusLineInstaller::planUninstall(claude, StatusLineInstaller::originalFile());
    };
    BackupRun run = BackupRun::current();
    bool done = true;
    for (Source agent : agents) {
        const HookTarget target = HookTarget::target(agent, home);
        auto plan = [&]() -> std::vector<FileEdit> {
            FileEdit hooks = HookInstaller::planUninstall(target);
            // The status line is the hook's too: it would fail without it.
            if (agent == Source::claude) {
                return Install::together(std::move(hooks), statusLine());
            }
            return {std::move(hooks)};
        };
        done = Install::carryOut(rawValue(agent), plan, options.dryRun, run) && done;
    }
    if (options.statusLine && !claudeLeaves) {
        done = Install::carryOut("status line", statusLine, options.dryRun, run) && done;
    }
    if (zshLeaves) {
        auto plan = [&] {
            return std::vector{ShellIntegration::planRemove(ShellIntegration::zshrcURL(home))};
        };
        done = Install::carryOut("zsh", plan, options.dryRun, run) && done;
    }

    if (!options.binaries) {
        return done ? 0 : 1;
    }
    if (!done) {
        std::fprintf(stderr, "pelmora: left the programs in place, since not everything that "
                             "runs them was removed\n");
        return 1;
    }
    const std::vector<std::string> users =
        stillUsing(agents, claudeLeaves || options.statusLine, zshLeaves, home);
    if (!users.empty()) {
        std::string list;
        for (const std::string& user : users) {
            list += (list.empty() ? "" : ", ") + user;
        }
        std::fprintf(stderr,
                     "pelmora: left the programs in place: %s still run them (uninstall them "
                     "too, or leave out --binaries)\n",
                     list.c_str());
        return 1;
    }
    return removePrograms(options.dryRun) ? 0 : 1;
}

Run declareUninstall(CLI::App& app) {
    auto options = std::make_shared<UninstallOptions>();
    Install::addAgents(app, options->agents, "agents to uninstall (default: all)");
    app.add_flag("--dry-run", options->dryRun, "show what would change and change nothing");
    app.add_flag("--statusline", options->statusLine, "the status line too (always with claude)");
    app.add_flag("--zsh", options->zsh, "the zsh block too (always with no AGENT)");
    app.add_flag("--binaries", options->binaries, "delete the installed programs too, once unused");
    Install::addTestHome(app, options->testHome);
    return [options] { return runUninstall(*options); };
}

} // namespace

const Command uninstallCommand{
    "uninstall", "take the hooks out of the agents' configuration",
    "Removes what 'pelmora install' wrote and nothing else: the hooks (found by\n"
    "their PELMORA_MANAGED=1 marker), Claude Code's status line (yours comes back\n"
    "as it was) and the zsh block. Each file is backed up first, into the support\n"
    "folder's backups. Prints one line per file, like install; a file that cannot\n"
    "be read or parsed is named and left as it is, and the exit status is 1.\n"
    "Example: pelmora uninstall --binaries",
    declareUninstall};

} // namespace pelmora::cli
