// Session files are read back from disk, where any process of the user may
// have left any bytes, by three readers: the app's single load and its
// cached scan, and the hook's locked update. Whatever the file holds: each
// says the same of it (the scan refusing only what is over its size limit),
// a file that loads is a record that the store writes and loads unchanged,
// a refusal says why, and later scans serve the same results from the cache
// without reading the file again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzDocument.h"
#include "FuzzFiles.h"
#include "json/OrderedJSON.h"
#include "session/SessionStore.h"
#include "support/Text.h"

namespace {

using namespace pelmora;
using Kind = SessionStore::LoadResult::Kind;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A valid session file whose members the input rewrites one by one.
std::string recordText(std::string_view input) {
    return fuzz::objectText({{"schemaVersion", "1"},
                             {"source", R"("claude")"},
                             {"sessionID", R"("fuzz\/session")"},
                             {"cwd", R"("\/Users\/ann")"},
                             {"state", R"("working")"},
                             {"tool", ""},
                             {"summary", ""},
                             {"title", ""},
                             {"turnStartedAt", ""},
                             {"stateSince", "1795341600"},
                             {"updatedAt", "1795341600.5"},
                             {"lastEvent", ""},
                             {"host", R"({"tmux":false})"},
                             {"pid", ""},
                             {"pidStartTime", ""},
                             {"detail", ""},
                             {"logPath", ""},
                             {"openURL", ""},
                             {"exitCode", ""},
                             {"container", ""},
                             {"composeProject", ""},
                             {"port", ""},
                             {"webURL", ""}},
                            input);
}

// Another writer's schema is the one refusal that is not damage.
bool otherSchema(std::string_view bytes) {
    const std::optional<JSONValue> json = OrderedJSON::tryParse(bytes);
    const JSONValue* version = json ? json->find("schemaVersion") : nullptr;
    const std::optional<std::int64_t> number =
        version != nullptr ? version->integerValue() : std::nullopt;
    return number && *number != SessionRecord::currentSchema;
}

void checkLoaded(const SessionStore::LoadResult& result, std::string_view bytes,
                 const std::filesystem::path& written) {
    check(result.record.has_value() == (result.kind == Kind::ok));
    check((result.kind == Kind::unsupported) == otherSchema(bytes));
    if (result.kind != Kind::ok) {
        check(!result.reason.empty() && Text::isValidUTF8(result.reason));
        return;
    }
    check(result.reason.empty());
    // The hook's reader takes what the app's takes.
    check(SessionRecord::decode(bytes) == result.record);
    SessionStore::write(*result.record, written);
    const SessionStore::LoadResult again = SessionStore::load(written);
    check(again.kind == Kind::ok && again.record == result.record);
}

} // namespace

// The first byte: with bit 6 set, the rest rewrites a valid session file
// member by member (FuzzDocument.h) instead of being the file as it is; 0xfe
// and 0xff also bring the file with trailing blanks to the scan's size limit
// and one byte over it (rarely, as such files are slow to read).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    static const fuzz::ScratchFolder folder("store-fuzz", {"sessions", "written"});
    const std::filesystem::path directory = folder.root / "sessions";
    const std::filesystem::path file =
        SessionStore::fileURL(Source::claude, "fuzz/session", directory);

    const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    std::string bytes = (data[0] & 0x40) != 0 ? recordText(rest) : std::string(rest);
    if (data[0] >= 0xfe) {
        bytes.resize(std::max(bytes.size(), SessionStore::maxFileSize + data[0] - 0xfe), ' ');
    }
    fuzz::writeFile(file, bytes);

    const SessionStore::LoadResult loaded = SessionStore::load(file);
    check(loaded.path == file);
    checkLoaded(loaded, bytes, folder.root / "written" / file.filename());

    // The scan agrees, but never reads past its limit.
    SessionStore::LoadCache cache;
    const std::vector<SessionStore::LoadResult> scanned = SessionStore::loadAll(directory, cache);
    check(scanned.size() == 1 && cache.entries.size() == 1);
    if (bytes.size() > SessionStore::maxFileSize) {
        check(scanned[0].kind == Kind::corrupt && scanned[0].path == file &&
              !scanned[0].reason.empty());
    } else {
        check(scanned[0] == loaded && scanned[0].reason == loaded.reason);
    }
    check(SessionStore::loadAll(directory) == scanned);
    const SessionStore::LoadCache first = cache;
    check(SessionStore::loadAll(directory, cache) == scanned);
    check(cache.entries.size() == 1 && cache.entries.begin()->second.result == scanned[0] &&
          cache.entries.begin()->second.size == first.entries.begin()->second.size &&
          cache.entries.begin()->second.modified == first.entries.begin()->second.modified);

    // The hook's update is handed what the record decoder makes of the file,
    // and a body that leaves none writes nothing.
    bool called = false;
    SessionStore::update(Source::claude, "fuzz/session", directory,
                         [&](std::optional<SessionRecord>& current) {
                             called = true;
                             check(current == SessionRecord::decode(bytes));
                             current.reset();
                         });
    check(called && SessionStore::load(file) == loaded);

    // A file rewritten to the same size and given back its date is served
    // from the cache, unread.
    const std::filesystem::file_time_type written = std::filesystem::last_write_time(file);
    fuzz::writeFile(file, std::string(bytes.size(), 'x'));
    std::filesystem::last_write_time(file, written);
    check(SessionStore::loadAll(directory, cache) == scanned);
    return 0;
}
