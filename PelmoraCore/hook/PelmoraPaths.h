#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "hook/Source.h"

// Every location of the system, spelled once; the agents' files come from
// their rows in Agents. Each is recomputed on every call: the support
// directory reads PELMORA_HOME each time, and the file of an agent with an
// alternative folder (kimiConfig) looks at the file system each time.
namespace pelmora::PelmoraPaths {

using std::filesystem::path;

inline constexpr std::string_view hookBinaryName = "pelmora-hook";
inline constexpr std::string_view cliBinaryName = "pelmora";
inline constexpr std::string_view managedMarker = "PELMORA_MANAGED=1";
inline constexpr std::string_view darwinNotification = "com.pelmora.state-changed";

path home();
path supportDirectory();
path sessionsDirectory();
path logsDirectory();
path backupsDirectory();
path binDirectory();
path installedHookBinary();
path installedCLIBinary();
path approvalSocket();
path alertSocket();

// The file the product's hooks are written into, under `home`: the row's
// config folder joined with its config file. An agent with an alternative
// folder (Kimi Code's ".kimi-code") has its file there only when the file
// is missing from the main folder and present in the alternative; a fresh
// install goes to the main folder. None for the activity sources.
std::optional<path> configFile(Source source, const path& home);
// The same under the user's home.
std::optional<path> configFile(Source source);

// Each agent's file by the name the code and `pelmora paths` know it by.
path claudeSettings();
path codexHooks();
path grokHooks();
path commandCodeSettings();
path devinConfig();
path qwenSettings();
path copilotHooks();
path kimiConfig();
path kimiConfig(const path& home);
path piExtension();

struct NamedLocation {
    std::string_view name;
    path location;
    bool operator==(const NamedLocation&) const = default;
};
// Every location above with its name, support folders and sockets first,
// then the agents' files; what `pelmora paths` prints.
std::vector<NamedLocation> namedLocations();

// Creates the directory and missing parents with mode 0700; throws
// pelmora::Error when it cannot.
void ensureDirectory(const path& directory);

} // namespace pelmora::PelmoraPaths
