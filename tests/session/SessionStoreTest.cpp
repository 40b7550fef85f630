#include "session/SessionStore.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "common/Fixtures.h"
#include "platform/Error.h"
#include "support/Files.h"

using namespace pelmora;
namespace fs = std::filesystem;
using SessionStore::LoadResult;

namespace {

class SessionStoreTest : public ::testing::Test {
protected:
    SessionRecord record(std::string_view id) const {
        return SessionRecord::make(Source::claude, std::string(id), "/work/project", 1700000000.25);
    }
    const pelmora::testing::TempHome home;
    const fs::path root = home.path();
    const fs::path directory = root / "support" / "sessions";
};

void writeFile(const fs::path& path, std::string_view bytes) {
    Files::atomicReplace(path, bytes, 0600);
}

// The encoded record padded with trailing blanks to exactly `size` bytes.
std::string padded(const SessionRecord& record, std::size_t size) {
    std::string bytes = record.encode();
    bytes.resize(size, ' ');
    return bytes;
}

bool hasTemporaries(const fs::path& directory) {
    return std::any_of(fs::directory_iterator(directory), fs::directory_iterator(),
                       [](const auto& entry) { return entry.path().extension() == ".tmp"; });
}

} // namespace

TEST_F(SessionStoreTest, FileNamesKeepLettersAndDigitsOfAnyScript) {
    // One "_" per scalar that is not kept: an emoji, dots (no way out of the
    // folder), an invalid byte. No length limit.
    const std::string longID(300, 'A');
    const std::vector<std::tuple<Source, std::string, std::string>> rows{
        {Source::claude, "a/b c", "claude-a_b_c.json"},
        {Source::codex, "Ab-9_z", "codex-Ab-9_z.json"},
        {Source::kimi, "café-日本語-٣", "kimi-café-日本語-٣.json"},
        {Source::git, "x🙂y", "git-x_y.json"},
        {Source::build, "../..", "build-_____.json"},
        {Source::pi, "a\xff-", "pi-a_-.json"},
        {Source::claude, "", "claude-.json"},
        {Source::claude, longID, "claude-" + longID + ".json"},
    };
    for (const auto& [source, id, name] : rows) {
        EXPECT_EQ(SessionStore::fileURL(source, id, "/s"), fs::path("/s") / name) << id;
    }
}

TEST_F(SessionStoreTest, UpdateIsAReadModifyWrite) {
    const fs::path url = directory / "claude-a_b_c.json";
    const fs::path lock = url.string() + ".lock";
    std::optional<SessionRecord> seen;
    // Hands the body the stored record and writes what it leaves.
    const auto update = [&](std::optional<SessionRecord> leave) {
        SessionStore::update(Source::claude, "a/b c", directory,
                             [&](auto& current) { seen = std::exchange(current, leave); });
    };
    update(std::nullopt);
    EXPECT_FALSE(seen || fs::exists(url));
    const SessionRecord stored = record("a/b c");
    update(stored);
    EXPECT_EQ(fs::status(directory).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(url).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(lock).permissions(), fs::perms(0600));
    const std::optional<std::string> written = Files::read(url);
    update(std::nullopt);
    EXPECT_EQ(seen, stored);
    EXPECT_EQ(Files::read(url), written); // leaving none keeps the file

    // Neither version nor size is tested here, unlike in a scan; what does
    // not decode starts over. A file at this process's temporary name (a
    // dead writer's that had our pid) is no obstacle.
    SessionRecord newer = stored;
    newer.schemaVersion = 2;
    const std::pair<std::string, std::optional<SessionRecord>> rows[] = {
        {newer.encode(), newer},
        {R"({"schemaVersion":2,"shape":"different"})", std::nullopt},
        {padded(stored, SessionStore::maxFileSize * 2), stored},
        {"{\"schemaVersion\":1,", std::nullopt},
    };
    for (const auto& [bytes, handed] : rows) {
        writeFile(url, bytes);
        writeFile(Files::temporaryPath(url), "left behind");
        update(stored);
        EXPECT_EQ(seen, handed) << bytes.substr(0, 40);
        EXPECT_EQ(SessionStore::load(url), LoadResult::ok(stored, url));
    }
    EXPECT_FALSE(hasTemporaries(directory));
    // remove takes the file and its lock, and is quiet when they are gone.
    SessionStore::remove(stored, directory);
    SessionStore::remove(stored, directory);
    EXPECT_FALSE(fs::exists(url) || fs::exists(lock));
}

TEST_F(SessionStoreTest, UpdateThrowsOnFailuresAndReleasesTheLock) {
    const fs::path url = SessionStore::fileURL(Source::claude, "x", directory);
    // A directory in the file's place makes the rename fail.
    fs::create_directories(url / "occupied");
    EXPECT_THROW(SessionStore::update(Source::claude, "x", directory,
                                      [&](auto& current) { current = record("x"); }),
                 Error);
    EXPECT_FALSE(hasTemporaries(directory));
    EXPECT_THROW(
        SessionStore::update(Source::claude, "x", directory,
                             [](auto&) -> void { throw std::runtime_error("body failed"); }),
        std::runtime_error);
    const FileDescriptor lock(::open((url.string() + ".lock").c_str(), O_RDWR));
    EXPECT_EQ(::flock(lock.get(), LOCK_EX | LOCK_NB), 0);

    // A folder that cannot be made.
    writeFile(root / "plain", "file");
    EXPECT_THROW(
        SessionStore::update(Source::claude, "x", root / "plain" / "sessions", [](auto&) {}),
        Error);
}

TEST_F(SessionStoreTest, LoadSortsFilesIntoOkUnsupportedAndCorrupt) {
    fs::create_directories(directory);
    const fs::path url = directory / "claude-a.json";
    EXPECT_EQ(SessionStore::load(url), LoadResult::corrupt(url)); // missing
    std::string unknownState = record("a").encode();
    unknownState.replace(unknownState.find("\"idle\""), 6, "\"sleepy\"");
    for (std::string_view bytes :
         {std::string_view(""), std::string_view("not json"), std::string_view("[1,2]"),
          std::string_view(R"({"schemaVersion":1})"), std::string_view(R"({"schemaVersion":"2"})"),
          std::string_view(R"({"schemaVersion":1.5})"), std::string_view(unknownState)}) {
        writeFile(url, bytes);
        EXPECT_EQ(SessionStore::load(url), LoadResult::corrupt(url)) << bytes;
    }
    for (std::string_view bytes : {R"({"schemaVersion":0})", R"({"schemaVersion":2.0})",
                                   R"({"schemaVersion":-1,"source":"nobody"})"}) {
        writeFile(url, bytes);
        EXPECT_EQ(SessionStore::load(url), LoadResult::unsupported(url)) << bytes;
    }
}

TEST_F(SessionStoreTest, LoadAllScansJsonFilesThroughTheCache) {
    fs::create_directories(directory);
    const SessionRecord a = record("a");
    const fs::path aURL = SessionStore::fileURL(Source::claude, "a", directory);
    SessionStore::write(a, aURL);
    SessionStore::LoadCache cache;
    const auto scan = [&] { return SessionStore::loadAll(directory, cache); };
    EXPECT_EQ(scan(), std::vector{LoadResult::ok(a, aURL)});

    // Same size and date: served from the cache, stale until either changes.
    const fs::file_time_type stamp = fs::last_write_time(aURL);
    SessionRecord b = a;
    b.sessionID = "b"; // the same length, so the same size
    writeFile(aURL, b.encode());
    fs::last_write_time(aURL, stamp);
    EXPECT_EQ(scan(), std::vector{LoadResult::ok(a, aURL)});
    fs::last_write_time(aURL, stamp + std::chrono::seconds(1));
    EXPECT_EQ(scan(), std::vector{LoadResult::ok(b, aURL)});
    // A sub-second change of date alone is enough.
    writeFile(aURL, a.encode());
    fs::last_write_time(aURL, stamp + std::chrono::milliseconds(1500));
    EXPECT_EQ(scan(), std::vector{LoadResult::ok(a, aURL)});

    const fs::path atLimit = directory / "claude-limit.json";
    const fs::path overLimit = directory / "claude-over.json";
    const fs::path newer = directory / "codex-newer.json";
    writeFile(atLimit, padded(a, SessionStore::maxFileSize));
    writeFile(overLimit, padded(a, SessionStore::maxFileSize + 1));
    writeFile(newer, R"({"schemaVersion":3})");
    // Skipped by name: lock, interrupted write, other extensions, no extension.
    for (const fs::path& skipped :
         {fs::path(aURL.string() + ".lock"), directory / ".claude-a.json.4242.tmp",
          directory / "notes.txt", directory / "json", directory / "claude-b.JSON"}) {
        writeFile(skipped, "{");
    }
    std::vector<LoadResult> all = scan();
    std::sort(all.begin(), all.end(), [](const auto& x, const auto& y) { return x.path < y.path; });
    EXPECT_EQ(all, (std::vector{LoadResult::ok(a, aURL), LoadResult::ok(a, atLimit),
                                LoadResult::corrupt(overLimit), LoadResult::unsupported(newer)}));
    EXPECT_EQ(SessionStore::loadAll(directory).size(), 4u);

    // Vanished files leave the cache; an unlistable folder empties it.
    fs::remove(newer);
    EXPECT_EQ(scan().size(), 3u);
    EXPECT_EQ(cache.entries.count(newer), 0u);
    EXPECT_TRUE(SessionStore::loadAll(root / "missing", cache).empty());
    EXPECT_TRUE(cache.entries.empty());
}

// Every process appends one character under the lock; a lost update would
// show as a shorter detail. A writer that throws aborts, failing its status.
TEST_F(SessionStoreTest, ConcurrentWritersLoseNoUpdate) {
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> writers(32);
    for (pid_t& pid : writers) {
        if ((pid = ::fork()) == 0) {
            ::close(start[1]);
            char byte; // everyone starts together, when the parent closes the pipe
            (void)!::read(start[0], &byte, 1);
            SessionStore::update(Source::codex, "shared", directory, [](auto& current) {
                current = current.value_or(SessionRecord::make(Source::codex, "shared", "/w", 1));
                current->detail = current->detail.value_or("") + "x";
            });
            ::_exit(0);
        }
    }
    ::close(start[0]);
    ::close(start[1]);
    for (const pid_t pid : writers) {
        int status = -1;
        ::waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const LoadResult result =
        SessionStore::load(SessionStore::fileURL(Source::codex, "shared", directory));
    ASSERT_TRUE(result.record);
    EXPECT_EQ(result.record->detail, std::string(writers.size(), 'x'));
    EXPECT_FALSE(hasTemporaries(directory));
}

// A writer killed at any moment leaves the old file or the new one, whole;
// its temporary is ignored by the scan, and removed once it is old.
TEST_F(SessionStoreTest, KilledWriterNeverLeavesATornFile) {
    fs::create_directories(directory);
    const fs::path url = SessionStore::fileURL(Source::claude, "torn", directory);
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> pause(50, 900);
    for (int round = 0; round < 150; ++round) {
        int running[2];
        ASSERT_EQ(::pipe(running), 0);
        const pid_t pid = ::fork();
        if (pid == 0) {
            SessionRecord record = SessionRecord::make(Source::claude, "torn", "/w", 1);
            for (bool first = true;; first = false, ++record.updatedAt) {
                record.detail = std::string(random() % 60000, 'd');
                SessionStore::write(record, url);
                if (first) {
                    (void)!::write(running[1], "w", 1); // the kill lands while writes are under way
                }
            }
        }
        ::close(running[1]);
        char byte;
        ASSERT_EQ(::read(running[0], &byte, 1), 1) << "the writer failed in round " << round;
        ::close(running[0]);
        ::usleep(static_cast<useconds_t>(pause(random)));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        ASSERT_TRUE(SessionStore::load(url).record) << "round " << round;
    }
    EXPECT_EQ(SessionStore::loadAll(directory), std::vector{SessionStore::load(url)});
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        fs::last_write_time(entry.path(),
                            fs::file_time_type::clock::now() - std::chrono::minutes(1));
    }
    EXPECT_EQ(SessionStore::loadAll(directory), std::vector{SessionStore::load(url)});
    EXPECT_FALSE(hasTemporaries(directory));
}

TEST_F(SessionStoreTest, ScanRemovesOldTemporariesOfWritersThatAreGone) {
    fs::create_directories(directory);
    const pid_t exited = ::fork();
    if (exited == 0) {
        ::_exit(0);
    }
    ::waitpid(exited, nullptr, 0);
    const std::string dead = std::to_string(exited);
    using std::chrono::seconds;
    // Name, age, removed. Our own process started after a minute-old file
    // was written, so that file's writer had our pid before us.
    const std::tuple<std::string, seconds, bool> rows[] = {
        {".claude-a.json." + dead + ".tmp", seconds(60), true},
        {".claude-b.json." + std::to_string(::getpid()) + ".tmp", seconds(60), true},
        {".claude-c.json." + dead + ".tmp", seconds(2), false}, // its writer may be starting
        {".claude-d.json.1.tmp", seconds(11), false},           // a live writer
        {"claude-e.json." + dead + ".tmp", seconds(60), false},
        {".notes." + dead + ".tmp", seconds(60), false},
        {".claude-f.json." + dead + "x.tmp", seconds(60), false},
    };
    const auto now = fs::file_time_type::clock::now();
    for (const auto& [name, age, removed] : rows) {
        writeFile(directory / name, "{");
        fs::last_write_time(directory / name, now - age);
    }
    EXPECT_TRUE(SessionStore::loadAll(directory).empty());
    for (const auto& [name, age, removed] : rows) {
        EXPECT_EQ(fs::exists(directory / name), !removed) << name;
    }
}
