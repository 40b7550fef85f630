#include "hook/ProcessInspector.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/Time.h"

extern char** environ;

namespace pelmora::ProcessInspector {
namespace {

const double testStarted = Time::now();

// "sh -c script arguments..." in its own process group, so the whole chain
// below it can be stopped at once; `printed` holds the pids it prints first.
struct Child {
    pid_t pid = -1;
    std::vector<pid_t> printed;

    explicit Child(const std::string& script, std::vector<std::string> arguments = {},
                   std::size_t expectedLines = 0) {
        int pipeFDs[2];
        EXPECT_EQ(pipe(pipeFDs), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeFDs[1], 1);
        posix_spawn_file_actions_addclose(&actions, pipeFDs[0]);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attributes, 0);
        arguments.insert(arguments.begin(), {"sh", "-c", script});
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        EXPECT_EQ(posix_spawn(&pid, "/bin/sh", &actions, &attributes, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        close(pipeFDs[1]);

        std::string output;
        char buffer[256];
        while (static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n')) <
               expectedLines) {
            ssize_t got = read(pipeFDs[0], buffer, sizeof buffer);
            if (got <= 0) {
                break;
            }
            output.append(buffer, static_cast<std::size_t>(got));
        }
        close(pipeFDs[0]);
        for (std::size_t at = 0, end; (end = output.find('\n', at)) != std::string::npos;
             at = end + 1) {
            printed.push_back(std::atoi(output.substr(at, end - at).c_str()));
        }
    }

    ~Child() {
        kill(-pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

// Polls until the forked copy of the test binary has exec'd its program.
std::optional<Info> infoAfterExec(pid_t pid) {
    for (int attempt = 0; attempt < 200; ++attempt) {
        auto found = info(pid);
        if (found && found->name != "test_hook") {
            return found;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return info(pid);
}

// `depth` nested shells below this process, each printing its pid, outermost
// first; the trailing "exit" keeps each shell from exec'ing into the next.
struct ShellChain : Child {
    static constexpr const char* step = "echo $$; if [ $1 -gt 1 ]; then sh -c \"$0\" \"$0\" "
                                        "$(($1 - 1)); else sleep 30; fi; exit 0";
    explicit ShellChain(int depth)
        : Child(step, {step, std::to_string(depth)}, static_cast<std::size_t>(depth)) {}
};

TEST(ProcessInspector, InfoOfThisProcess) {
    auto self = info(getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->pid, getpid());
    EXPECT_EQ(self->parentPID, getppid());
    EXPECT_EQ(self->name, "test_hook");
    // The start time is whole seconds of boot time plus clock ticks.
    EXPECT_NEAR(self->startTime, testStarted, 3.0);

    int terminal = open("/dev/tty", O_RDONLY | O_CLOEXEC);
    if (terminal >= 0 && isatty(0)) {
        ASSERT_TRUE(self->tty);
        EXPECT_EQ(*self->tty, ttyname(0));
    } else if (terminal < 0) {
        EXPECT_FALSE(self->tty);
    }
    if (terminal >= 0) {
        close(terminal);
    }
}

TEST(ProcessInspector, InfoOfChildrenWithAndWithoutTerminal) {
    Child shell("sleep 5");
    auto child = infoAfterExec(shell.pid);
    ASSERT_TRUE(child);
    EXPECT_TRUE(child->name == "sh" || child->name == "sleep") << child->name;
    EXPECT_EQ(child->parentPID, getpid());
    EXPECT_GE(child->startTime, info(getpid())->startTime);

    pid_t detached = fork();
    ASSERT_GE(detached, 0);
    if (detached == 0) {
        setsid();
        execl("/bin/sleep", "sleep", "5", static_cast<char*>(nullptr));
        _exit(127);
    }
    auto loner = infoAfterExec(detached);
    ASSERT_TRUE(loner);
    EXPECT_EQ(loner->name, "sleep");
    EXPECT_FALSE(loner->tty);
    kill(detached, SIGKILL);
    waitpid(detached, nullptr, 0);
    EXPECT_FALSE(info(detached));
}

TEST(ProcessInspector, AgentIsTheFirstAncestorAboveTheShells) {
    EXPECT_TRUE(shells().contains("zsh"));
    EXPECT_TRUE(shells().contains("timeout"));
    EXPECT_FALSE(shells().contains("node"));

    // Started directly by the agent: the process itself is the agent.
    EXPECT_EQ(agentProcess(getpid()), info(getpid()));

    // Two shells between this process and the start: two steps give it back.
    {
        ShellChain chain(2);
        ASSERT_EQ(chain.printed.size(), 2u);
        auto agent = agentProcess(chain.printed[1]);
        ASSERT_TRUE(agent);
        EXPECT_EQ(agent->pid, getpid());
    }
    // Four shells: still found. Five: the walk stops at the fifth, a shell.
    {
        ShellChain chain(4);
        ASSERT_EQ(chain.printed.size(), 4u);
        auto agent = agentProcess(chain.printed[3]);
        ASSERT_TRUE(agent);
        EXPECT_EQ(agent->pid, getpid());
    }
    {
        ShellChain chain(5);
        ASSERT_EQ(chain.printed.size(), 5u);
        auto agent = agentProcess(chain.printed[4]);
        ASSERT_TRUE(agent);
        EXPECT_EQ(agent->pid, chain.printed[0]);
        EXPECT_EQ(agent->name, "sh");
    }
    EXPECT_FALSE(agentProcess(-1));
}

TEST(ProcessInspector, AliveOnlyWhileThePidKeepsItsStartTime) {
    Child sleeper("exec sleep 5");
    auto child = infoAfterExec(sleeper.pid);
    ASSERT_TRUE(child);
    EXPECT_TRUE(isAlive(child->pid, std::nullopt));
    EXPECT_TRUE(isAlive(child->pid, child->startTime));
    EXPECT_TRUE(isAlive(child->pid, child->startTime + 0.5));
    EXPECT_TRUE(isAlive(child->pid, child->startTime - 0.5));
    EXPECT_FALSE(isAlive(child->pid, child->startTime + 1.0));
    EXPECT_FALSE(isAlive(child->pid, child->startTime - 100));

    EXPECT_FALSE(isAlive(0, std::nullopt));
    EXPECT_FALSE(isAlive(-1, std::nullopt));
    EXPECT_FALSE(isAlive(-child->pid, child->startTime));
    // init exists whoever runs the test (EPERM counts as alive).
    EXPECT_TRUE(isAlive(1, std::nullopt));

    pid_t reaped = child->pid;
    kill(reaped, SIGKILL);
    waitpid(reaped, nullptr, 0);
    EXPECT_FALSE(isAlive(reaped, std::nullopt));
    EXPECT_FALSE(isAlive(reaped, child->startTime));
}

} // namespace
} // namespace pelmora::ProcessInspector
