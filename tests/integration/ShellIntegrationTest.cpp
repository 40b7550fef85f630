#include "integration/ShellIntegration.h"

#include <chrono>
#include <thread>

#include "IntegrationTest.h"
#include "integration/ShellActivity.h"
#include "integration/ShellCommandFilter.h"
#include "session/SessionStore.h"

namespace pelmora::testing {

namespace SI = ShellIntegration;
namespace SA = ShellActivity;

TEST_F(IntegrationTest, ZshSourcesTheBlockSilentlyReportsAndLeavesTheUsersLines) {
    // A stand-in for `pelmora` that logs each call's arguments, "|" after each.
    const fs::path cli = temp / "it's cli/pelmora", rc = temp / "z/.zshrc";
    put(cli, "#!/bin/sh\nfor a; do printf '%s|' \"$a\"; done >>../calls; echo >>../calls\n");
    fs::permissions(cli, fs::perms(0755));
    // The user's lines, and no prompt: anything on stderr is the script's.
    const std::string mine = "# my zsh\nPS1=''\nunsetopt prompt_sp prompt_cr\n";
    put(rc, mine);
    BackupRun run(support / "backups", 1767607200);
    SI::install(cli.string(), 30, rc, SI::scriptURL(), run);
    SI::install(cli.string(), 2, rc, SI::scriptURL(), run);
    EXPECT_EQ(get(rc).find(SI::beginMarker), get(rc).rfind(SI::beginMarker));
    EXPECT_EQ(shell("zsh -n " + quoted(SI::scriptURL())), 0) << output;
    auto zsh = [&](const std::string& commands) {
        put(temp / "z/input", commands + "exit\n");
        shell("cd " + quoted(temp / "z") + " && { ZDOTDIR=. zsh -i < input 2>stderr; }");
        return get(temp / "z/stderr");
    };
    EXPECT_EQ(zsh("true\nfalse\ncd /\n"), "") << "sourcing and running the hooks is silent";

    // A failed git command is reported however fast; a failed other command
    // only when it ran long; a long command reports its start too. The script
    // counts whole seconds, so a quick command that straddles a second's turn
    // ran "1 second": the threshold is 2.
    zsh("git push 2>/dev/null\nsh -c 'exit 2'\nsleep 2.5\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const std::string calls = get(temp / "calls");
    const std::string cwd = "|--cwd|" + (temp / "z").string() + "|--|";
    EXPECT_NE(calls.find("|--exit|128" + cwd + "git push 2>/dev/null|"), std::string::npos);
    EXPECT_EQ(calls.find("exit 2"), std::string::npos) << calls;
    EXPECT_NE(calls.find(cwd + "sleep 2.5|\nshell|end|"), std::string::npos) << calls;
    EXPECT_NE(calls.find("|--exit|0" + cwd + "sleep 2.5|"), std::string::npos) << calls;

    put(rc, get(rc) + "echo after\n");
    SI::remove(rc, run);
    EXPECT_EQ(get(rc), mine + "echo after\n");
    EXPECT_FALSE(SI::isInstalled(rc));
    EXPECT_EQ(get(support / "backups/.zshrc-1767607200"), mine);
    const std::string unfinished = "a\n" + std::string(SI::beginMarker) + "\nb\n";
    EXPECT_EQ(SI::removing(unfinished), unfinished);
    ::setenv("ZDOTDIR", "", 1); // set but empty: the home folder's
    EXPECT_EQ(SI::zshrcURL(home), home / ".zshrc");
    ::unsetenv("ZDOTDIR");
}

TEST(ShellCommandFilter, ShowsWorkAndPassesOverWhatTheUserIsWatching) {
    // What a command still running at the threshold shows: source, tool, provider.
    for (std::string_view row :
         {"cd web && npm run build 2>&1 | tee build.log => build Build",
          "FOO=1 time sudo -E make -j8 install => build Install",
          "python -m pytest -x tests/ => build Test",
          "./scripts/test.sh --fast => build Test",
          "git pull --rebase && cargo build --release => build Build",
          "rsync -a src/ backup:src/ => build Run",
          "vercel --prod => build Deploy Vercel",
          "netlify deploy --prod => build Deploy Netlify",
          "fly deploy => build Deploy Fly.io",
          "railway up => build Deploy Railway",
          "firebase deploy --only hosting => build Deploy Firebase",
          "npx wrangler pages deploy dist => build Deploy Cloudflare",
          "kubectl apply -f k8s/ => build Deploy Kubernetes",
          "terraform apply -auto-approve => build Deploy Terraform",
          "gcloud run deploy api --source . => build Deploy Google Cloud",
          "aws lambda update-function-code --function-name f => build Deploy AWS",
          "az webapp up --name shop => build Deploy Azure",
          "npm run deploy:staging => build Deploy",
          "git push heroku main => git Deploy Heroku",
          "git -C repo push origin main => git Push",
          "git commit -am 'fix (wip)' => git Commit"}) {
        const std::size_t arrow = row.find(" => ");
        const auto verdict = ShellCommandFilter::onStart(row.substr(0, arrow));
        ASSERT_TRUE(verdict.has_value()) << row;
        EXPECT_EQ(std::string(rawValue(verdict->source)) + " " + verdict->tool +
                      (verdict->provider ? " " + *verdict->provider : ""),
                  row.substr(arrow + 4));
    }
    for (const char* line :
         {"git log --oneline", "git commit", "vim README.md", "make && less build.log", "ssh prod",
          "python3", "psql shop", "npm run dev", "npx vitest", "tail -f log/dev.log",
          "docker compose up", "python manage.py runserver", "claude --resume", "sleep 30"}) {
        EXPECT_FALSE(ShellCommandFilter::onStart(line).has_value()) << line;
    }
    // How a command ends, as "<exit status> <state> <command line>": "git log"
    // ran a pager, and grep and git diff say "no" with 1.
    for (std::string_view row :
         {"1 failed git push", "1 ended git diff --quiet", "128 failed git log x..",
          "0 ended git log", "130 ended make", "2 failed make", "0 done make",
          "1 ended grep -r TODO .", "1 none vim notes"}) {
        const std::size_t space = row.find(' '), next = row.find(' ', space + 1);
        const auto ending = ShellCommandFilter::onEnd(row.substr(next + 1),
                                                      std::stoi(std::string(row.substr(0, space))));
        EXPECT_EQ(ending ? rawValue(ending->state) : "none",
                  row.substr(space + 1, next - space - 1))
            << row;
    }
}

TEST_F(IntegrationTest, ShellEventsBecomeActivitySessions) {
    using Args = std::vector<std::string_view>;
    EXPECT_EQ(SA::parse(true, Args{"--pid", "42", "--start", "1700000000", "--exit", "2", "--cwd",
                                   "/w", "--", "make", "-j8"}),
              (SA::Event{true, 42, 1700000000, 2, "/w", "make -j8"}));
    EXPECT_FALSE(SA::parse(false, Args{"--pid", "0", "--start", "1", "--cwd", "/", "--"}));
    EXPECT_FALSE(SA::parse(true, Args{"--pid", "4", "--start", "1", "--cwd", "/", "--", "x"}));

    const fs::path sessions = support / "sessions";
    const std::int32_t pid = ::getpid();
    auto record = [&](const char* line, std::optional<int> status, double now) {
        return SA::record({status.has_value(), pid, 1700000000, status, "/w/shop", line}, sessions,
                          now, {});
    };
    auto stored = [&](Source source) {
        const std::string id = std::to_string(pid) + "-1700000000";
        return SessionStore::load(SessionStore::fileURL(source, id, sessions)).record.value();
    };
    EXPECT_TRUE(record("npm run build", {}, 1700000030));
    const SessionRecord build = stored(Source::build);
    EXPECT_EQ(std::tuple(build.state, *build.title, *build.tool, *build.turnStartedAt, *build.pid,
                         build.pidStartTime.has_value()),
              std::tuple(SessionState::working, "npm run build", "Build", 1700000000, pid, true));
    EXPECT_TRUE(record("npm run build", 0, 1700000090));
    EXPECT_EQ(std::pair(stored(Source::build).state, stored(Source::build).exitCode),
              std::pair(SessionState::done, std::optional(0)));

    // A fast failed git command comes only as its end, and a start that comes
    // late changes nothing; an interrupted command is closed, never created.
    EXPECT_TRUE(record("git push", 1, 1700000001));
    EXPECT_FALSE(record("git push", {}, 1700000002));
    EXPECT_EQ(std::pair(stored(Source::git).state, stored(Source::git).stateSince),
              std::pair(SessionState::failed, 1700000001.0));
    fs::remove_all(sessions);
    EXPECT_FALSE(record("make", 130, 1700000001));
    EXPECT_FALSE(record("vim notes", {}, 1700000001));
    EXPECT_FALSE(fs::exists(sessions));
}

} // namespace pelmora::testing
