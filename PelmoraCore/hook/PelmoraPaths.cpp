#include "hook/PelmoraPaths.h"

#include <cstdlib>
#include <string>
#include <system_error>

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

path claudeSettings() {
    return home() / ".claude/settings.json";
}
path codexHooks() {
    return home() / ".codex/hooks.json";
}
path grokHooks() {
    return home() / ".grok/hooks/pelmora.json";
}
path commandCodeSettings() {
    return home() / ".commandcode/settings.json";
}
path devinConfig() {
    return home() / ".config/devin/config.json";
}
path qwenSettings() {
    return home() / ".qwen/settings.json";
}
path copilotHooks() {
    return home() / ".copilot/hooks/pelmora.json";
}

path kimiConfig() {
    return kimiConfig(home());
}

path kimiConfig(const path& base) {
    path primary = base / ".kimi/config.toml";
    if (fileExists(primary)) {
        return primary;
    }
    path alternative = base / ".kimi-code/config.toml";
    return fileExists(alternative) ? alternative : primary;
}

path piExtension() {
    return home() / ".pi/agent/extensions/pelmora.ts";
}

void ensureDirectory(const path& directory) {
    Files::ensureDirectory(directory, 0700);
}

} // namespace pelmora::PelmoraPaths
