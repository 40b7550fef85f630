#include "session/SessionStore.h"

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <signal.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/Error.h"

using namespace pelmora;
namespace fs = std::filesystem;
using SessionStore::LoadResult;

namespace {

class SessionStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "pelmora-store-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root = pattern;
        directory = root / "support" / "sessions";
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }

    SessionRecord record(std::string_view id, double now = 1700000000.25) const {
        return SessionRecord::make(Source::claude, std::string(id), "/work/project", now);
    }

    fs::path root;
    fs::path directory;
};

unsigned permissions(const fs::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return 0;
    }
    return info.st_mode & 0777u;
}

void writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The encoded record padded with trailing blanks to exactly `size` bytes.
std::string padded(const SessionRecord& record, std::size_t size) {
    std::string bytes = record.encode();
    bytes.resize(size, ' ');
    return bytes;
}

std::vector<fs::path> hiddenTemporaries(const fs::path& directory) {
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (entry.path().extension() == ".tmp") {
            found.push_back(entry.path());
        }
    }
    return found;
}

void appendToDetail(std::optional<SessionRecord>& current, std::string_view id) {
    if (!current) {
        current = SessionRecord::make(Source::codex, std::string(id), "/w", 1);
    }
    current->detail = current->detail.value_or("") + "x";
}

} // namespace

TEST_F(SessionStoreTest, FileNamesKeepLettersAndDigitsOfAnyScript) {
    const fs::path dir = "/s";
    EXPECT_EQ(SessionStore::fileURL(Source::claude, "a/b c", dir), "/s/claude-a_b_c.json");
    EXPECT_EQ(SessionStore::fileURL(Source::codex, "Ab-9_z", dir), "/s/codex-Ab-9_z.json");
    EXPECT_EQ(SessionStore::fileURL(Source::kimi, "café-日本語-٣", dir),
              "/s/kimi-café-日本語-٣.json");
    // One "_" per scalar: an emoji, dots (no way out of the folder), an invalid byte.
    EXPECT_EQ(SessionStore::fileURL(Source::git, "x🙂y", dir), "/s/git-x_y.json");
    EXPECT_EQ(SessionStore::fileURL(Source::build, "../..", dir), "/s/build-_____.json");
    EXPECT_EQ(SessionStore::fileURL(Source::pi,
                                    std::string("a\xff"
                                                "b"),
                                    dir),
              "/s/pi-a_b.json");
    EXPECT_EQ(SessionStore::fileURL(Source::claude, "", dir), "/s/claude-.json");
    const std::string longID(300, 'A');
    EXPECT_EQ(SessionStore::fileURL(Source::claude, longID, dir).filename(),
              "claude-" + longID + ".json");
}

TEST_F(SessionStoreTest, UpdateCreatesOwnerOnlyFilesAndRoundTrips) {
    const SessionRecord expected = [&] {
        SessionRecord r = record("a/b c");
        r.state = SessionState::working;
        r.title = "Ship it";
        r.turnStartedAt = 1700000001.5;
        r.pid = -7;
        r.port = 8080;
        r.host.tmux = true;
        return r;
    }();
    SessionStore::update(Source::claude, "a/b c", directory,
                         [&](std::optional<SessionRecord>& current) {
                             EXPECT_FALSE(current.has_value());
                             current = expected;
                         });
    const fs::path url = directory / "claude-a_b_c.json";
    EXPECT_EQ(permissions(directory), 0700u);
    EXPECT_EQ(permissions(url), 0600u);
    EXPECT_EQ(permissions(fs::path(url.string() + ".lock")), 0600u);
    EXPECT_EQ(SessionStore::load(url), LoadResult::ok(expected, url));

    // The next update sees the stored record.
    SessionStore::update(Source::claude, "a/b c", directory,
                         [&](std::optional<SessionRecord>& current) {
                             EXPECT_EQ(current, expected);
                             current->state = SessionState::done;
                         });
    ASSERT_EQ(SessionStore::load(url).kind, LoadResult::Kind::ok);
    EXPECT_EQ(SessionStore::load(url).record->state, SessionState::done);
    EXPECT_TRUE(hiddenTemporaries(directory).empty());

    // remove takes the file and its lock, and is quiet when they are gone.
    SessionStore::remove(expected, directory);
    EXPECT_FALSE(fs::exists(url));
    EXPECT_FALSE(fs::exists(url.string() + ".lock"));
    SessionStore::remove(expected, directory);
}

TEST_F(SessionStoreTest, UpdateWritesNothingWhenTheBodyLeavesNone) {
    SessionStore::update(Source::claude, "none", directory, [](std::optional<SessionRecord>&) {});
    const fs::path url = SessionStore::fileURL(Source::claude, "none", directory);
    EXPECT_FALSE(fs::exists(url));

    SessionStore::write(record("none"), url);
    const std::string before = readFile(url);
    SessionStore::update(Source::claude, "none", directory,
                         [](std::optional<SessionRecord>& current) { current.reset(); });
    EXPECT_EQ(readFile(url), before);
}

TEST_F(SessionStoreTest, UpdateReadsWithoutVersionOrSizeTests) {
    fs::create_directories(directory);
    const fs::path url = SessionStore::fileURL(Source::claude, "v2", directory);

    // Another schema version: unsupported to the reader, yet handed to a writer.
    SessionRecord newer = record("v2");
    newer.schemaVersion = 2;
    SessionStore::write(newer, url);
    EXPECT_EQ(SessionStore::load(url), LoadResult::unsupported(url));
    std::optional<SessionRecord> seen;
    SessionStore::update(Source::claude, "v2", directory,
                         [&](std::optional<SessionRecord>& current) { seen = current; });
    EXPECT_EQ(seen, newer);

    // Of another version and not decodable: still unsupported, and none for a writer.
    writeFile(url, R"({"schemaVersion":2,"shape":"different"})");
    EXPECT_EQ(SessionStore::load(url), LoadResult::unsupported(url));
    SessionStore::update(Source::claude, "v2", directory,
                         [&](std::optional<SessionRecord>& current) { seen = current; });
    EXPECT_FALSE(seen.has_value());

    // Larger than a scan would read, but a writer still reads it.
    const SessionRecord large = record("v2");
    writeFile(url, padded(large, SessionStore::maxFileSize * 2));
    SessionStore::update(Source::claude, "v2", directory,
                         [&](std::optional<SessionRecord>& current) { seen = current; });
    EXPECT_EQ(seen, large);

    // A damaged file is replaced by the next write.
    writeFile(url, "{\"schemaVersion\":1,");
    SessionStore::update(Source::claude, "v2", directory,
                         [&](std::optional<SessionRecord>& current) {
                             EXPECT_FALSE(current.has_value());
                             current = large;
                         });
    EXPECT_EQ(SessionStore::load(url), LoadResult::ok(large, url));
}

TEST_F(SessionStoreTest, UpdateReleasesTheLockOnEveryWayOut) {
    const fs::path url = SessionStore::fileURL(Source::claude, "x", directory);
    const auto lockIsFree = [&] {
        const int fd = ::open((url.string() + ".lock").c_str(), O_RDWR);
        const bool free = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (fd >= 0) {
            ::close(fd);
        }
        return free;
    };

    EXPECT_THROW(SessionStore::update(Source::claude, "x", directory,
                                      [](std::optional<SessionRecord>&) {
                                          throw std::runtime_error("body failed");
                                      }),
                 std::runtime_error);
    EXPECT_TRUE(lockIsFree());

    // A directory in the file's place makes the rename fail.
    fs::create_directories(url / "occupied");
    EXPECT_THROW(
        SessionStore::update(Source::claude, "x", directory,
                             [&](std::optional<SessionRecord>& current) { current = record("x"); }),
        Error);
    EXPECT_TRUE(lockIsFree());
    EXPECT_TRUE(hiddenTemporaries(directory).empty());

    // A folder that cannot be made.
    writeFile(root / "plain", "file");
    EXPECT_THROW(SessionStore::update(Source::claude, "x", root / "plain" / "sessions",
                                      [](std::optional<SessionRecord>&) {}),
                 Error);
}

TEST_F(SessionStoreTest, LoadSortsFilesIntoOkUnsupportedAndCorrupt) {
    fs::create_directories(directory);
    const fs::path url = directory / "claude-a.json";
    EXPECT_EQ(SessionStore::load(url), LoadResult::corrupt(url)); // missing
    for (std::string_view bytes : {
             std::string_view(""),
             std::string_view("not json"),
             std::string_view("[1,2]"),
             std::string_view(R"({"schemaVersion":1})"),
             std::string_view(R"({"schemaVersion":"2"})"),
             std::string_view(R"({"schemaVersion":1.5})"),
         }) {
        writeFile(url, bytes);
        EXPECT_EQ(SessionStore::load(url), LoadResult::corrupt(url)) << bytes;
    }
    for (std::string_view bytes : {R"({"schemaVersion":0})", R"({"schemaVersion":2.0})",
                                   R"({"schemaVersion":-1,"source":"nobody"})"}) {
        writeFile(url, bytes);
        EXPECT_EQ(SessionStore::load(url), LoadResult::unsupported(url)) << bytes;
    }
    std::string unknownState = record("a").encode();
    unknownState.replace(unknownState.find("\"idle\""), 6, "\"sleepy\"");
    writeFile(url, unknownState);
    EXPECT_EQ(SessionStore::load(url), LoadResult::corrupt(url));
}

TEST_F(SessionStoreTest, LoadAllScansJsonFilesThroughTheCache) {
    fs::create_directories(directory);
    const SessionRecord a = record("a");
    const fs::path aURL = SessionStore::fileURL(Source::claude, "a", directory);
    const fs::path atLimit = directory / "claude-limit.json";
    const fs::path overLimit = directory / "claude-over.json";
    const fs::path newer = directory / "codex-newer.json";
    SessionStore::write(a, aURL);
    writeFile(atLimit, padded(a, SessionStore::maxFileSize));
    writeFile(overLimit, padded(a, SessionStore::maxFileSize + 1));
    writeFile(newer, R"({"schemaVersion":3})");
    // Skipped by name: lock, interrupted write, other extensions, no extension.
    writeFile(aURL.string() + ".lock", "");
    writeFile(directory / ".claude-a.json.4242.tmp", "{");
    writeFile(directory / "notes.txt", "x");
    writeFile(directory / "json", "x");
    writeFile(directory / "claude-b.JSON", "x");

    SessionStore::LoadCache cache;
    const std::vector<LoadResult> first = SessionStore::loadAll(directory, cache);
    const std::set<std::pair<fs::path, int>> expected{
        {aURL, 0}, {atLimit, 0}, {overLimit, 2}, {newer, 1}};
    std::set<std::pair<fs::path, int>> seen;
    for (const LoadResult& result : first) {
        seen.insert({result.url, static_cast<int>(result.kind)});
        EXPECT_EQ(result.record.has_value(), result.kind == LoadResult::Kind::ok);
    }
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(first.size(), 4u);
    EXPECT_EQ(cache.entries.size(), 4u);
    EXPECT_EQ(cache.entries.at(overLimit).size,
              static_cast<std::int64_t>(SessionStore::maxFileSize + 1));
    EXPECT_EQ(SessionStore::loadAll(directory), first);

    // Same size and date: served from the cache, stale until either changes.
    const fs::file_time_type stamp = fs::last_write_time(aURL);
    SessionRecord b = a;
    b.sessionID = "b"; // the same length, so the same size
    writeFile(aURL, b.encode());
    fs::last_write_time(aURL, stamp);
    const auto resultFor = [&](const fs::path& url) {
        for (const LoadResult& result : SessionStore::loadAll(directory, cache)) {
            if (result.url == url) {
                return result;
            }
        }
        return LoadResult::corrupt("");
    };
    EXPECT_EQ(resultFor(aURL), LoadResult::ok(a, aURL));
    fs::last_write_time(aURL, stamp + std::chrono::seconds(1));
    EXPECT_EQ(resultFor(aURL), LoadResult::ok(b, aURL));
    struct stat info {};
    ASSERT_EQ(::stat(aURL.c_str(), &info), 0);
    EXPECT_NEAR(cache.entries.at(aURL).modified, static_cast<double>(info.st_mtime), 1.0);

    // A sub-second change of date alone is enough.
    writeFile(aURL, a.encode());
    fs::last_write_time(aURL, stamp + std::chrono::milliseconds(1500));
    EXPECT_EQ(resultFor(aURL), LoadResult::ok(a, aURL));

    // Vanished files leave the cache; an unlistable folder empties it.
    fs::remove(newer);
    EXPECT_EQ(SessionStore::loadAll(directory, cache).size(), 3u);
    EXPECT_EQ(cache.entries.count(newer), 0u);
    EXPECT_TRUE(SessionStore::loadAll(root / "missing", cache).empty());
    EXPECT_TRUE(cache.entries.empty());
}

// Every process appends one character under the lock; a lost update would
// show as a shorter detail.
TEST_F(SessionStoreTest, ConcurrentWritersLoseNoUpdate) {
    constexpr int writers = 32;
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < writers; ++i) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(start[1]);
            char byte;
            // Everyone starts together when the parent closes the pipe.
            (void)!::read(start[0], &byte, 1);
            try {
                SessionStore::update(Source::codex, "shared", directory,
                                     [](std::optional<SessionRecord>& current) {
                                         appendToDetail(current, "shared");
                                     });
            } catch (...) {
                ::_exit(1);
            }
            ::_exit(0);
        }
        children.push_back(pid);
    }
    ::close(start[0]);
    ::close(start[1]);
    for (const pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    const fs::path url = SessionStore::fileURL(Source::codex, "shared", directory);
    const LoadResult result = SessionStore::load(url);
    ASSERT_EQ(result.kind, LoadResult::Kind::ok);
    EXPECT_EQ(result.record->detail, std::string(writers, 'x'));
    EXPECT_TRUE(hiddenTemporaries(directory).empty());
    EXPECT_EQ(SessionStore::loadAll(directory).size(), 1u);
}

// A writer killed at any moment leaves the old file or the new one, whole.
TEST_F(SessionStoreTest, KilledWriterNeverLeavesATornFile) {
    fs::create_directories(directory);
    const fs::path url = SessionStore::fileURL(Source::claude, "torn", directory);
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> pause(50, 900);
    for (int round = 0; round < 150; ++round) {
        const unsigned seed = static_cast<unsigned>(random());
        int running[2];
        ASSERT_EQ(::pipe(running), 0);
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(running[0]);
            std::mt19937 sizes(seed);
            SessionRecord record = SessionRecord::make(Source::claude, "torn", "/w", 1);
            try {
                for (bool first = true;; first = false) {
                    record.detail = std::string(sizes() % 60000, 'd');
                    record.updatedAt += 1;
                    SessionStore::write(record, url);
                    if (first) {
                        (void)!::write(running[1], "w", 1);
                    }
                }
            } catch (...) {
                ::_exit(1);
            }
        }
        ::close(running[1]);
        // The kill lands while writes are under way, not during start-up.
        char byte;
        ASSERT_EQ(::read(running[0], &byte, 1), 1) << "the writer failed in round " << round;
        ::close(running[0]);
        ::usleep(static_cast<useconds_t>(pause(random)));
        ::kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself in round " << round;

        const LoadResult result = SessionStore::load(url);
        ASSERT_EQ(result.kind, LoadResult::Kind::ok) << "round " << round;
    }
    // Leftover temporaries are ignored by the scan.
    for (const LoadResult& result : SessionStore::loadAll(directory)) {
        EXPECT_EQ(result.url, url);
        EXPECT_EQ(result.kind, LoadResult::Kind::ok);
    }
}
