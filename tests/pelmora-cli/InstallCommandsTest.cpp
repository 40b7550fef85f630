#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

#include "common/ProcessRunner.h"
#include "support/Files.h"
#include "support/Time.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;
using testing::Finished;
using testing::TempHome;

// A user's settings with a hook of their own, laid out as Claude Code writes them.
const std::string usersClaudeSettings = R"({
  "model": "opus",
  "hooks": {
    "PreToolUse": [
      {
        "matcher": "Bash",
        "hooks": [
          {
            "type": "command",
            "command": "~/bin/guard"
          }
        ]
      }
    ]
  }
}
)";

const std::string trustAdvice = "Codex runs them only once you trust them: start codex and choose "
                                "\"Trust all and continue\" (or review them with /hooks)";

struct Installation {
    TempHome support; // PELMORA_HOME, holding the home folder too
    fs::path home = support.path() / "home";
    fs::path claude = home / ".claude/settings.json";
    fs::path codex = home / ".codex/hooks.json";

    Installation() {
        fs::create_directories(home / ".codex");
        fs::create_directories(claude.parent_path());
        put(claude, usersClaudeSettings);
    }
    static void put(const fs::path& file, const std::string& text) {
        Files::atomicReplace(file, text, 0644);
    }
    static std::string get(const fs::path& file) { return Files::read(file).value_or("<none>"); }

    Finished pelmora(std::vector<std::string> words) const {
        words.insert(words.begin(), testing::cliBinary());
        if (words[1] != "shell") {
            words.insert(words.end(), {"--test-home", home.string()});
        }
        auto environment = support.environment();
        environment["ZDOTDIR"] = ""; // the test home's .zshrc, not the one of whoever runs this
        return testing::run(words, environment);
    }
    // Every file under the support folder (the home folder included) and its bytes.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : fs::recursive_directory_iterator(support.path())) {
            if (entry.is_regular_file()) {
                all[entry.path().string()] = get(entry.path());
            }
        }
        return all;
    }
};

TEST(InstallCommands, InstallChecksAndUninstallsWithoutTouchingTheUsersOwn) {
    Installation it;
    const std::string hook = (it.support.path() / "bin/pelmora-hook").string();
    const auto untouched = it.files();

    // A dry run shows each file's diff and writes nothing, not even the programs.
    Finished run = it.pelmora({"install", "--dry-run"});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    // Three lines of context, then the group appended after the user's own.
    const std::string claude = it.claude.string(), codex = it.codex.string();
    EXPECT_TRUE(std::regex_search(
        run.out, std::regex("\n--- " + claude + "\n\\+\\+\\+ " + claude +
                            "\n@@ -10,6 \\+10,[0-9]+ @@\n {13}\"command\": \"~/bin/guard\"\n"
                            " {11}}\n {9}]\n\\+ {6}},\n\\+ {6}\\{\n")))
        << run.out;
    EXPECT_TRUE(std::regex_search(
        run.out, std::regex("\n--- /dev/null\n\\+\\+\\+ " + codex + "\n@@ -0,0 \\+1,[0-9]+ @@\n")));
    EXPECT_EQ(it.files(), untouched);

    // Installs what it finds: the programs, then each agent's hooks naming them.
    run = it.pelmora({"install"});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.out, "pelmora-hook: installed " + hook + "\npelmora: installed " +
                           it.support.path().string() + "/bin/pelmora\nclaude: updated " +
                           it.claude.string() + "\ncodex: created " + it.codex.string() +
                           "\ncodex: " + trustAdvice + "\n");
    EXPECT_EQ(fs::status(hook).permissions(), fs::perms(0755));
    EXPECT_NE(it.get(it.codex).find("\"PELMORA_MANAGED=1 '" + hook + "' --source codex"),
              std::string::npos);
    const auto installed = it.files();
    run = it.pelmora({"install", "codex", "claude"});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(it.files(), installed) << "installing again changes no byte and spends no backup";

    // Codex skips hooks until its user trusts each one, as its config.toml
    // records; the doctor says how until every event of ours is there.
    std::string trust;
    for (const char* event : {"session_start", "session_end", "user_prompt_submit", "pre_tool_use",
                              "permission_request", "post_tool_use", "pre_compact", "post_compact",
                              "stop", "interrupt"}) {
        it.put(it.home / ".codex/config.toml", trust);
        run = it.pelmora({"doctor"});
        EXPECT_EQ(run.exitStatus, 1);
        const std::size_t line = run.out.find("untrusted  " + codex + "  hook runs\n");
        EXPECT_EQ(run.out.find(std::string(9, ' ') + trustAdvice + "\n"), line + codex.size() + 38)
            << run.out;
        trust += "[hooks.state.\"" + codex + ":" + event + ":0:0\"]\ntrusted_hash = \"sha256:0\"\n";
    }
    it.put(it.home / ".codex/config.toml", trust);

    // The doctor runs the hook the entries name; nothing else is wrong.
    run = it.pelmora({"doctor"});
    EXPECT_EQ(run.exitStatus, 0) << run.out;
    for (const auto& [agent, file] : {std::pair{"claude", it.claude}, {"codex", it.codex}}) {
        EXPECT_TRUE(
            std::regex_search(run.out, std::regex(std::string("(^|\n)") + agent + " +installed +" +
                                                  file.string() + " +hook runs\n")))
            << run.out;
    }
    EXPECT_TRUE(std::regex_search(run.out, std::regex("\nsupport +ok +.*mode 0700")));

    // A file broken by hand is named with its line and column and left as it
    // is; the other agent is brought up to date all the same.
    const std::string broken = "{\n  \"hooks\": {,\n}\n";
    it.put(it.codex, broken);
    std::string moved = it.get(it.claude);
    for (std::size_t at; (at = moved.find(hook)) != std::string::npos;) {
        moved.replace(at, hook.size(), "/Applications/Old/pelmora-hook");
    }
    it.put(it.claude, moved);
    run = it.pelmora({"doctor"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(std::regex_search(run.out, std::regex("^claude +stale +.*hook "
                                                      "/Applications/Old/pelmora-hook: missing")))
        << run.out;
    const std::string located = "Cannot parse " + codex +
                                ": expected a key in double quotes "
                                "at line 2, column 13\n";
    EXPECT_NE(run.out.find("unreadable  " + located), std::string::npos) << run.out;
    run = it.pelmora({"install"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_NE(run.out.find("\nclaude: updated " + it.claude.string() + "\n"), std::string::npos);
    EXPECT_EQ(run.err, "pelmora: codex: " + located);
    EXPECT_EQ(it.get(it.codex), broken);
    EXPECT_EQ(it.get(it.claude), installed.at(it.claude.string()));
    EXPECT_EQ(it.pelmora({"doctor"}).exitStatus, 1) << "the codex file is still broken";

    // Uninstalling gives the user's file back as it was.
    it.put(it.codex, installed.at(it.codex.string()));
    run = it.pelmora({"uninstall", "--binaries"});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(it.get(it.claude), usersClaudeSettings);
    EXPECT_EQ(it.get(it.codex).find("pelmora-hook"), std::string::npos);
    EXPECT_FALSE(fs::exists(hook));
}

TEST(InstallCommands, WithoutAnAgentInstallAsksForOne) {
    Installation it;
    fs::remove_all(it.home);
    fs::create_directories(it.home);
    const Finished run = it.pelmora({"install"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.err.rfind("pelmora: no agent's folder is in " + it.home.string() +
                                "; name the agents to install, for example 'pelmora install "
                                "claude' (the agents are claude, codex,",
                            0),
              0u)
        << run.err;
    EXPECT_FALSE(fs::exists(it.support.path() / "bin"));
}

TEST(InstallCommands, ShellReportsBecomeActivitySessionsQuietly) {
    Installation it;
    const std::string pid = std::to_string(::getpid());
    const std::string started = std::to_string(static_cast<long long>(Time::now()) - 40);
    const std::vector<std::string> git = {"--cwd", "/tmp", "--", "git", "push", "origin", "main"};
    auto shell = [&](std::vector<std::string> words, const std::vector<std::string>& rest) {
        words.insert(words.begin(), "shell");
        words.insert(words.end(), rest.begin(), rest.end());
        const Finished run = it.pelmora(words);
        EXPECT_EQ(run.exitStatus, 0);
        EXPECT_EQ(run.out + run.err, "") << "it runs in the background of the prompt";
    };
    shell({"start", "--pid", pid, "--start", started}, git);
    const fs::path session = it.support.path() / ("sessions/git-" + pid + "-" + started + ".json");
    EXPECT_NE(it.get(session).find("\"state\":\"working\""), std::string::npos);
    shell({"end", "--pid", pid, "--start", started, "--exit", "1"}, git);
    EXPECT_NE(it.get(session).find("\"state\":\"failed\""), std::string::npos) << it.get(session);
    EXPECT_NE(it.get(session).find("\"tool\":\"Push\""), std::string::npos);

    // A quick ls that succeeded is nothing to show. Its start is stamped a
    // few seconds ahead, as a shell whose clock runs early would, so that a
    // slow machine's start-up of the program still finds it quick.
    const std::string soon = std::to_string(static_cast<long long>(Time::now()) + 5);
    shell({"end", "--pid", pid, "--start", soon, "--exit", "0"}, {"--cwd", "/tmp", "--", "ls"});
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(it.support.path() / "sessions")) {
        count += entry.path().extension() == ".json" ? 1 : 0;
    }
    EXPECT_EQ(count, 1u);
}

} // namespace
} // namespace pelmora
