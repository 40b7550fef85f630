#include "platform/Platform.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

// The process table as such is tested through the process inspector, and
// the home folder and user id through the support paths; what is left here
// are the cases only a platform implementation can get wrong.
namespace pelmora::platform {
namespace {

TEST(Platform, ProcessNameMayHoldParenthesesAndSpaces) {
    char pattern[] = "/tmp/pelmora-platform-XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern));
    const std::filesystem::path odd = std::filesystem::path(pattern) / "a) b (c";
    std::filesystem::create_symlink("/bin/sleep", odd);
    std::string name = "a) b (c", seconds = "5";
    char* argv[] = {name.data(), seconds.data(), nullptr};
    pid_t child = -1;
    ASSERT_EQ(posix_spawn(&child, odd.c_str(), nullptr, nullptr, argv, environ), 0);

    // Wait until the child has replaced the forked copy of this test binary.
    std::optional<ProcessEntry> entry;
    for (int attempt = 0; attempt < 200 && (!entry || entry->name != name); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        entry = processEntry(child);
    }
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->name, name);
    // Fields after the name are found from its last ")", not its first.
    EXPECT_EQ(entry->parentPID, getpid());
    EXPECT_GE(entry->startTime, processEntry(getpid())->startTime);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::filesystem::remove_all(pattern);
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
