#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "common/ProcessRunner.h"
#include "session/SessionStore.h"
#include "support/Files.h"

namespace pelmora {
namespace {

using testing::Child;
using testing::Finished;
using testing::TempHome;

// Starts the stand-in and waits until it listens, as a script would.
std::unique_ptr<Child> startStandIn(const TempHome& home, std::vector<std::string> options) {
    std::vector<std::string> arguments{testing::cliBinary(), "approvals"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    auto child = std::make_unique<Child>(arguments, home.environment());
    EXPECT_EQ(child->readLine(10), "listening on " + home.socket().string());
    return child;
}

Finished runHook(const TempHome& home, std::string event, std::vector<std::string> arguments,
                 std::map<std::string, std::string> environment = {}) {
    arguments.insert(arguments.begin(), testing::hookBinary());
    environment.merge(home.environment());
    return testing::run(arguments, environment, std::move(event));
}

FileDescriptor connectTo(const std::filesystem::path& path) {
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return {};
    }
    return fd;
}

// Everything the peer sends until it closes (or 10 s pass).
std::string readToEnd(int fd) {
    std::string all;
    char chunk[4096];
    pollfd entry{fd, POLLIN, 0};
    while (::poll(&entry, 1, 10000) > 0) {
        const ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got <= 0) {
            break;
        }
        all.append(chunk, static_cast<std::size_t>(got));
    }
    return all;
}

std::string exchange(const std::filesystem::path& socket, std::string_view line) {
    FileDescriptor fd = connectTo(socket);
    EXPECT_TRUE(fd.valid());
    EXPECT_EQ(::write(fd.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
    return readToEnd(fd.get());
}

TEST(ApprovalsCommand, AnswersARealHookRunAndCleansUp) {
    TempHome home;
    auto standIn = startStandIn(home, {"--answer", "deny", "--message", "no", "--timeout", "30"});
    struct stat status {};
    ASSERT_EQ(::stat(home.socket().c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0600u) << "only the user may answer for the user";

    const Finished hook = runHook(home,
                                  R"({"hook_event_name":"PermissionRequest","session_id":"s-1",
                                      "cwd":"/Users/ana/code/app","tool_name":"Bash",
                                      "tool_input":{"command":"rm -rf build"}})",
                                  {"--source", "claude"});
    EXPECT_EQ(hook.exitStatus, 0);
    EXPECT_EQ(hook.out, R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"no"},)"
                        R"("hookEventName":"PermissionRequest"}})"
                        "\n");

    const Finished done = standIn->finish();
    EXPECT_FALSE(done.killed) << "one answered request ends the stand-in";
    EXPECT_EQ(done.exitStatus, 0) << done.err;
    EXPECT_NE(done.out.find("\nclaude asks: Bash — rm -rf build (session s-1)\n"),
              std::string::npos)
        << done.out;
    EXPECT_EQ(done.err, "");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(home.socket())));

    const SessionStore::LoadResult stored = SessionStore::load(home.sessions() / "claude-s-1.json");
    ASSERT_TRUE(stored.record);
    EXPECT_EQ(stored.record->state, SessionState::awaiting);
}

TEST(ApprovalsCommand, RelaysAnswersToAGrokQuestion) {
    TempHome home;
    auto standIn = startStandIn(home, {"--answer", "allow", "--answers", "Postgres"});
    const Finished hook = runHook(home,
                                  R"({"hook_event_name":"PreToolUse","session_id":"g-1",
                                      "cwd":"/Users/ana/code/orders","tool_name":"ask_user_question",
                                      "tool_input":{"questions":[{"question":"Which database?",
                                        "header":"Database","multiSelect":false,"options":[
                                        {"label":"Postgres","description":"Relational"},
                                        {"label":"SQLite"}]}]}})",
                                  {}, {{"GROK_HOOK_EVENT", "PreToolUse"}});
    EXPECT_EQ(hook.out,
              R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"deny",)"
              R"("permissionDecisionReason":"The user has already answered in the Pelmora notch, )"
              R"(so do not ask again. Continue with their answer.\nQuestion: Which database?\n)"
              R"(The user's answer: Postgres"}})"
              "\n");

    const Finished done = standIn->finish();
    EXPECT_EQ(done.exitStatus, 0);
    EXPECT_NE(done.out.find("grok asks: ask_user_question (session g-1)\n"
                            "  Database: Which database?\n"
                            "    1. Postgres — Relational\n"
                            "    2. SQLite\n"),
              std::string::npos)
        << done.out;
}

TEST(ApprovalsCommand, SkipsBadLinesAndCountsOnlyAnsweredRequests) {
    TempHome home;
    {
        // A socket file left behind by a stand-in that did not clean up.
        FileDescriptor stale(::socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, home.socket().c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(::bind(stale.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
                  0);
    }
    auto standIn = startStandIn(home, {"--answer", "allowAlways", "--count", "2"});

    EXPECT_EQ(exchange(home.socket(), "not json\n"), "") << "no reply to a bad line";
    EXPECT_EQ(exchange(home.socket(), "{\"id\":\"X\"}\n"), "") << "nor to an incomplete request";
    const std::string request = R"({"id":"A1","source":"codex","sessionID":"c-1","cwd":"/w",)"
                                R"("tool":"Bash","summary":"cargo publish"})"
                                "\n";
    EXPECT_EQ(exchange(home.socket(), request), "{\"decision\":\"allowAlways\"}\n");
    {
        // A hook that leaves halfway through its line is skipped too.
        FileDescriptor quitter = connectTo(home.socket());
        ASSERT_EQ(::write(quitter.get(), "{\"id\":", 6), 6);
    }
    EXPECT_EQ(exchange(home.socket(), request), "{\"decision\":\"allowAlways\"}\n");

    const Finished done = standIn->finish();
    EXPECT_FALSE(done.killed);
    EXPECT_EQ(done.exitStatus, 0);
    EXPECT_NE(done.err.find("not an approval request: not json"), std::string::npos) << done.err;
    EXPECT_NE(done.err.find("closed before a whole line"), std::string::npos) << done.err;
    EXPECT_EQ(std::count(done.out.begin(), done.out.end(), '\n'), 3) << done.out;
}

TEST(ApprovalsCommand, TimesOutQuietlyAndRefusesWhatIsNotItsToReplace) {
    TempHome home;
    const std::vector<std::string> standIn{testing::cliBinary(), "approvals", "--answer", "ask",
                                           "--timeout",          "0.2"};
    const Finished idle = testing::run(standIn, home.environment());
    EXPECT_FALSE(idle.killed);
    EXPECT_EQ(idle.exitStatus, 0);
    EXPECT_NE(idle.err.find("0 of 1"), std::string::npos) << idle.err;
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(home.socket())));

    // A live listener is another app's socket, and a plain file is the user's.
    auto first = startStandIn(home, {"--answer", "allow", "--timeout", "30"});
    const Finished second = testing::run(standIn, home.environment());
    EXPECT_EQ(second.exitStatus, 1);
    EXPECT_NE(second.err.find("already answering"), std::string::npos) << second.err;
    EXPECT_EQ(exchange(home.socket(), R"({"id":"B","source":"claude","sessionID":"s","cwd":"/"})"
                                      "\n"),
              "{\"decision\":\"allow\"}\n")
        << "the first stand-in still answers";
    EXPECT_EQ(first->finish().exitStatus, 0);

    Files::atomicReplace(home.socket(), "keep me", 0600);
    const Finished refused = testing::run(standIn, home.environment());
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_NE(refused.err.find("not a socket"), std::string::npos) << refused.err;
    EXPECT_EQ(Files::read(home.socket()), "keep me");

    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--answer", "maybe"},
                                                  {"--answer", "deny", "--count", "0"},
                                                  {"--answer", "deny", "--timeout", "soon"},
                                                  {"--message", "why"},
                                                  {"--answer"}}) {
        std::vector<std::string> arguments{testing::cliBinary(), "approvals"};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        const Finished result = testing::run(arguments, home.environment());
        EXPECT_EQ(result.exitStatus, 2) << wrong.back();
        EXPECT_NE(result.err.find("pelmora help"), std::string::npos) << result.err;
    }
}

} // namespace
} // namespace pelmora
