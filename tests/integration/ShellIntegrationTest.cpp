#include "integration/ShellIntegration.h"

#include <chrono>
#include <thread>

#include "IntegrationTest.h"

namespace pelmora::testing {
namespace {

class ShellIntegrationTest : public IntegrationTest {
protected:
    // A stand-in for `pelmora` that logs each call's arguments, one per line.
    fs::path fakeCLI() {
        const fs::path cli = temp / "it's cli" / "pelmora";
        put(cli, "#!/bin/sh\nfor a in \"$@\"; do printf '%s|' \"$a\"; done >> " +
                     quoted(temp / "calls") + "\necho >> " + quoted(temp / "calls") + "\n");
        fs::permissions(cli, fs::perms(0755));
        return cli;
    }
    // An interactive zsh that reads .zshrc from `zdotdir` and runs `commands`.
    Ran interactiveZsh(const fs::path& zdotdir, const std::string& commands) {
        put(temp / "input", commands + "exit\n");
        return shell("cd " + quoted(temp) + " && ZDOTDIR=" + quoted(zdotdir) +
                     " zsh -i < input 2>" + quoted(temp / "stderr"));
    }
};

TEST_F(ShellIntegrationTest, ScriptIsValidZshAndReportsWhatThePartSays) {
    const fs::path cli = fakeCLI();
    const fs::path script = support / "shell/pelmora.zsh";
    const fs::path zdotdir = temp / "zdotdir";
    // No prompt, so that anything on stderr is the script's.
    put(zdotdir / ".zshrc", "PS1=''\nunsetopt prompt_sp prompt_cr\n");
    ShellIntegration::install(cli.string(), 1, zdotdir / ".zshrc", script);
    const Ran syntax = shell("zsh -n " + quoted(script));
    EXPECT_EQ(syntax.status, 0) << syntax.out;

    // A failed git command is reported however fast; a failed make-like
    // command only when it ran long; a long command reports its start too.
    interactiveZsh(zdotdir, "git push\nsh -c 'exit 2'\nsleep 1.5\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(get(temp / "stderr"), "");
    const std::string calls = get(temp / "calls");
    EXPECT_NE(calls.find("shell|end|--pid|"), std::string::npos) << calls;
    EXPECT_NE(calls.find("|--exit|128|--cwd|" + temp.string() + "|--|git push|"), std::string::npos)
        << calls;
    EXPECT_EQ(calls.find("exit 2"), std::string::npos) << calls;
    EXPECT_NE(calls.find("shell|start|"), std::string::npos) << calls;
    EXPECT_NE(calls.find("|--exit|0|--cwd|" + temp.string() + "|--|sleep 1.5|"), std::string::npos)
        << calls;
}

} // namespace
} // namespace pelmora::testing
