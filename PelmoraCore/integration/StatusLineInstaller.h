#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "json/JSONValue.h"

// Claude Code's status line, wrapped by pelmora-hook in status-line mode.
// The user's own status-line object is kept in a side file so that the hook
// can forward to it.
namespace pelmora::StatusLineInstaller {

// "statusline-original.json" in the support directory.
std::filesystem::path originalFile();

// Whether a "statusLine" value is the one this product installed.
bool isOurs(const JSONValue* value);

// The "command" of the saved status-line object; none when the file is
// missing or damaged, or the object has no string command.
std::optional<std::string> originalCommand(const std::filesystem::path& url);

} // namespace pelmora::StatusLineInstaller
