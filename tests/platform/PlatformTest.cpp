#include "platform/Platform.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace pelmora::platform {
namespace {

pid_t spawn(const std::string& program, std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ), 0);
    return pid;
}

// Waits until the child has replaced the forked copy of this test binary.
std::optional<ProcessEntry> entryOnceNamed(pid_t pid, const std::string& name) {
    for (int attempt = 0; attempt < 200; ++attempt) {
        auto entry = processEntry(pid);
        if (entry && entry->name == name) {
            return entry;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return processEntry(pid);
}

void stop(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST(Platform, ProcessEntryOfThisProcessAndOfNone) {
    auto self = processEntry(getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->pid, getpid());
    EXPECT_EQ(self->parentPID, getppid());
    EXPECT_EQ(self->name, "test_platform");
    auto now =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_LE(self->startTime, now + 1);
    EXPECT_GT(self->startTime, now - 3600);

    EXPECT_FALSE(processEntry(0));
    EXPECT_FALSE(processEntry(-1));

    pid_t gone = spawn("/bin/sh", {"sh", "-c", "exit 0"});
    waitpid(gone, nullptr, 0);
    EXPECT_FALSE(processEntry(gone));
}

TEST(Platform, NameMayHoldParenthesesAndSpaces) {
    char pattern[] = "/tmp/pelmora-platform-XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern));
    std::filesystem::path dir = pattern;
    std::filesystem::path odd = dir / "a) b (c";
    std::filesystem::create_symlink("/bin/sleep", odd);

    pid_t child = spawn(odd, {"a) b (c", "5"});
    auto entry = entryOnceNamed(child, "a) b (c");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->name, "a) b (c");
    // Fields after the name are found from its last ")", not its first.
    EXPECT_EQ(entry->parentPID, getpid());
    EXPECT_GE(entry->startTime, processEntry(getpid())->startTime);
    stop(child);
    std::filesystem::remove_all(dir);
}

TEST(Platform, HomeAndUserComeFromThePasswordDatabase) {
    const char* saved = getenv("HOME");
    std::string savedHome = saved ? saved : "";
    setenv("HOME", "/nonexistent/elsewhere", 1);
    struct passwd* entry = getpwuid(getuid());
    std::filesystem::path expected = entry ? entry->pw_dir : "/";
    EXPECT_EQ(homeDirectory(), expected);
    EXPECT_EQ(userID(), getuid());
    if (saved) {
        setenv("HOME", savedHome.c_str(), 1);
    } else {
        unsetenv("HOME");
    }
}

TEST(Platform, SendToAClosedPeerReportsInsteadOfSignalling) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    suppressSigpipe(pair[0]);
    EXPECT_EQ(sendNoSignal(pair[0], "hi", 2), 2);
    char buffer[2];
    EXPECT_EQ(read(pair[1], buffer, 2), 2);
    close(pair[1]);
    errno = 0;
    // Without suppression SIGPIPE would end the test binary here.
    EXPECT_EQ(sendNoSignal(pair[0], "hi", 2), -1);
    EXPECT_EQ(errno, EPIPE);
    close(pair[0]);
    postNotification("com.pelmora.test");
}

} // namespace
} // namespace pelmora::platform
