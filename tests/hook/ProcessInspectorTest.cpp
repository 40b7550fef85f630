#include "hook/ProcessInspector.h"

#include <gtest/gtest.h>
#include <set>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/Time.h"

namespace pelmora {
namespace {

using namespace ProcessInspector;

const double testStarted = Time::now();

// `depth` shells nested below this process, each printing its pid (outermost
// first) and the innermost sleeping; in a session of their own, so without a
// controlling terminal, and stopped together at the end.
struct Shells {
    pid_t pid = -1;
    std::vector<pid_t> pids;
    bool stopped = false;

    explicit Shells(int depth) {
        std::string step = "echo $$; if [ $1 -gt 1 ]; then sh -c \"$0\" \"$0\" $(($1 - 1)); "
                           "else sleep 30; fi; exit 0";
        std::string count = std::to_string(depth);
        char* argv[] = {const_cast<char*>("sh"),
                        const_cast<char*>("-c"),
                        step.data(),
                        step.data(),
                        count.data(),
                        nullptr};
        int fds[2];
        EXPECT_EQ(pipe(fds), 0);
        pid = fork();
        if (pid == 0) {
            setsid();
            dup2(fds[1], 1);
            execv("/bin/sh", argv);
            _exit(127);
        }
        close(fds[1]);
        FILE* output = fdopen(fds[0], "r");
        for (int number = 0;
             pids.size() < static_cast<std::size_t>(depth) && fscanf(output, "%d", &number) == 1;) {
            pids.push_back(number);
        }
        fclose(output);
    }
    void stop() {
        if (!stopped && pid > 0) {
            kill(-pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        stopped = true;
    }
    ~Shells() { stop(); }
};

TEST(ProcessInspector, InfoOfRealProcesses) {
    const auto self = info(getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->parentPID, getppid());
    EXPECT_EQ(self->name, "test_hook");
    EXPECT_NEAR(self->startTime, testStarted, 3.0);
    Shells shell(1);
    const auto child = info(shell.pid);
    ASSERT_TRUE(child);
    EXPECT_EQ(*child, (Info{shell.pid, getpid(), "sh", child->startTime, std::nullopt}));
    EXPECT_GE(child->startTime, self->startTime);
    shell.stop();
    for (pid_t none : {shell.pid, 0, -1}) {
        EXPECT_FALSE(info(none)) << none;
    }
}

TEST(ProcessInspector, AgentIsTheFirstAncestorAboveAtMostFourShells) {
    EXPECT_EQ(shells(), (std::set<std::string, std::less<>>{"sh", "bash", "zsh", "dash", "fish",
                                                            "env", "nice", "timeout"}));
    // Started directly by the agent: the parent itself is the agent.
    EXPECT_EQ(agentProcess(getpid()), info(getpid()));
    EXPECT_FALSE(agentProcess(-1));
    for (int depth : {2, 4, 5}) {
        Shells chain(depth);
        ASSERT_EQ(chain.pids.size(), static_cast<std::size_t>(depth));
        const auto agent = agentProcess(chain.pids.back());
        ASSERT_TRUE(agent);
        // Past four steps the walk stops at the fifth process, a shell.
        EXPECT_EQ(agent->pid, depth <= 4 ? getpid() : chain.pids.front()) << depth;
    }
}

TEST(ProcessInspector, AliveOnlyWhileThePidKeepsItsStartTime) {
    Shells shell(1);
    const auto child = info(shell.pid);
    ASSERT_TRUE(child);
    for (double offset : {0.0, 0.5, -0.5}) {
        EXPECT_TRUE(isAlive(child->pid, child->startTime + offset)) << offset;
    }
    EXPECT_TRUE(isAlive(child->pid, std::nullopt));
    EXPECT_FALSE(isAlive(child->pid, child->startTime + 1.0));
    for (pid_t none : {0, -1, -child->pid}) {
        EXPECT_FALSE(isAlive(none, std::nullopt)) << none;
    }
    // init exists whoever runs the test (EPERM counts as alive).
    EXPECT_TRUE(isAlive(1, std::nullopt));
    shell.stop();
    EXPECT_FALSE(isAlive(child->pid, std::nullopt));
}

} // namespace
} // namespace pelmora
