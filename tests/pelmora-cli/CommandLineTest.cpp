#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "common/ProcessRunner.h"

namespace pelmora {
namespace {

using testing::Finished;
using testing::TempHome;

// Runs `pelmora` with `line` split at spaces, as a shell splits it.
Finished pelmora(const TempHome& home, const std::string& line) {
    std::vector<std::string> arguments{testing::cliBinary()};
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        arguments.push_back(word);
    }
    return testing::run(arguments, home.environment());
}

TEST(CommandLine, HelpIsTheSameTextHoweverItIsAskedFor) {
    TempHome home;
    const std::string overview = pelmora(home, "").out;
    const std::string approvals = pelmora(home, "help approvals").out;
    const std::pair<const char*, const std::string*> cases[] = {
        {"help", &overview},
        {"--help", &overview},
        {"-h", &overview},
        {"approvals --answer deny --help", &approvals}};
    for (const auto& [line, out] : cases) {
        const Finished result = pelmora(home, line);
        EXPECT_EQ(result.exitStatus, 0) << line;
        EXPECT_EQ(result.out, *out) << line;
        EXPECT_EQ(result.err, "");
    }

    EXPECT_EQ(overview.rfind("usage: pelmora <command> [options]\n", 0), 0u) << overview;
    EXPECT_TRUE(std::regex_search(
        overview, std::regex("\n  sessions +\\w.*\n  approvals +\\w.*\n"
                             "(  \\w+ +\\w.*\n)*  paths +\\w.*\n(  \\w+ +\\w.*\n)*  help +\\w")))
        << "every command, with its summary, in the table's order";
    EXPECT_EQ(pelmora(home, "help install").out.find("test-home"), std::string::npos);
    // Spelled from the declared options: required, optional, repeatable.
    EXPECT_EQ(approvals.rfind(
                  "usage: pelmora approvals --answer allow|allowAlways|deny|ask [--message TEXT]\n"
                  "                         [--answers TEXT]... [--count N] [--timeout SECONDS]\n",
                  0),
              0u)
        << approvals;
    EXPECT_TRUE(std::regex_match(pelmora(home, "--version").out,
                                 std::regex("pelmora [0-9]+\\.[0-9]+\\.[0-9]+\n")));
}

TEST(CommandLine, UsageErrorsNameTheProblemAndWhereHelpIs) {
    TempHome home;
    const struct {
        const char* line;
        int exitStatus;
        std::string errStart;
    } cases[] = {
        {"frobnicate --now", 2, "pelmora: unknown command 'frobnicate'\nRun 'pelmora help'"},
        {"help frobnicate", 2, "pelmora: unknown command 'frobnicate'\n"},
        {"--bogus sessions", 2, "pelmora: unknown option '--bogus'\n"},
        {"sessions --all", 2, "pelmora: sessions: unknown option '--all'\n"},
        {"paths extra", 2, "pelmora: paths: unexpected argument 'extra'\n"},
        {"scan a b", 2, "pelmora: scan: unexpected argument 'b'\n"},
        {"changes --all", 2, "pelmora: changes: unknown option '--all'\n"},
        {"run --", 2, "pelmora: run: needs the command to run: pelmora run -- CMD...\n"},
        {"install claude Codex", 2,
         "pelmora: install: unknown agent 'Codex': the agents are claude, codex, grok, "
         "commandcode, devin, qwen, copilot, pi, kimi\n"},
        {"uninstall --zsh build", 2, "pelmora: uninstall: unknown agent 'build': the agents"},
        {"install --zsh-seconds 30", 2, "pelmora: install: --zsh-seconds requires --zsh\n"},
        {"doctor claude", 2, "pelmora: doctor: unexpected argument 'claude'\n"},
        {"shell", 2, "pelmora: shell: A subcommand is required\n"},
        {"shell end --pid 7 --start 1 --cwd / -- make", 2,
         "pelmora: shell end: expects --pid PID --start SECONDS --exit STATUS --cwd DIR -- "
         "COMMAND...\n"},
        {"approvals --message why", 2, "pelmora: approvals: --answer is required\n"},
        {"approvals --answer", 2, "pelmora: approvals: --answer needs a value\n"},
        {"approvals --answer maybe", 2,
         "pelmora: approvals: --answer must be allow, allowAlways, deny or ask\n"},
        {"approvals --answer deny --count 0", 2,
         "pelmora: approvals: --count must be a whole number of at least 1\n"},
        {"approvals --answer deny --timeout soon", 2,
         "pelmora: approvals: --timeout must be a number of seconds above 0\n"},
        {"approvals --answer deny --answers a b", 2,
         "pelmora: approvals: unexpected argument 'b'\n"},
        {"watch extra", 2, "pelmora: watch: unexpected argument 'extra'\n"},
        {"line --colour rainbow", 2, "pelmora: line: --colour must be auto, never, ansi or tmux\n"},
        // The alert's own words, whatever CLI11 would have said.
        {"alert", 3, "pelmora: refused: title is required (1 to 16 characters)\n"},
        {"alert Deploy --colour red", 3, "pelmora: refused: unknown option --colour\n"},
        {"alert a b c", 3, "pelmora: refused: unexpected argument \"c\"\n"},
        {"alert pelmora://alert?title=a&x=1", 3, "pelmora: refused: unknown parameter \"x\"\n"},
        {"alert -- --title", 1, "pelmora: Pelmora is not running\n"}, // a title after all
        // Read as written: not octal, and the last of a repeated option counts.
        {"approvals --answer deny --count 010 --timeout 9 --timeout 0.1", 0,
         "pelmora: stopped after 0.1 s with 0 of 10 request(s) answered\n"},
    };
    for (const auto& [line, exitStatus, errStart] : cases) {
        const Finished result = pelmora(home, line);
        EXPECT_EQ(result.exitStatus, exitStatus) << line;
        EXPECT_EQ(result.err.rfind(errStart, 0), 0u) << line << "\n" << result.err;
        if (exitStatus == 2) {
            EXPECT_EQ(result.out, "");
            EXPECT_NE(result.err.find("\nRun 'pelmora help"), std::string::npos) << result.err;
        }
    }
}

TEST(CommandLine, PathsFollowTheSupportDirectory) {
    TempHome home;
    const std::string out = pelmora(home, "paths").out;
    EXPECT_NE(out.find("\nsessionsDirectory: " + home.sessions().string() + "\n"),
              std::string::npos);
    // Every line is "name: absolute path", so scripts can cut it apart.
    EXPECT_TRUE(std::regex_match(out, std::regex("([A-Za-z]+: /[^\n]*\n)+"))) << out;
}

} // namespace
} // namespace pelmora
