#include <gtest/gtest.h>
#include <regex>
#include <sstream>
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

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

// The index of the first line holding `needle`, or -1.
int lineWith(const std::vector<std::string>& all, std::string_view needle) {
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].find(needle) != std::string::npos) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

Finished sessions(const TempHome& home, std::vector<std::string> extra = {}) {
    std::vector<std::string> arguments{testing::cliBinary(), "sessions"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    Finished result = testing::run(arguments, home.environment());
    EXPECT_FALSE(result.killed);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    return result;
}

SessionRecord record(Source source, std::string id, std::string cwd, SessionState state,
                     double stateSince, double updatedAt) {
    SessionRecord made = SessionRecord::make(source, std::move(id), std::move(cwd), stateSince);
    made.state = state;
    made.updatedAt = updatedAt;
    return made;
}

struct Fixture {
    std::vector<SessionRecord> newestFirst;
};

// Four sessions in four age units, written in an order that is neither the
// newest-first order nor alphabetical; plus a lock file, a damaged file and
// one of another format version.
Fixture writeSessions(const TempHome& home) {
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
    return {{claude, copilot, codex, grok}};
}

TEST(SessionsCommand, TableShowsNewestFirstWithReadableFields) {
    TempHome home;
    writeSessions(home);
    const Finished result = sessions(home);
    const std::vector<std::string> out = lines(result.out);
    ASSERT_GE(out.size(), 6u) << result.out;

    EXPECT_EQ(out[0].rfind("AGENT", 0), 0u) << "a heading comes first";
    const int claude = lineWith(out, "Claude Code");
    const int copilot = lineWith(out, "GitHub Copilot");
    const int codex = lineWith(out, "Codex");
    const int grok = lineWith(out, "Grok Build");
    ASSERT_GT(claude, 0);
    EXPECT_LT(claude, copilot);
    EXPECT_LT(copilot, codex);
    EXPECT_LT(codex, grok);

    EXPECT_TRUE(std::regex_search(
        out[claude], std::regex("Claude Code +web-shop +working +1[23]s +Bash +Fix the flaky "
                                "checkout test$")))
        << out[claude];
    EXPECT_NE(out[claude + 1].find("npm test -- checkout"), std::string::npos)
        << "the summary follows on its own line";
    EXPECT_TRUE(std::regex_search(out[copilot], std::regex("infra +awaiting +2h +bash")))
        << out[copilot];
    EXPECT_TRUE(std::regex_search(out[codex], std::regex("payments +failed +4m +- *$")))
        << out[codex];
    EXPECT_NE(out[codex + 1].find("error: failed to push some refs"), std::string::npos);
    EXPECT_TRUE(std::regex_search(out[grok], std::regex("orders +done +3d +- +Rename")))
        << out[grok];

    // Columns line up: every row's state starts where the heading's does.
    const std::size_t stateColumn = out[0].find("STATE");
    for (int row : {claude, copilot, codex, grok}) {
        EXPECT_EQ(out[static_cast<std::size_t>(row)].find_first_of("wafd", stateColumn),
                  stateColumn)
            << out[static_cast<std::size_t>(row)];
    }

    EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << "no colours or escapes in a pipe";
    EXPECT_NE(result.out.find("Rename\xEF\xBF\xBD[2J the module"), std::string::npos);

    const std::string corrupt =
        "corrupt session file: " + (home.sessions() / "claude-broken.json").string();
    const std::string unsupported = "unsupported session file (another format version): " +
                                    (home.sessions() / "claude-later.json").string();
    EXPECT_NE(lineWith(out, corrupt), -1) << result.out;
    EXPECT_NE(lineWith(out, unsupported), -1) << result.out;
    EXPECT_EQ(lineWith(out, ".lock"), -1) << "lock files are not sessions";
    EXPECT_EQ(result.err, "");
}

TEST(SessionsCommand, JSONLinesDecodeToTheStoredRecords) {
    TempHome home;
    const Fixture fixture = writeSessions(home);
    const Finished result = sessions(home, {"--json"});
    const std::vector<std::string> out = lines(result.out);
    ASSERT_EQ(out.size(), fixture.newestFirst.size()) << result.out;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::optional<SessionRecord> decoded = SessionRecord::decode(out[i]);
        ASSERT_TRUE(decoded) << out[i];
        EXPECT_EQ(*decoded, fixture.newestFirst[i]);
        EXPECT_EQ(out[i], fixture.newestFirst[i].encode()) << "one compact record per line";
    }
    EXPECT_NE(result.err.find("claude-broken.json"), std::string::npos)
        << "damage is reported beside the data, not in it";
}

TEST(SessionsCommand, NoSessionsWhenTheDirectoryIsMissingOrEmpty) {
    TempHome home;
    EXPECT_EQ(sessions(home).out, "No sessions.\n");
    EXPECT_EQ(sessions(home, {"--json"}).out, "");
    std::filesystem::create_directories(home.sessions());
    Files::atomicReplace(home.sessions() / "claude-x.json.lock", "", 0600);
    EXPECT_EQ(sessions(home).out, "No sessions.\n");

    const Finished wrong =
        testing::run({testing::cliBinary(), "sessions", "--all"}, home.environment());
    EXPECT_EQ(wrong.exitStatus, 2);
    EXPECT_NE(wrong.err.find("unknown option '--all'"), std::string::npos) << wrong.err;
}

} // namespace
} // namespace pelmora
