#include "support/Files.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Error.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;

class FilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pelmora-files-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    static mode_t modeOf(const fs::path& path) {
        struct stat info {};
        EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
        return info.st_mode & 07777;
    }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path dir;
};

TEST_F(FilesTest, AtomicReplaceWritesOwnerOnlyAndLeavesNoTemporary) {
    EXPECT_EQ(Files::temporaryPath("/s/sessions/claude-abc.json"),
              fs::path("/s/sessions/.claude-abc.json." + std::to_string(getpid()) + ".tmp"));

    // The mode must not depend on the umask of whoever runs the hook, nor on
    // the mode of the file it replaces.
    const mode_t old = umask(0);
    Files::atomicReplace(dir / "new.json", "first", 0600);
    umask(old);
    std::ofstream(dir / "loose.json") << "old";
    fs::permissions(dir / "loose.json", fs::perms(0644));
    const std::string large(1 << 20, 'x');
    Files::atomicReplace(dir / "loose.json", large, 0600);
    EXPECT_EQ(Files::read(dir / "new.json"), "first");
    EXPECT_EQ(Files::read(dir / "loose.json"), large);
    EXPECT_EQ(modeOf(dir / "new.json"), 0600u);
    EXPECT_EQ(modeOf(dir / "loose.json"), 0600u);
    Files::atomicReplace(dir / "new.json", "", 0600);
    EXPECT_EQ(Files::read(dir / "new.json"), "");
    EXPECT_EQ(entries(), (std::vector<std::string>{"loose.json", "new.json"}));
}

TEST_F(FilesTest, AtomicReplaceFailuresThrowAndLeaveNothing) {
    const fs::path missing = dir / "absent/claude-abc.json";
    try {
        Files::atomicReplace(missing, "data", 0600);
        ADD_FAILURE() << "no error for a missing directory";
    } catch (const Error& error) {
        EXPECT_EQ(error.path(), missing);
        EXPECT_NE(std::string(error.what()), "");
    }
    EXPECT_TRUE(entries().empty());

    // The rename fails over a non-empty directory; the temporary goes away.
    fs::create_directories(dir / "busy.json/inside");
    EXPECT_THROW(Files::atomicReplace(dir / "busy.json", "data", 0600), Error);
    EXPECT_EQ(entries(), std::vector<std::string>{"busy.json"});
}

TEST_F(FilesTest, ReadRefusesLargeAndSpecialFiles) {
    std::ofstream(dir / "ten") << "0123456789";
    EXPECT_EQ(Files::read(dir / "ten", 10), "0123456789");
    EXPECT_FALSE(Files::read(dir / "ten", 9));
    EXPECT_FALSE(Files::read(dir / "missing"));
    EXPECT_FALSE(Files::read(dir));
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_FALSE(Files::read(dir / "fifo")); // and does not hang waiting for a writer

    int pipeFDs[2];
    ASSERT_EQ(pipe(pipeFDs), 0);
    FileDescriptor readEnd(pipeFDs[0]), writeEnd(pipeFDs[1]);
    EXPECT_TRUE(Files::writeAll(writeEnd.get(), "piped\n"));
    writeEnd.reset();
    EXPECT_EQ(Files::readAll(readEnd.get()), "piped\n");
    EXPECT_FALSE(Files::readAll(-1));
    EXPECT_FALSE(Files::writeAll(-1, "x"));
}

TEST_F(FilesTest, EnsureDirectoryMakesMissingParentsWithTheMode) {
    const mode_t old = umask(022);
    Files::ensureDirectory(dir / "a/b", 0700);
    Files::ensureDirectory(dir / "a/b/", 0700);
    umask(old);
    EXPECT_EQ(modeOf(dir / "a"), 0700u);
    EXPECT_EQ(modeOf(dir / "a/b"), 0700u);

    // An existing folder keeps its own mode.
    fs::permissions(dir / "a", fs::perms(0755));
    Files::ensureDirectory(dir / "a", 0700);
    EXPECT_EQ(modeOf(dir / "a"), 0755u);

    std::ofstream(dir / "plain") << "x";
    for (const fs::path& path : {dir / "plain", dir / "plain/sub", fs::path()}) {
        EXPECT_THROW(Files::ensureDirectory(path), Error) << path;
    }
}

TEST_F(FilesTest, ExclusiveLockHoldsUntilDestroyed) {
    const fs::path lockPath = dir / "claude-abc.json.lock";
    auto triesLock = [&] {
        FileDescriptor other(open(lockPath.c_str(), O_RDWR | O_CLOEXEC));
        return flock(other.get(), LOCK_EX | LOCK_NB) == 0;
    };
    {
        Files::ExclusiveLock lock(lockPath);
        EXPECT_EQ(modeOf(lockPath), 0600u);
        EXPECT_FALSE(triesLock());
    }
    EXPECT_TRUE(triesLock());
    EXPECT_TRUE(fs::exists(lockPath)); // lock files stay for the next writer
    EXPECT_THROW(Files::ExclusiveLock(dir / "absent/x.lock"), Error);
}

TEST(FileDescriptor, ClosesExactlyOnce) {
    int pipeFDs[2];
    ASSERT_EQ(pipe(pipeFDs), 0);
    {
        FileDescriptor readEnd(pipeFDs[0]);
        FileDescriptor moved(std::move(readEnd));
        EXPECT_FALSE(readEnd.valid());
        EXPECT_EQ(moved.get(), pipeFDs[0]);
        FileDescriptor writeEnd(pipeFDs[1]);
        const int raw = writeEnd.release();
        EXPECT_FALSE(writeEnd.valid());
        EXPECT_NE(fcntl(raw, F_GETFD), -1); // still open after release
        close(raw);
    }
    EXPECT_EQ(fcntl(pipeFDs[0], F_GETFD), -1);
}

} // namespace
} // namespace pelmora
