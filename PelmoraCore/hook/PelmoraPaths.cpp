#include "hook/PelmoraPaths.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <system_error>

#include "hook/Agents.h"
#include "platform/Platform.h"
#include "support/Files.h"

namespace pelmora::PelmoraPaths {
namespace {

// A Unix-domain socket path must fit the 104-byte address field of macOS.
constexpr std::size_t maxSocketPathBytes = 99;

bool fileExists(const path& file) {
    std::error_code error;
    return std::filesystem::exists(file, error);
}

bool socketsMoveToTmp() {
    return (supportDirectory() / "approval.sock").native().size() > maxSocketPathBytes;
}

path tmpSocket(std::string_view suffix) {
    return "/tmp/pelmora-" + std::to_string(platform::userID()) + std::string(suffix);
}

// Every agent's row names a config file, so this never comes back empty.
path agentFile(Source agent) {
    return configFile(agent, home()).value();
}

} // namespace

path home() {
    return platform::homeDirectory();
}

path supportDirectory() {
    const char* chosen = std::getenv("PELMORA_HOME");
    if (chosen != nullptr && chosen[0] != '\0') {
        return chosen;
    }
    return home() / "Library/Application Support/Pelmora";
}

path sessionsDirectory() {
    return supportDirectory() / "sessions";
}
path logsDirectory() {
    return supportDirectory() / "logs";
}
path backupsDirectory() {
    return supportDirectory() / "backups";
}
path binDirectory() {
    return supportDirectory() / "bin";
}
path installedHookBinary() {
    return binDirectory() / hookBinaryName;
}
path installedCLIBinary() {
    return binDirectory() / cliBinaryName;
}

// Both sockets move together, decided by the longer approval socket name, so
// neither ever stays behind in a directory the other has left.
path approvalSocket() {
    return socketsMoveToTmp() ? tmpSocket(".sock") : supportDirectory() / "approval.sock";
}

path alertSocket() {
    return socketsMoveToTmp() ? tmpSocket("-alert.sock") : supportDirectory() / "alert.sock";
}

std::optional<path> configFile(Source source, const path& base) {
    const Agents::Row& row = Agents::row(source);
    if (row.configDirectory.empty()) {
        return std::nullopt;
    }
    path primary = base / row.configDirectory / row.configFile;
    if (row.alternativeConfigDirectory.empty() || fileExists(primary)) {
        return primary;
    }
    path alternative = base / row.alternativeConfigDirectory / row.configFile;
    return fileExists(alternative) ? alternative : primary;
}

std::optional<path> configFile(Source source) {
    return configFile(source, home());
}

path claudeSettings() {
    return agentFile(Source::claude);
}
path codexHooks() {
    return agentFile(Source::codex);
}
path grokHooks() {
    return agentFile(Source::grok);
}
path commandCodeSettings() {
    return agentFile(Source::commandcode);
}
path devinConfig() {
    return agentFile(Source::devin);
}
path qwenSettings() {
    return agentFile(Source::qwen);
}
path copilotHooks() {
    return agentFile(Source::copilot);
}
path kimiConfig() {
    return agentFile(Source::kimi);
}
path kimiConfig(const path& base) {
    return configFile(Source::kimi, base).value();
}
path piExtension() {
    return agentFile(Source::pi);
}

std::vector<NamedLocation> namedLocations() {
    std::vector<NamedLocation> locations{
        {"supportDirectory", supportDirectory()},
        {"sessionsDirectory", sessionsDirectory()},
        {"logsDirectory", logsDirectory()},
        {"backupsDirectory", backupsDirectory()},
        {"binDirectory", binDirectory()},
        {"installedHookBinary", installedHookBinary()},
        {"installedCLIBinary", installedCLIBinary()},
        {"approvalSocket", approvalSocket()},
        {"alertSocket", alertSocket()},
    };
    // Grouped by how the installers write them (JSON settings, then Kimi's
    // TOML, then the pi extension), the order this list has always had, so
    // that a script or a person comparing two outputs sees no reshuffle.
    std::vector<const Agents::Row*> agents;
    for (const Agents::Row& row : Agents::rows()) {
        if (!row.configFileName.empty()) {
            agents.push_back(&row);
        }
    }
    std::stable_sort(agents.begin(), agents.end(), [](const Agents::Row* a, const Agents::Row* b) {
        return a->hookFormat < b->hookFormat;
    });
    const path base = home();
    for (const Agents::Row* row : agents) {
        locations.push_back({row->configFileName, configFile(row->source, base).value()});
    }
    return locations;
}

void ensureDirectory(const path& directory) {
    Files::ensureDirectory(directory, 0700);
}

} // namespace pelmora::PelmoraPaths
