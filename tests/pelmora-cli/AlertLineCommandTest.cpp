#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "alert/AlertRecords.h"
#include "common/ProcessRunner.h"
#include "json/OrderedJSON.h"
#include "session/SessionStore.h"
#include "support/Files.h"
#include "support/Time.h"

namespace pelmora {
namespace {

using testing::Finished;
using testing::TempHome;

Finished pelmora(const TempHome& home, std::vector<std::string> arguments,
                 std::map<std::string, std::string> environment = {}) {
    arguments.insert(arguments.begin(), testing::cliBinary());
    environment.merge(home.environment());
    return testing::run(arguments, environment);
}

TEST(AlertCommand, SendsWhatItWasGivenAndReportsTheOutcome) {
    TempHome home;
    const Finished alone = pelmora(home, {"alert", "Deploy done"});
    EXPECT_EQ(alone.exitStatus, 1);
    EXPECT_EQ(alone.err, "pelmora: Pelmora is not running\n");

    const testing::StandInApp app(home.path() / "alert.sock", [](int fd, const std::string&) {
        testing::sendAll(fd, R"({"status":"disabled"})"
                             "\n");
    });
    const std::vector<std::string> ways[] = {
        {"alert", "Deploy done", "v1.4 is live", "--level=action", "--id", "deploy"},
        {"alert",
         "PELMORA://alert?title=Deploy%20done&body=v1.4%20is%20live&level=action&id=deploy"},
    };
    for (const std::vector<std::string>& way : ways) {
        const Finished result = pelmora(home, way);
        EXPECT_EQ(result.exitStatus, 2) << way[1];
        EXPECT_EQ(result.err, "pelmora: External alerts are switched off in Pelmora's settings\n");
    }
    const AlertRequest sent{"Deploy done", "v1.4 is live", AlertLevel::action, {}, "deploy", 30};
    ASSERT_EQ(app.requests().size(), 2u);
    for (const std::string& line : app.requests()) {
        EXPECT_EQ(AlertRequest::fromJSON(OrderedJSON::parse(line)), sent) << line;
    }
}

// Runs `pelmora line` with `options`, in a UTF-8 locale.
std::string line(const TempHome& home, std::vector<std::string> options) {
    options.insert(options.begin(), "line");
    return pelmora(home, options, {{"LC_ALL", "C.UTF-8"}}).out;
}

TEST(LineCommand, CountsWhatIsShownAndNamesTheSessionInFront) {
    TempHome home;
    EXPECT_EQ(line(home, {}), "");
    EXPECT_EQ(line(home, {"--idle", "all quiet"}), "all quiet\n");

    const pid_t dead = ::fork();
    if (dead == 0) {
        ::_exit(0);
    }
    ::waitpid(dead, nullptr, 0);
    const double now = Time::now();
    Files::ensureDirectory(home.sessions());
    const struct {
        Source source;
        const char* id;
        const char* cwd;
        SessionState state;
        std::optional<pid_t> pid;
    } sessions[] = {
        {Source::claude, "c-1", "/w/web-shop", SessionState::awaiting, ::getpid()},
        {Source::codex, "x-1", "/w/pay#(rm -rf ~)", SessionState::failed, {}},
        {Source::pi, "p-1", "/w/docs", SessionState::working, ::getpid()},
        {Source::codex, "x-2", "/w/gone", SessionState::working, dead},
        {Source::qwen, "q-1", "/w/over", SessionState::ended, {}},
    };
    for (const auto& session : sessions) {
        SessionRecord record = SessionRecord::make(session.source, session.id, session.cwd, now);
        record.state = session.state;
        record.pid = session.pid;
        SessionStore::write(record,
                            SessionStore::fileURL(session.source, session.id, home.sessions()));
    }
    EXPECT_EQ(line(home, {"--colour", "never"}), "◆1 ✗1 ●1 Claude Code · web-shop\n");
    EXPECT_EQ(line(home, {"--ascii"}), "?1 !1 *1 Claude Code - web-shop\n")
        << "no colour off a terminal";
    EXPECT_EQ(line(home, {"--ascii", "--colour", "ansi"}),
              "\x1b[1;33m?1\x1b[0m \x1b[1;31m!1\x1b[0m \x1b[32m*1\x1b[0m Claude Code - web-shop\n");

    // The waiting session answered: the failure is in front, its "#" doubled
    // so that tmux does not run what a folder name holds.
    SessionRecord answered = SessionRecord::make(Source::claude, "c-1", "/w/web-shop", now);
    answered.state = SessionState::done;
    answered.stateSince = now - 60;
    SessionStore::write(answered, SessionStore::fileURL(Source::claude, "c-1", home.sessions()));
    EXPECT_EQ(line(home, {"--ascii", "--colour", "tmux"}),
              "#[fg=red,bold]!1#[default] #[fg=green]*1#[default] Codex - pay##(rm -rf ~)\n");
}

} // namespace
} // namespace pelmora
