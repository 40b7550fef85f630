#include "platform/Platform.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

// The process table as such is tested through the process inspector, the
// home folder and user id through the support paths, sockets through the
// local-socket module; what is left are the cases only a platform
// implementation can get wrong.
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
    postNotification("com.pelmora.test"); // a no-op here, and must stay harmless
}

} // namespace
} // namespace pelmora::platform
