#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "hook/Source.h"
#include "session/SessionRecord.h"

// One JSON file per session. Writers serialise on a per-session lock file and
// replace the file atomically; readers take no lock and scan the directory
// with a cache keyed by modification date and size.
namespace pelmora::SessionStore {

using std::filesystem::path;

inline constexpr std::size_t maxFileSize = 262144;

struct LoadResult {
    enum class Kind { ok, unsupported, corrupt };
    Kind kind = Kind::corrupt;
    std::filesystem::path path;
    std::optional<SessionRecord> record; // present exactly for ok
    // Why the file was not loaded, in words for people; empty for ok.
    // corrupt: "cannot be read (<system message>)", "larger than the
    // 262144-byte limit (<size> bytes)", "not JSON: <message> at line <l>,
    // column <c>", or the first member that failed to decode ("state:
    // unknown value \"wrking\""); unsupported: "schema version 2; this
    // version reads 1".
    std::string reason;

    static LoadResult ok(SessionRecord record, std::filesystem::path path);
    static LoadResult unsupported(std::filesystem::path path, std::string reason = {});
    static LoadResult corrupt(std::filesystem::path path, std::string reason = {});
    // The result itself: kind, path and record. The reason only explains it.
    bool operator==(const LoadResult& other) const {
        return kind == other.kind && path == other.path && record == other.record;
    }
};

struct LoadCache {
    struct Entry {
        double modified = 0;
        std::int64_t size = 0;
        LoadResult result;
    };
    std::map<path, Entry> entries;
};

path fileURL(Source source, std::string_view sessionID, const path& directory);

// The locked read-modify-write. The body gets the stored record (none when
// missing or undecodable) and leaves the record to write, or none to write
// nothing. Throws pelmora::Error when the directory, the lock file or the
// write fails.
void update(Source source, std::string_view sessionID, const path& directory,
            const std::function<void(std::optional<SessionRecord>&)>& body);

// The atomic replace, mode 0600. Throws pelmora::Error.
void write(const SessionRecord& record, const path& url);

// Never throws: damage is reported as corrupt or unsupported, with its reason.
LoadResult load(const path& path);
std::vector<LoadResult> loadAll(const path& directory, LoadCache& cache);
std::vector<LoadResult> loadAll(const path& directory);
// After a loadAll with `cache`: looks again at the named files of the
// folder alone (those a change notice named), updating the cache, and gives
// every cached result, in file-name order. A reader that is told which
// files changed spares itself a stat of every file on each change.
std::vector<LoadResult> reload(const path& directory, LoadCache& cache,
                               const std::set<std::string>& names);

// Deletes the session's file and its lock file, ignoring errors.
void remove(const SessionRecord& record, const path& directory);

void postChangeNotification();

} // namespace pelmora::SessionStore
