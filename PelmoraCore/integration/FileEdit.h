#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hook/Source.h"

namespace pelmora {

// What an install or removal does to one file, worked out before anything is
// touched: the commands print it as a diff (a dry run) or hand it to applyChanges().
//
//     auto change = HookInstaller::planInstall(target, hookPath);
//     if (change.changes()) { printDiff(change.file, change.before, change.after); }
//
// Not named FileChange: that is git's changed file (activity/GitChanges.h),
// and a program that links both must not meet two definitions of one name.
struct FileEdit {
    // Whose file it is decides its backup: an agent's settings are saved
    // under the agent's name, the shell's startup file under its own; the
    // product's own files (the pi extension, side files, the zsh script)
    // are not saved.
    enum class Backup { none, agentFile, startupFile };

    std::filesystem::path file;
    std::optional<std::string> before; // none: there is no such file
    std::optional<std::string> after;  // none: the file is deleted (or stays absent)
    Backup backup = Backup::none;
    Source source = Source::claude; // the agent an agentFile belongs to

    bool changes() const { return before != after; }
    bool operator==(const FileEdit&) const = default;
};

// One run of the installers. A user's file is backed up before its first
// change in the run and not again: the Claude settings that get both the
// hooks and the status line are saved once, as the user had them.
class BackupRun {
public:
    // Backups go into `directory`, named after `now`.
    BackupRun(std::filesystem::path directory, double now);
    // The support directory's "backups" folder and the current time.
    static BackupRun current();

    // Saves the file of `change` unless it is the product's, is absent, or
    // was saved already in this run. Throws pelmora::Error.
    void save(const FileEdit& change);

    const std::filesystem::path& directory() const { return directory_; }
    double now() const { return now_; }

private:
    std::filesystem::path directory_;
    double now_;
    std::set<std::filesystem::path> saved_;
};

// Carries out `changes`: first the backups of every file that changes (a
// failed backup throws before any file is touched), then each write or
// deletion in order. Unchanged files are left alone. Throws pelmora::Error
// naming the file.
void applyChanges(const std::vector<FileEdit>& changes, BackupRun& run);

} // namespace pelmora
