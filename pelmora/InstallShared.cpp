#include "InstallShared.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "InstallDiff.h"
#include "Terminal.h"
#include "hook/PelmoraPaths.h"
#include "integration/HookInstaller.h"
#include "integration/InstallerFiles.h"
#include "platform/Error.h"
#include "support/Ascii.h"

namespace pelmora::cli::Install {

void addTestHome(CLI::App& app, std::string& folder) {
    app.add_option("--test-home", folder, "the home folder to work in (for tests)")->group("");
}

std::filesystem::path homeFolder(const std::string& testHome) {
    if (testHome.empty()) {
        return PelmoraPaths::home();
    }
    const char* support = std::getenv("PELMORA_HOME");
    if (support == nullptr || support[0] == '\0') {
        throw CLI::ValidationError("--test-home goes only with PELMORA_HOME");
    }
    return testHome;
}

void addAgents(CLI::App& app, std::vector<std::string>& names, const std::string& help) {
    app.add_option("AGENT", names, help)->type_name("")->take_all();
}

std::vector<Source> agentsNamed(const std::vector<std::string>& names) {
    std::vector<Source> agents;
    for (const std::string& name : names) {
        const std::optional<Source> source = fromRaw<Source>(name);
        if (!source || !isAgent(*source)) {
            throw CLI::ValidationError("unknown agent '" + printable(name) + "': the agents are " +
                                       agentList());
        }
        if (std::find(agents.begin(), agents.end(), *source) == agents.end()) {
            agents.push_back(*source);
        }
    }
    return agents;
}

std::string agentList() {
    std::string list;
    for (Source agent : agentSources) {
        list += (list.empty() ? "" : ", ") + std::string(rawValue(agent));
    }
    return list;
}

std::string_view advice(Source agent) {
    switch (agent) {
    // A case per agent that needs a word from its user, such as a setting
    // to change in the agent itself.
    case Source::codex:
        return "Codex runs them only once you trust them: start codex and choose \"Trust all and "
               "continue\" (or review them with /hooks)";
    default:
        return {};
    }
}

namespace {

// "PreToolUse" -> "pre_tool_use", as Codex names events in its trust keys.
std::string snakeCase(std::string_view event) {
    std::string snake;
    for (char c : event) {
        if (Ascii::isUpper(c) && !snake.empty()) {
            snake += '_';
        }
        snake += Ascii::toLower(c);
    }
    return snake;
}

// Codex skips a hook its user has not trusted, and records the trust in its
// config.toml beside hooks.json, one table per hook with its hash:
//     [hooks.state."/Users/ana/.codex/hooks.json:pre_tool_use:0:0"]
//     trusted_hash = "sha256:..."
// Trusted when every event of ours has such a table. The hash itself is
// Codex's business: a hook changed since is Codex's to ask about again.
bool codexTrusted(const HookTarget& target) {
    const std::optional<std::string> config =
        InstallerFiles::readText(target.fileURL.parent_path() / "config.toml");
    if (!config) {
        return false;
    }
    std::string key = HookInstaller::tomlString(target.fileURL.string() + ":");
    key = "[hooks.state." + key.substr(0, key.size() - 1);
    std::vector<std::string> trusted;
    std::string table;
    std::string_view rest = *config;
    while (!rest.empty()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        while (!line.empty() && Ascii::isBlank(line.front())) {
            line.remove_prefix(1);
        }
        if (line.starts_with("[")) {
            table = line;
        } else if (line.starts_with("trusted_hash") && table.starts_with(key)) {
            const std::string_view event = std::string_view(table).substr(key.size());
            trusted.emplace_back(event.substr(0, event.find(':')));
        }
    }
    return std::all_of(target.events.begin(), target.events.end(), [&](const std::string& event) {
        return std::count(trusted.begin(), trusted.end(), snakeCase(event)) > 0;
    });
}

} // namespace

bool adviceHeeded(Source agent, const HookTarget& target) {
    return agent == Source::codex ? codexTrusted(target) : advice(agent).empty();
}

std::vector<FileEdit> together(FileEdit hooks, std::vector<FileEdit> statusLine) {
    const auto settings =
        std::find_if(statusLine.begin(), statusLine.end(),
                     [&](const FileEdit& change) { return change.file == hooks.file; });
    if (settings == statusLine.end()) {
        statusLine.insert(statusLine.begin(), std::move(hooks));
        return statusLine;
    }
    if (hooks.changes() && settings->changes() && hooks.after && settings->after) {
        HookInstaller::Contents merged = HookInstaller::parse(hooks.after, hooks.file);
        const HookInstaller::Contents line = HookInstaller::parse(settings->after, settings->file);
        const JSONValue* value = line.root.find("statusLine");
        merged.root.set("statusLine", value != nullptr ? std::optional(*value) : std::nullopt);
        settings->after =
            HookInstaller::text(merged.root, merged.ending != HookInstaller::Ending::noNewline);
    } else if (!settings->changes()) {
        *settings = std::move(hooks);
    }
    // The status line's order stands: its side file is saved before the
    // settings stop naming the user's command, and deleted only after they
    // name it again.
    return statusLine;
}

std::optional<std::string> programOf(std::string_view command) {
    const std::string marker = std::string(PelmoraPaths::managedMarker) + " ";
    if (!command.starts_with(marker)) {
        return std::nullopt;
    }
    command.remove_prefix(marker.size());
    std::string word;
    while (!command.empty() && command.front() != ' ') {
        if (command.front() == '\'') {
            const std::size_t close = command.find('\'', 1);
            if (close == std::string_view::npos) {
                return std::nullopt;
            }
            word += command.substr(1, close - 1);
            command.remove_prefix(close + 1);
        } else {
            const std::size_t skip = command.front() == '\\' && command.size() > 1 ? 1 : 0;
            word += command[skip];
            command.remove_prefix(skip + 1);
        }
    }
    return word.empty() ? std::nullopt : std::optional(word);
}

std::string describe(const std::exception& error) {
    std::string message = error.what();
    const auto* withPath = dynamic_cast<const pelmora::Error*>(&error);
    if (withPath != nullptr && !withPath->path().empty() &&
        message.find(withPath->path().native()) == std::string::npos) {
        message += ": " + withPath->path().string();
    }
    return printable(message);
}

bool carryOut(std::string_view label, const std::function<std::vector<FileEdit>()>& plan,
              bool dryRun, BackupRun& run) {
    std::vector<FileEdit> changes;
    try {
        changes = plan();
        if (!dryRun) {
            applyChanges(changes, run);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pelmora: %.*s: %s\n", static_cast<int>(label.size()), label.data(),
                     describe(error).c_str());
        return false;
    }
    for (const FileEdit& change : changes) {
        if (dryRun) {
            std::fputs(unifiedDiff(change).c_str(), stdout);
            continue;
        }
        if (!change.before && !change.after) {
            continue;
        }
        const char* verb = !change.changes() ? "unchanged"
                           : !change.before  ? "created"
                           : !change.after   ? "deleted"
                                             : "updated";
        std::printf("%.*s: %s %s\n", static_cast<int>(label.size()), label.data(), verb,
                    printable(change.file.native()).c_str());
    }
    return true;
}

} // namespace pelmora::cli::Install
