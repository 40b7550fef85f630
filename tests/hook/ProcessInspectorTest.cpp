#include "hook/ProcessInspector.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "platform/ChildProcess.h"
#include "support/Time.h"

namespace pelmora {
namespace {

using namespace ProcessInspector;

const double testStarted = Time::now();

TEST(ProcessInspector, AgentAboveAtMostFourShellsAndAliveWhileItsStartTimeHolds) {
    // Started directly by the agent: the parent itself is the agent.
    const Info self = agentProcess(getpid()).value();
    EXPECT_EQ(self, (Info{getpid(), getppid(), "test_hook", self.startTime, self.tty}));
    EXPECT_NEAR(self.startTime, testStarted, 3.0);
    EXPECT_FALSE(agentProcess(-1));

    // Five shells nested below this process, each printing its pid, the
    // innermost waiting for the end of its input.
    const std::string step = "echo $$; if [ $1 -gt 1 ]; then sh -c \"$0\" \"$0\" $(($1 - 1)); "
                             "else read line; fi; exit 0";
    auto chain = platform::ChildProcess::start({"/bin/sh", "-c", step, step, "5"},
                                               {.pipeInput = true, .pipeOutput = true});
    ASSERT_TRUE(chain);
    FILE* output = fdopen(chain->output().release(), "r");
    std::vector<pid_t> pids;
    for (int n = 0; pids.size() < 5 && fscanf(output, "%d", &n) == 1;) {
        pids.push_back(n);
    }
    fclose(output);
    ASSERT_EQ(pids.size(), 5u);
    const Info shell = info(chain->pid()).value();
    EXPECT_EQ(shell, (Info{chain->pid(), getpid(), "sh", shell.startTime, self.tty}));
    EXPECT_GE(shell.startTime, self.startTime);
    // Up to four steps past shells reach the agent; the walk stops at the
    // fifth process examined even though it is a shell.
    EXPECT_EQ(agentProcess(pids[1]).value().pid, getpid());
    EXPECT_EQ(agentProcess(pids[3]).value().pid, getpid());
    EXPECT_EQ(agentProcess(pids[4]).value().pid, chain->pid());

    EXPECT_TRUE(isAlive(shell.pid, std::nullopt));
    EXPECT_TRUE(isAlive(shell.pid, shell.startTime - 0.5));
    EXPECT_FALSE(isAlive(shell.pid, shell.startTime + 1.0)); // the pid was reused
    for (pid_t none : {0, -1, -shell.pid}) {
        EXPECT_FALSE(isAlive(none, std::nullopt)) << none;
    }
    EXPECT_TRUE(isAlive(1, std::nullopt)); // another user's process still lives
    chain->closeInput();
    EXPECT_EQ(chain->wait(), (platform::ChildProcess::Termination{0, false}));
    EXPECT_FALSE(isAlive(shell.pid, std::nullopt));
    EXPECT_FALSE(info(shell.pid));
}

} // namespace
} // namespace pelmora
