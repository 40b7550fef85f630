#include "session/SessionStore.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "hook/PelmoraPaths.h"
#include "hook/ProcessInspector.h"
#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"
#include "platform/Platform.h"
#include "support/Files.h"
#include "support/Integers.h"
#include "support/Text.h"

namespace pelmora::SessionStore {

namespace {

// Foundation's distant past (year 1), so an unknown date never equals a real one.
constexpr double distantPast = -62135596800.0;

path lockPath(const path& url) {
    path lock = url;
    lock += ".lock";
    return lock;
}

// Letters and digits of any script stay, so ids stay readable; everything
// else, path separators included, becomes one "_" per scalar.
void appendSanitised(std::string& out, std::string_view sessionID) {
    std::size_t offset = 0;
    while (offset < sessionID.size()) {
        const std::size_t start = offset;
        const char32_t scalar = Text::decodeScalar(sessionID, offset);
        if (scalar == U'-' || scalar == U'_' || Text::isLetter(scalar) || Text::isNumber(scalar)) {
            out.append(sessionID.substr(start, offset - start));
        } else {
            out.push_back('_');
        }
    }
}

double secondsSince1970(std::filesystem::file_time_type time) {
    const auto system = std::chrono::file_clock::to_sys(time);
    return std::chrono::duration<double>(system.time_since_epoch()).count();
}

std::string tooLarge(std::uintmax_t size) {
    return "larger than the " + std::to_string(maxFileSize) + "-byte limit (" +
           std::to_string(size) + " bytes)";
}

// Why a file could not be read, asked only once reading has failed.
std::string unreadable(const std::filesystem::path& file, std::size_t limit) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (error) {
        return "cannot be read (" + error.message() + ")";
    }
    if (!std::filesystem::is_regular_file(status)) {
        return "not a regular file";
    }
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (!error && size > limit) {
        return tooLarge(size);
    }
    return "cannot be read";
}

LoadResult loadBytes(const std::string& bytes, const std::filesystem::path& file) {
    std::optional<JSONValue> json;
    try {
        json = OrderedJSON::parseDiagnosed(bytes);
    } catch (const JSONParseError& error) {
        return LoadResult::corrupt(file, "not JSON: " + error.located());
    }
    // Another writer's format is left alone rather than reported as damage.
    if (const JSONValue* version = json->find("schemaVersion")) {
        const std::optional<std::int64_t> number = version->integerValue();
        if (number && *number != SessionRecord::currentSchema) {
            return LoadResult::unsupported(file, "schema version " + std::to_string(*number) +
                                                     "; this version reads " +
                                                     std::to_string(SessionRecord::currentSchema));
        }
    }
    JSONDecodeFailure failure;
    std::optional<SessionRecord> record = SessionRecord::fromJSON(*json, &failure);
    if (!record) {
        return LoadResult::corrupt(file, failure.text());
    }
    return LoadResult::ok(std::move(*record), file);
}

LoadResult readAndLoad(const std::filesystem::path& file, std::size_t limit) {
    const std::optional<std::string> bytes = Files::read(file, limit);
    return bytes ? loadBytes(*bytes, file) : LoadResult::corrupt(file, unreadable(file, limit));
}

// A writer killed between creating its temporary and the rename leaves the
// file behind, and nobody else would ever remove it. The reader's scan, which
// lists the folder anyway, takes those whose writer is gone: no process
// with the pid in the name, or only one that started after the file was last
// written (the pid was reused). Young files are spared, so a writer that is
// just starting is never robbed of its temporary.
void removeAbandonedTemporary(const std::filesystem::directory_entry& entry) {
    constexpr double minimumAgeSeconds = 10;
    const std::string name = entry.path().filename().string();
    // ".<source>-<id>.json.<pid>.tmp", and nothing else.
    const std::string_view stem = std::string_view(name).substr(0, name.rfind(".tmp"));
    const std::size_t pidStart = stem.rfind(".json.") + 6;
    if (stem.size() + 4 != name.size() || name.front() != '.' || pidStart < 6) {
        return;
    }
    const std::optional<std::int32_t> pid = parseInteger<std::int32_t>(stem.substr(pidStart));
    std::error_code error;
    const std::filesystem::file_time_type written = entry.last_write_time(error);
    if (!pid || *pid < 1 || error) {
        return;
    }
    const double modified = secondsSince1970(written);
    const double now = secondsSince1970(std::filesystem::file_time_type::clock::now());
    if (now - modified < minimumAgeSeconds) {
        return;
    }
    // Start times are known to about a second (Linux counts from a boot
    // time in whole seconds), hence the slack.
    if (ProcessInspector::isAlive(*pid, std::nullopt)) {
        const std::optional<platform::ProcessEntry> writer = platform::processEntry(*pid);
        if (!writer || writer->startTime < modified + 2) {
            return;
        }
    }
    std::filesystem::remove(entry.path(), error);
}

// What the cache compares to tell a file it has read from one that changed:
// the modification time (the distant past when unknown) and the size.
struct Stamp {
    double modified = distantPast;
    std::int64_t size = 0;
};

Stamp stampOf(const path& file) {
    const std::optional<platform::FileStamp> stamp = platform::fileStamp(file);
    return stamp ? Stamp{stamp->modified, stamp->size} : Stamp{};
}

bool stillStandsFor(const LoadCache::Entry& cached, const Stamp& stamp) {
    return cached.modified == stamp.modified && cached.size == stamp.size;
}

LoadCache::Entry freshEntry(const path& file, const Stamp& stamp) {
    // The limit also covers a file that grew after it was measured.
    LoadResult result =
        stamp.size > static_cast<std::int64_t>(maxFileSize)
            ? LoadResult::corrupt(file, tooLarge(static_cast<std::uintmax_t>(stamp.size)))
            : readAndLoad(file, maxFileSize);
    return LoadCache::Entry{stamp.modified, stamp.size, std::move(result)};
}

} // namespace

LoadResult LoadResult::ok(SessionRecord record, std::filesystem::path path) {
    return LoadResult{Kind::ok, std::move(path), std::move(record), {}};
}

LoadResult LoadResult::unsupported(std::filesystem::path path, std::string reason) {
    return LoadResult{Kind::unsupported, std::move(path), std::nullopt, std::move(reason)};
}

LoadResult LoadResult::corrupt(std::filesystem::path path, std::string reason) {
    return LoadResult{Kind::corrupt, std::move(path), std::nullopt, std::move(reason)};
}

path fileURL(Source source, std::string_view sessionID, const path& directory) {
    const std::string_view prefix = rawValue(source);
    std::string name;
    name.reserve(prefix.size() + sessionID.size() + 6);
    name.append(prefix);
    name.push_back('-');
    appendSanitised(name, sessionID);
    name.append(".json");
    return directory / name;
}

void update(Source source, std::string_view sessionID, const path& directory,
            const std::function<void(std::optional<SessionRecord>&)>& body) {
    PelmoraPaths::ensureDirectory(directory);
    const path url = fileURL(source, sessionID, directory);
    // Held across read, body and write so that concurrent hooks of one
    // session never lose each other's change; released on every way out.
    const Files::ExclusiveLock lock(lockPath(url));

    // A missing or damaged file simply starts over: the next write replaces it.
    std::optional<SessionRecord> current;
    if (std::optional<std::string> bytes = Files::read(url)) {
        current = SessionRecord::decode(*bytes);
    }
    body(current);
    if (current) {
        // Under the lock, a temporary at this process's name is a dead
        // writer's that had our pid, or a planted link: either is unlinked
        // and made afresh, never written through or left to block the session.
        Files::atomicReplace(url, current->encode(), 0600, Files::TakenTemporary::replace);
    }
}

void write(const SessionRecord& record, const path& url) {
    Files::atomicReplace(url, record.encode(), 0600);
}

LoadResult load(const path& path) {
    return readAndLoad(path, static_cast<std::size_t>(-1));
}

std::vector<LoadResult> loadAll(const path& directory, LoadCache& cache) {
    std::vector<LoadResult> results;
    std::error_code error;
    std::filesystem::directory_iterator entries(directory, error);
    if (error) {
        cache.entries.clear();
        return results;
    }

    LoadCache fresh;
    const std::filesystem::directory_iterator end;
    for (; entries != end; entries.increment(error)) {
        if (error) {
            break;
        }
        const std::filesystem::directory_entry& entry = *entries;
        const path& file = entry.path();
        // Lock files (".lock") and interrupted writes (".tmp") fall out here.
        if (file.extension() != ".json") {
            removeAbandonedTemporary(entry);
            continue;
        }

        // The old entry moves over whole when the file looks unchanged, so a
        // quiet rescan neither reads nor allocates per file.
        const Stamp stamp = stampOf(file);
        auto node = cache.entries.extract(file);
        if (!node.empty() && stillStandsFor(node.mapped(), stamp)) {
            results.push_back(node.mapped().result);
            fresh.entries.insert(std::move(node));
            continue;
        }
        LoadCache::Entry loaded = freshEntry(file, stamp);
        results.push_back(loaded.result);
        fresh.entries.insert_or_assign(file, std::move(loaded));
    }
    cache = std::move(fresh);
    return results;
}

std::vector<LoadResult> loadAll(const path& directory) {
    LoadCache cache;
    return loadAll(directory, cache);
}

std::vector<LoadResult> reload(const path& directory, LoadCache& cache,
                               const std::set<std::string>& names) {
    for (const std::string& name : names) {
        const path file = directory / name;
        // Only the folder's own session files: a name is never a way out of it.
        if (file.extension() != ".json" || file.filename() != name) {
            continue;
        }
        const std::optional<platform::FileStamp> found = platform::fileStamp(file);
        if (!found) { // removed, or renamed away
            cache.entries.erase(file);
            continue;
        }
        const Stamp stamp{found->modified, found->size};
        const auto known = cache.entries.find(file);
        if (known == cache.entries.end() || !stillStandsFor(known->second, stamp)) {
            cache.entries.insert_or_assign(file, freshEntry(file, stamp));
        }
    }
    std::vector<LoadResult> results;
    results.reserve(cache.entries.size());
    for (const auto& [file, cached] : cache.entries) {
        results.push_back(cached.result);
    }
    return results;
}

void remove(const SessionRecord& record, const path& directory) {
    const path url = fileURL(record.source, record.sessionID, directory);
    std::error_code ignored;
    std::filesystem::remove(url, ignored);
    std::filesystem::remove(lockPath(url), ignored);
}

void postChangeNotification() {
    // The name is a string literal, so its bytes end in a NUL.
    platform::postNotification(PelmoraPaths::darwinNotification.data());
}

} // namespace pelmora::SessionStore
