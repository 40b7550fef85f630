#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

#include "common/ProcessRunner.h"
#include "session/SessionRecord.h"
#include "session/SessionStore.h"
#include "support/Files.h"
#include "support/Time.h"

namespace pelmora {
namespace {

using testing::Finished;
using testing::TempHome;

Finished sessions(const TempHome& home, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {testing::cliBinary(), "sessions"});
    return testing::run(options, home.environment());
}

SessionRecord record(Source source, std::string id, std::string cwd, SessionState state,
                     double stateSince, double updatedAt) {
    SessionRecord made = SessionRecord::make(source, std::move(id), std::move(cwd), stateSince);
    made.state = state;
    made.updatedAt = updatedAt;
    return made;
}

// Four sessions in four age units, written in an order that is neither the
// newest-first order nor alphabetical; plus a lock file, a damaged file and
// one of another format version. Returns the sessions newest first.
std::vector<SessionRecord> writeSessions(const TempHome& home) {
    const double now = Time::now();
    SessionRecord claude = record(Source::claude, "9f1c2e", "/Users/ana/code/web-shop",
                                  SessionState::working, now - 12.1, now - 1);
    claude.tool = "Bash";
    claude.summary = "npm test -- checkout";
    claude.title = "Fix the flaky checkout test";
    SessionRecord codex = record(Source::codex, "019a-77", "/Users/ana/code/payments",
                                 SessionState::failed, now - (4 * 60 + 20), now - 300);
    codex.summary = "error: failed to push some refs";
    SessionRecord copilot = record(Source::copilot, "cp-5", "/srv/infra", SessionState::awaiting,
                                   now - (2 * 3600 + 600), now - 60);
    copilot.tool = "bash";
    SessionRecord grok = record(Source::grok, "g-2", "/Users/ana/code/orders", SessionState::done,
                                now - (3 * 86400 + 3600), now - 9000);
    // A title is agent text: it must never reach the terminal as an escape.
    grok.title = "Rename\x1b[2J the module";

    std::filesystem::create_directories(home.sessions());
    for (const SessionRecord* each : {&grok, &codex, &claude, &copilot}) {
        SessionStore::write(*each,
                            SessionStore::fileURL(each->source, each->sessionID, home.sessions()));
    }
    Files::atomicReplace(home.sessions() / "claude-9f1c2e.json.lock", "", 0600);
    Files::atomicReplace(home.sessions() / "claude-broken.json", "{\"schemaVersion\":1,", 0600);
    SessionRecord future = claude;
    future.sessionID = "later";
    future.schemaVersion = 2;
    Files::atomicReplace(home.sessions() / "claude-later.json", future.encode(), 0600);
    return {claude, copilot, codex, grok};
}

TEST(SessionsCommand, TableAndJSONLinesNewestFirst) {
    TempHome home;
    EXPECT_EQ(sessions(home).out, "No sessions.\n") << "no sessions directory yet";
    EXPECT_EQ(sessions(home, {"--json"}).out, "");

    std::string jsonLines;
    for (const SessionRecord& each : writeSessions(home)) {
        jsonLines += each.encode() + "\n";
    }
    // The running session's age grows while the test runs.
    const std::string out =
        std::regex_replace(sessions(home).out, std::regex(" 1[2-9]s  Bash"), " 12s  Bash");
    const std::string damaged = home.sessions().string() + "/claude-";
    EXPECT_EQ(out,
              "AGENT           PROJECT   STATE     SINCE  TOOL  TITLE\n"
              "Claude Code     web-shop  working     12s  Bash  Fix the flaky checkout test\n"
              "                                                 npm test -- checkout\n"
              "GitHub Copilot  infra     awaiting     2h  bash\n"
              "Codex           payments  failed       4m  -\n"
              "                                                 error: failed to push some refs\n"
              "Grok Build      orders    done         3d  -     Rename\uFFFD[2J the module\n"
              "skipped a damaged session file: " +
                  damaged +
                  "broken.json (not JSON: unexpected end of the document: expected a key in double "
                  "quotes at line 1, column 20)\n" +
                  "unsupported session file: " + damaged +
                  "later.json (schema version 2; this version reads 1)\n")
        << "no colours in a pipe, agent text made printable, lock files skipped";

    const Finished json = sessions(home, {"--json"});
    EXPECT_EQ(json.out, jsonLines) << "one compact record per line, newest first";
    EXPECT_NE(json.err.find("claude-broken.json"), std::string::npos)
        << "damage is reported beside the data, not in it";
}

} // namespace
} // namespace pelmora
