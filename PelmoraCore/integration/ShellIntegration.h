#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "integration/FileEdit.h"

// Reports long or failed commands typed in an interactive zsh: a script in
// the support directory hooks zsh's preexec and precmd and calls
// `<cli> shell start` once a command has run `minSeconds`, and
// `<cli> shell end` when it finishes having run that long, or when a git
// command fails however fast. The user's .zshrc sources the script from a
// marked block; removing the block leaves the rest of the file as it was.
//
//     auto changes = ShellIntegration::planInstall(cli, 10, ShellIntegration::zshrcURL(),
//                                                  ShellIntegration::scriptURL());
namespace pelmora::ShellIntegration {

inline constexpr std::string_view beginMarker = "# >>> pelmora shell integration >>>";
inline constexpr std::string_view endMarker = "# <<< pelmora shell integration <<<";

// "shell/pelmora.zsh" in the support directory.
std::filesystem::path scriptURL();
// ".zshrc" in $ZDOTDIR when it is set and not empty, else in `home`.
std::filesystem::path zshrcURL(const std::filesystem::path& home);
// The same with the home folder from the password database.
std::filesystem::path zshrcURL();

// The zsh script that calls `cli` (quoted for the shell here).
std::string script(std::string_view cli, int minSeconds);

// The rc text with the block that sources `script` appended, or as it is
// when it has the block already.
std::string installing(std::string_view rcText, const std::filesystem::path& script);
// The rc text without the lines from each begin marker through the end
// marker that follows it; a block without its end marker is left alone.
std::string removing(std::string_view rcText);

// The script (rewritten each time, so a new threshold takes effect) and the
// rc file. Throws pelmora::Error when the rc file cannot be read.
std::vector<FileEdit> planInstall(std::string_view cli, int minSeconds,
                                  const std::filesystem::path& rc,
                                  const std::filesystem::path& script);
// The rc file without the block; the script stays.
FileEdit planRemove(const std::filesystem::path& rc);

void install(std::string_view cli, int minSeconds, const std::filesystem::path& rc,
             const std::filesystem::path& script, BackupRun& run);
void remove(const std::filesystem::path& rc, BackupRun& run);
void install(std::string_view cli, int minSeconds, const std::filesystem::path& rc,
             const std::filesystem::path& script);
void remove(const std::filesystem::path& rc);

// The rc file holds the begin marker. Never throws.
bool isInstalled(const std::filesystem::path& rc);

} // namespace pelmora::ShellIntegration
