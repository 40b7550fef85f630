#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// What the installers share for reading users' files. Internal to integration/.
namespace pelmora::InstallerFiles {

// The whole file; none when there is no file (a dangling link included).
// Throws pelmora::Error naming the file when it exists but cannot be read.
std::optional<std::string> readText(const std::filesystem::path& file);
// readText, and an error "<file>: not UTF-8" for text that is not.
std::optional<std::string> readUTF8(const std::filesystem::path& file);

// The path a chain of symbolic links ends at (the path itself when it is
// not a link); the last link's target need not exist.
std::filesystem::path resolvingLinks(const std::filesystem::path& file);

// A regular file that this user may run: a hook path that is not one means
// the app was moved or deleted.
bool isExecutableFile(std::string_view file);

// 'text' for the shell: single quotes, each ' inside written '\''.
std::string shellQuoted(std::string_view text);

} // namespace pelmora::InstallerFiles
