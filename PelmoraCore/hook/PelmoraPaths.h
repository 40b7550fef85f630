#pragma once

#include <filesystem>
#include <string_view>

// Every location of the system, spelled once. Each is recomputed on every
// call: the support directory reads PELMORA_HOME each time, and kimiConfig
// looks at the file system each time.
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

path claudeSettings();
path codexHooks();
path grokHooks();
path commandCodeSettings();
path devinConfig();
path qwenSettings();
path copilotHooks();
path kimiConfig();
// The same rule under a given home folder.
path kimiConfig(const path& home);
path piExtension();

// Creates the directory and missing parents with mode 0700; throws
// pelmora::Error when it cannot.
void ensureDirectory(const path& directory);

} // namespace pelmora::PelmoraPaths
