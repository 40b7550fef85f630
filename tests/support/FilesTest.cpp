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

#include "common/Fixtures.h"
#include "platform/Error.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;

class FilesTest : public ::testing::Test {
protected:
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

    const testing::TempHome home;
    const fs::path dir = home.path();
};

TEST_F(FilesTest, AtomicReplaceWritesOwnerOnlyAndLeavesNoTemporary) {
    EXPECT_EQ(Files::temporaryPath("/s/sessions/claude-abc.json"),
              fs::path("/s/sessions/.claude-abc.json." + std::to_string(getpid()) + ".tmp"));
    // The mode depends neither on the umask nor on the file replaced.
    std::ofstream(dir / "loose.json") << "old";
    fs::permissions(dir / "loose.json", fs::perms(0644));
    const mode_t old = umask(0);
    Files::atomicReplace(dir / "new.json", "first", 0600);
    Files::atomicReplace(dir / "loose.json", "second", 0600);
    umask(old);
    EXPECT_EQ(Files::read(dir / "loose.json"), "second");
    EXPECT_EQ(modeOf(dir / "new.json"), 0600u);
    EXPECT_EQ(modeOf(dir / "loose.json"), 0600u);
    // A failed rename (a folder in the way) takes its temporary along.
    fs::create_directories(dir / "busy.json/inside");
    EXPECT_THROW(Files::atomicReplace(dir / "busy.json", "data", 0600), Error);
    EXPECT_EQ(entries(), (std::vector<std::string>{"busy.json", "loose.json", "new.json"}));
}

TEST_F(FilesTest, AtomicReplaceNeverWritesThroughWhatSitsAtItsTemporaryName) {
    const fs::path target = dir / "claude-abc.json";
    const fs::path temporary = Files::temporaryPath(target);
    std::ofstream(dir / "victim") << "precious";
    std::ofstream(target) << "old";
    for (const bool hardLink : {true, false}) {
        if (hardLink) {
            fs::create_hard_link(dir / "victim", temporary);
        } else {
            fs::create_symlink(dir / "victim", temporary);
        }
        // Without the target's lock the name may be another thread's: refused, left alone.
        EXPECT_THROW(Files::atomicReplace(target, "new", 0600), Error);
        EXPECT_TRUE(fs::exists(fs::symlink_status(temporary)));
        EXPECT_EQ(Files::read(target), "old");
        Files::atomicReplace(target, "new", 0600, Files::TakenTemporary::replace);
        EXPECT_EQ(Files::read(target), "new");
        EXPECT_EQ(Files::read(dir / "victim"), "precious");
        EXPECT_FALSE(fs::exists(fs::symlink_status(temporary)));
        std::ofstream(target) << "old";
    }
}

TEST_F(FilesTest, ReadRefusesLargeAndSpecialFiles) {
    std::ofstream(dir / "ten") << "0123456789";
    EXPECT_EQ(Files::read(dir / "ten", 10), "0123456789");
    EXPECT_FALSE(Files::read(dir / "ten", 9));
    EXPECT_FALSE(Files::read(dir / "missing"));
    EXPECT_FALSE(Files::read(dir));
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_FALSE(Files::read(dir / "fifo")); // and does not hang waiting for a writer
}

TEST_F(FilesTest, ExclusiveLockIsARegularOwnerOnlyFileHeldUntilDestroyed) {
    const fs::path lockPath = dir / "claude-abc.json.lock";
    auto triesLock = [&] {
        FileDescriptor other(open(lockPath.c_str(), O_RDWR | O_CLOEXEC));
        return flock(other.get(), LOCK_EX | LOCK_NB) == 0;
    };
    {
        // Created read-only, the lock file would refuse every later update.
        const mode_t old = umask(0277);
        Files::ExclusiveLock lock(lockPath);
        umask(old);
        EXPECT_EQ(modeOf(lockPath), 0600u);
        EXPECT_FALSE(triesLock());
    }
    EXPECT_TRUE(triesLock());
    EXPECT_TRUE(fs::exists(lockPath)); // lock files stay for the next writer

    // Neither a link (its target is not created) nor a FIFO is taken as a lock.
    fs::create_symlink(dir / "elsewhere", dir / "link.lock");
    ASSERT_EQ(mkfifo((dir / "fifo.lock").c_str(), 0600), 0);
    for (const fs::path& refused : {dir / "link.lock", dir / "fifo.lock", dir / "absent/x.lock"}) {
        EXPECT_THROW(Files::ExclusiveLock{refused}, Error) << refused;
    }
    EXPECT_FALSE(fs::exists(dir / "elsewhere"));
}

} // namespace
} // namespace pelmora
