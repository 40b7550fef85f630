#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
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
    path url;
    std::optional<SessionRecord> record; // present exactly for ok

    static LoadResult ok(SessionRecord record, path url);
    static LoadResult unsupported(path url);
    static LoadResult corrupt(path url);
    bool operator==(const LoadResult&) const = default;
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

LoadResult load(const path& url);
std::vector<LoadResult> loadAll(const path& directory, LoadCache& cache);
std::vector<LoadResult> loadAll(const path& directory);

// Deletes the session's file and its lock file, ignoring errors.
void remove(const SessionRecord& record, const path& directory);

void postChangeNotification();

} // namespace pelmora::SessionStore
