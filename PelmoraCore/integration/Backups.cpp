#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <sys/stat.h>
#include <system_error>

#include "hook/PelmoraPaths.h"
#include "integration/HookInstaller.h"
#include "platform/Error.h"
#include "support/Time.h"

namespace pelmora {
namespace {

void copyInto(const std::filesystem::path& file, const std::filesystem::path& directory,
              const std::string& name) {
    PelmoraPaths::ensureDirectory(directory);
    const std::filesystem::path copy = directory / name;
    std::error_code error;
    std::filesystem::remove_all(copy, error);
    std::filesystem::copy_file(file, copy, error);
    if (error) {
        throw Error("Cannot back up " + file.string() + " to " + copy.string() + ": " +
                        error.message(),
                    file);
    }
}

bool fileExists(const std::filesystem::path& file) {
    std::error_code error;
    return std::filesystem::exists(file, error);
}

} // namespace

void HookInstaller::backup(const HookTarget& target, const path& directory, double now) {
    backup(target.source, target.fileURL, directory, now);
}

void HookInstaller::backup(Source source, const path& file, const path& directory, double now) {
    if (!fileExists(file)) {
        return;
    }
    std::string stamp = Time::formatISO8601(now);
    std::erase(stamp, ':');
    copyInto(file, directory,
             std::string(rawValue(source)) + "-" + file.filename().string() + "." + stamp + ".bak");
    pruneBackups(directory, backupsKept, now);
}

void HookInstaller::pruneBackups(const path& directory, int keep, double now) {
    struct Entry {
        double modified;
        path file;
    };
    std::map<std::string, std::vector<Entry>> groups;
    std::error_code error;
    for (std::filesystem::directory_iterator it(directory, error), end; !error && it != end;
         it.increment(error)) {
        const path& file = it->path();
        if (file.extension() != ".bak") {
            continue;
        }
        struct stat info {};
        const double modified = ::stat(file.c_str(), &info) == 0
                                    ? static_cast<double>(info.st_mtim.tv_sec) +
                                          static_cast<double>(info.st_mtim.tv_nsec) / 1e9
                                    : -std::numeric_limits<double>::infinity();
        // "claude-settings.json.2026-01-05T101500Z.bak" belongs to "claude-settings.json".
        groups[file.stem().stem().string()].push_back({modified, file});
    }
    for (auto& [name, entries] : groups) {
        std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
            return a.modified != b.modified ? a.modified > b.modified : a.file > b.file;
        });
        for (std::size_t index = 0; index < entries.size(); ++index) {
            const bool tooMany = index >= static_cast<std::size_t>(std::max(keep, 0));
            if (tooMany || now - entries[index].modified > backupMaxAge) {
                std::filesystem::remove(entries[index].file, error);
            }
        }
    }
}

BackupRun::BackupRun(std::filesystem::path directory, double now)
    : directory_(std::move(directory)), now_(now) {}

BackupRun BackupRun::current() {
    return BackupRun(PelmoraPaths::backupsDirectory(), Time::now());
}

void BackupRun::save(const FileEdit& change) {
    if (change.backup == FileEdit::Backup::none || !change.before ||
        saved_.count(change.file) > 0) {
        return;
    }
    if (change.backup == FileEdit::Backup::agentFile) {
        HookInstaller::backup(change.source, change.file, directory_, now_);
    } else if (fileExists(change.file)) {
        copyInto(change.file, directory_,
                 change.file.filename().string() + "-" +
                     std::to_string(static_cast<long long>(std::floor(now_))));
    }
    saved_.insert(change.file);
}

void applyChanges(const std::vector<FileEdit>& changes, BackupRun& run) {
    for (const FileEdit& change : changes) {
        if (change.changes()) {
            run.save(change);
        }
    }
    for (const FileEdit& change : changes) {
        if (!change.changes()) {
            continue;
        }
        if (change.after) {
            HookInstaller::writeText(*change.after, change.file);
            continue;
        }
        std::error_code error;
        std::filesystem::remove(change.file, error);
        if (error) {
            throw Error("Cannot delete " + change.file.string() + ": " + error.message(),
                        change.file);
        }
    }
}

} // namespace pelmora
