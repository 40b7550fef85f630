#include "hook/ProcessInspector.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hook/HostInfo.h"
#include "support/Time.h"

namespace pelmora {
namespace {

using namespace ProcessInspector;

const double testStarted = Time::now();

// "sh -c script arguments..." in a session of its own, so it has no
// controlling terminal and the whole chain below it can be stopped at once;
// `printed` holds the first `lines` numbers it prints.
struct Child {
    pid_t pid = -1;
    std::vector<pid_t> printed;

    explicit Child(const std::string& script, std::vector<std::string> arguments = {},
                   std::size_t lines = 0) {
        arguments.insert(arguments.begin(), {"sh", "-c", script});
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        int pipeFDs[2];
        EXPECT_EQ(pipe(pipeFDs), 0);
        pid = fork();
        if (pid == 0) {
            setsid();
            dup2(pipeFDs[1], 1);
            execv("/bin/sh", argv.data());
            _exit(127);
        }
        close(pipeFDs[1]);
        FILE* output = fdopen(pipeFDs[0], "r");
        for (int number = 0; printed.size() < lines && fscanf(output, "%d", &number) == 1;) {
            printed.push_back(number);
        }
        fclose(output);
    }
    ~Child() {
        kill(-pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

// Polls until the forked copy of the test binary has become `name`.
std::optional<Info> infoOnceNamed(pid_t pid, std::string_view name) {
    for (int attempt = 0; attempt < 200; ++attempt) {
        if (auto found = info(pid); found && found->name == name) {
            return found;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return info(pid);
}

TEST(ProcessInspector, InfoOfRealProcesses) {
    const auto self = info(getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->pid, getpid());
    EXPECT_EQ(self->parentPID, getppid());
    EXPECT_EQ(self->name, "test_hook");
    // The start time is whole seconds of boot time plus clock ticks.
    EXPECT_NEAR(self->startTime, testStarted, 3.0);
    const int terminal = open("/dev/tty", O_RDONLY | O_CLOEXEC);
    if (terminal < 0) {
        EXPECT_FALSE(self->tty);
    } else if (isatty(0)) {
        EXPECT_EQ(self->tty, ttyname(0));
    }
    if (terminal >= 0) {
        close(terminal);
    }

    pid_t gone = -1;
    {
        Child loner("exec sleep 5");
        gone = loner.pid;
        const auto sleeper = infoOnceNamed(loner.pid, "sleep");
        ASSERT_TRUE(sleeper);
        EXPECT_EQ(sleeper->name, "sleep");
        EXPECT_EQ(sleeper->parentPID, getpid());
        EXPECT_GE(sleeper->startTime, self->startTime);
        EXPECT_FALSE(sleeper->tty);
    }
    for (pid_t none : {gone, 0, -1}) {
        EXPECT_FALSE(info(none)) << none;
    }
}

TEST(ProcessInspector, AgentIsTheFirstAncestorAboveAtMostFourShells) {
    for (const char* wrapper : {"sh", "bash", "zsh", "dash", "fish", "env", "nice", "timeout"}) {
        EXPECT_TRUE(shells().contains(wrapper)) << wrapper;
    }
    EXPECT_FALSE(shells().contains("node"));
    // Started directly by the agent: the parent itself is the agent.
    EXPECT_EQ(agentProcess(getpid()), info(getpid()));
    EXPECT_FALSE(agentProcess(-1));

    // `depth` nested shells below this process, each printing its pid,
    // outermost first; the trailing "exit" keeps each from exec'ing the next.
    const std::string step = "echo $$; if [ $1 -gt 1 ]; then sh -c \"$0\" \"$0\" $(($1 - 1)); "
                             "else sleep 30; fi; exit 0";
    for (int depth : {2, 4, 5}) {
        Child chain(step, {step, std::to_string(depth)}, static_cast<std::size_t>(depth));
        ASSERT_EQ(chain.printed.size(), static_cast<std::size_t>(depth));
        const auto outer = info(chain.printed.front());
        ASSERT_TRUE(outer);
        EXPECT_EQ(outer->name, "sh");
        EXPECT_EQ(outer->parentPID, getpid());
        const auto agent = agentProcess(chain.printed.back());
        ASSERT_TRUE(agent);
        // Past four steps the walk stops at the fifth process, a shell.
        EXPECT_EQ(agent->pid, depth <= 4 ? getpid() : chain.printed.front()) << depth;
    }
}

TEST(ProcessInspector, AliveOnlyWhileThePidKeepsItsStartTime) {
    Child sleeper("exec sleep 5");
    const auto child = infoOnceNamed(sleeper.pid, "sleep");
    ASSERT_TRUE(child);
    for (double offset : {0.0, 0.5, -0.5}) {
        EXPECT_TRUE(isAlive(child->pid, child->startTime + offset)) << offset;
    }
    EXPECT_TRUE(isAlive(child->pid, std::nullopt));
    EXPECT_FALSE(isAlive(child->pid, child->startTime + 1.0));
    EXPECT_FALSE(isAlive(child->pid, child->startTime - 100));
    EXPECT_FALSE(isAlive(0, std::nullopt));
    EXPECT_FALSE(isAlive(-1, std::nullopt));
    EXPECT_FALSE(isAlive(-child->pid, child->startTime));
    // init exists whoever runs the test (EPERM counts as alive).
    EXPECT_TRUE(isAlive(1, std::nullopt));

    kill(child->pid, SIGKILL);
    waitpid(child->pid, nullptr, 0);
    EXPECT_FALSE(isAlive(child->pid, std::nullopt));
    EXPECT_FALSE(isAlive(child->pid, child->startTime));
}

TEST(HostInfo, FromEnvironmentTakesValuesAsTheyAre) {
    const HostInfo host =
        HostInfo::fromEnvironment({{"TERM_PROGRAM", "iTerm.app"},
                                   {"TERM_SESSION_ID", ""},
                                   {"ITERM_SESSION_ID", "w0t0p0:ABC"},
                                   {"TMUX", ""},
                                   {"__CFBundleIdentifier", "com.googlecode.iterm2"},
                                   {"PATH", "/bin"}},
                                  "/dev/ttys003");
    EXPECT_EQ(host.termProgram, "iTerm.app");
    EXPECT_EQ(host.termSessionID, std::optional<std::string>(""));
    EXPECT_EQ(host.itermSessionID, "w0t0p0:ABC");
    EXPECT_TRUE(host.tmux);
    EXPECT_EQ(host.tty, "/dev/ttys003");
    EXPECT_EQ(host.bundleID, "com.googlecode.iterm2");
    EXPECT_EQ(HostInfo::fromEnvironment({}, std::nullopt), HostInfo{});
}

} // namespace
} // namespace pelmora
