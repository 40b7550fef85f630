#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "common/ProcessRunner.h"
#include "session/SessionStore.h"
#include "support/Files.h"
#include "support/Time.h"

namespace pelmora {
namespace {

using testing::Child;
using testing::Finished;
using testing::TempHome;

std::string onPath(const std::string& program) {
    std::istringstream folders(std::getenv("PATH") ? std::getenv("PATH") : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (::access((folder + "/" + program).c_str(), X_OK) == 0) {
            return folder + "/" + program;
        }
    }
    return {};
}

// `pelmora watch` in a terminal of its own: a private tmux server with a
// fixed window, read with capture-pane and typed at with send-keys.
class Terminal {
public:
    Terminal(std::string program, const TempHome& home)
        : tmux_(std::move(program)), server_("pelmora-test-" + std::to_string(::getpid())) {
        const std::string command =
            "env LC_ALL=C.UTF-8 TERM=screen-256color PELMORA_HOME=" + home.path().string() + " " +
            testing::cliBinary() + " watch; echo watch exited $?; sleep 60";
        tmux({"new-session", "-d", "-x", "100", "-y", "30", command});
    }
    ~Terminal() { tmux({"kill-server"}); }

    std::string screen() { return tmux({"capture-pane", "-p"}).out; }
    // Waits up to 10 s for `text` to be on screen.
    bool shows(const std::string& text, bool present = true) {
        for (int tries = 0; tries < 200; ++tries, ::usleep(50000)) {
            if ((screen().find(text) != std::string::npos) == present) {
                return true;
            }
        }
        return false;
    }
    void type(const std::string& keys) { tmux({"send-keys", keys}); }

private:
    Finished tmux(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {tmux_, "-L", server_, "-f", "/dev/null"});
        return testing::run(arguments, {});
    }
    std::string tmux_;
    std::string server_;
};

const std::string permission =
    R"({"session_id":"s-1","cwd":"/Users/ann/shop","hook_event_name":"PermissionRequest",)"
    R"("tool_name":"Bash","tool_input":{"command":"rm -rf /Users/ann/shop/build"}})";
const std::string question =
    R"({"session_id":"s-2","cwd":"/w/api","hook_event_name":"PermissionRequest",)"
    R"("tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which database?",)"
    R"("options":[{"label":"Postgres"},{"label":"SQLite"}]}]}})";

TEST(WatchCommand, AnswersARealHookInARealTerminalAndLeavesNothingBehind) {
    const std::string tmux = onPath("tmux");
    if (tmux.empty()) {
        GTEST_SKIP() << "tmux is not installed (scripts/setup.sh installs it)";
    }
    TempHome home;
    const std::map<std::string, std::string> environment = home.environment();
    Terminal terminal(tmux, home);
    ASSERT_TRUE(terminal.shows("Nothing to show")) << terminal.screen();

    // An agent killed without a word: its last state was working.
    const pid_t dead = ::fork();
    if (dead == 0) {
        ::_exit(0);
    }
    ::waitpid(dead, nullptr, 0);
    SessionRecord killed = SessionRecord::make(Source::codex, "k-1", "/w/billing", Time::now());
    killed.state = SessionState::working;
    killed.pid = dead;
    SessionStore::write(killed, SessionStore::fileURL(Source::codex, "k-1", home.sessions()));
    EXPECT_TRUE(terminal.shows("⊘ Codex · billing")) << terminal.screen();

    Child hook({testing::hookBinary(), "--source", "claude"}, environment, permission);
    ASSERT_TRUE(terminal.shows("a allow")) << terminal.screen();
    const std::string asked = terminal.screen();
    EXPECT_NE(asked.find("◆ Claude Code · shop   awaiting"), std::string::npos) << asked;
    EXPECT_NE(asked.find("── Claude Code asks · shop ──"), std::string::npos) << asked;
    EXPECT_NE(asked.find("  Bash  rm -rf build\n"), std::string::npos) << asked;
    ::usleep(500000); // keys answer a request once it has been on screen a moment
    terminal.type("a");
    const Finished answered = hook.finish();
    EXPECT_EQ(answered.out, R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},)"
                            R"("hookEventName":"PermissionRequest"}})"
                            "\n");
    EXPECT_EQ(answered.exitStatus, 0);
    EXPECT_TRUE(terminal.shows("a allow", false)) << "answered requests leave the screen";

    const Finished alert = testing::run(
        {testing::cliBinary(), "alert", "Deploy failed", "--level", "fail"}, environment);
    EXPECT_EQ(alert.exitStatus, 0) << alert.err;
    EXPECT_TRUE(terminal.shows("✗ Alert · Deploy failed")) << "beside the waiting session";
    terminal.type("Tab");
    EXPECT_TRUE(terminal.shows("✗ Alert · Deploy failed   fail")) << terminal.screen();
    terminal.type("x");
    EXPECT_TRUE(terminal.shows("Deploy failed", false)) << terminal.screen();

    const Finished second = testing::run({testing::cliBinary(), "watch"}, environment);
    const std::string pid = Files::read(home.path() / "watch.lock").value_or("?");
    EXPECT_EQ(second.exitStatus, 1);
    EXPECT_EQ(second.err, "pelmora: pelmora watch is already running (pid " + pid + ")\n");

    // Closing with a hook still waiting: it gets no answer, so the agent asks.
    Child waiting({testing::hookBinary()}, environment, question);
    ASSERT_TRUE(terminal.shows("1 Postgres")) << terminal.screen();
    ::kill(std::stoi(pid), SIGTERM);
    const Finished unanswered = waiting.finish();
    EXPECT_EQ(unanswered.out, "");
    EXPECT_EQ(unanswered.exitStatus, 0);
    EXPECT_TRUE(terminal.shows("watch exited 143")) << terminal.screen();
    EXPECT_EQ(terminal.screen().find("Pelmora"), std::string::npos) << "the screen as it was";
    for (const char* socket : {"approval.sock", "alert.sock"}) {
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(home.path() / socket)))
            << socket;
    }
}

} // namespace
} // namespace pelmora
