#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "integration/FileEdit.h"
#include "integration/HookTarget.h"
#include "json/JSONValue.h"

// Claude Code's status line, wrapped by pelmora-hook in status-line mode:
// the hook records the usage figures Claude passes it and forwards the same
// input to the user's own status-line command. That command's "statusLine"
// object is kept in a side file while the product's is in place, and put
// back on removal.
//
// Works on Claude's HookTarget and shares the hook installer's reading,
// writing and backups; like it, plan*() works out the changes (settings and
// side file) without writing, install()/uninstall() apply them.
namespace pelmora::StatusLineInstaller {

struct Status {
    enum class Case { unreadable, off, on };
    Case kind = Case::off;
    std::string text; // only for unreadable: why the settings could not be read

    static Status unreadable(std::string text) { return {Case::unreadable, std::move(text)}; }
    static Status off() { return {Case::off, {}}; }
    static Status on() { return {Case::on, {}}; }
    bool operator==(const Status&) const = default;
};

std::string_view rawValue(Status::Case kind);

// "statusline-original.json" in the support directory.
std::filesystem::path originalFile();

// `PELMORA_MANAGED=1 '<hook path>' --statusline`: the path goes in as it is,
// unlike the hooks' command lines.
std::string command(std::string_view hookPath);

// Whether a "statusLine" value is the one this product installed.
bool isOurs(const JSONValue* value);

// Never throws.
Status status(const HookTarget& target);

// The settings with the product's status line (members the user set, such
// as padding, kept), and the side file with the user's previous object when
// there was one that is not ours. Throws when the settings cannot be read.
std::vector<FileEdit> planInstall(const HookTarget& target, std::string_view hookPath,
                                  const std::filesystem::path& originalFile);
// The user's object back from the side file (or no status line when it is
// missing or damaged) and the side file deleted; nothing when the status
// line is not ours any more.
std::vector<FileEdit> planUninstall(const HookTarget& target,
                                    const std::filesystem::path& originalFile);

void install(const HookTarget& target, std::string_view hookPath,
             const std::filesystem::path& originalFile, BackupRun& run);
void uninstall(const HookTarget& target, const std::filesystem::path& originalFile, BackupRun& run);
void install(const HookTarget& target, std::string_view hookPath,
             const std::filesystem::path& originalFile);
void uninstall(const HookTarget& target, const std::filesystem::path& originalFile);

// The "command" of the saved status-line object; none when the file is
// missing or damaged, or the object has no string command.
std::optional<std::string> originalCommand(const std::filesystem::path& url);

} // namespace pelmora::StatusLineInstaller
