#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "common/ProcessRunner.h"
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

// A socket bound to `path` (a stand-in that did not clean up), or connected to it.
FileDescriptor socketAt(const std::filesystem::path& path, bool bind = false) {
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    const int done = bind ? ::bind(fd.get(), generic, sizeof(address))
                          : ::connect(fd.get(), generic, sizeof(address));
    return done == 0 ? std::move(fd) : FileDescriptor();
}

// Sends `line` and returns everything the peer sends back until it closes
// (or 10 s pass).
std::string exchange(const std::filesystem::path& socket, std::string_view line) {
    FileDescriptor fd = socketAt(socket);
    EXPECT_EQ(::write(fd.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
    std::string reply;
    char chunk[4096];
    pollfd entry{fd.get(), POLLIN, 0};
    while (::poll(&entry, 1, 10000) > 0) {
        const ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
        if (got <= 0) {
            break;
        }
        reply.append(chunk, static_cast<std::size_t>(got));
    }
    return reply;
}

TEST(ApprovalsCommand, AnswersARealHookRunAndCleansUp) {
    TempHome home;
    auto standIn = startStandIn(home, {"--answer", "allow", "--answers", "Postgres"});
    std::map<std::string, std::string> environment = home.environment();
    environment["GROK_HOOK_EVENT"] = "PreToolUse";
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(home.socket()).permissions(),
              perms::owner_read | perms::owner_write)
        << "only the user may answer for the user";

    const std::string question = R"({"hook_event_name":"PreToolUse","session_id":"g-1","cwd":"/w",
        "tool_name":"ask_user_question","tool_input":{"questions":[{"question":"Which database?",
        "header":"Database","multiSelect":false,"options":[
        {"label":"Postgres","description":"Relational"},{"label":"SQLite"}]}]}})";
    const Finished hook = testing::run({testing::hookBinary()}, environment, question);
    EXPECT_NE(hook.out.find(R"(Which database?\nThe user's answer: Postgres")"), std::string::npos)
        << hook.out;

    const Finished done = standIn->finish();
    EXPECT_EQ(done.exitStatus, 0) << "one answered request ends the stand-in";
    EXPECT_EQ(done.out, "listening on " + home.socket().string() +
                            "\ngrok asks: ask_user_question (session g-1)\n"
                            "  Database: Which database?\n"
                            "    1. Postgres — Relational\n"
                            "    2. SQLite\n");
    EXPECT_EQ(done.err, "");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(home.socket())));
}

TEST(ApprovalsCommand, SkipsBadLinesAndNeverTakesAnotherProgramsSocket) {
    TempHome home;
    ASSERT_TRUE(socketAt(home.socket(), true).valid()) << "a stale socket file, replaced";
    auto standIn =
        startStandIn(home, {"--answer", "allowAlways", "--message", "ok", "--count", "2"});
    const std::vector<std::string> another{testing::cliBinary(), "approvals", "--answer", "ask",
                                           "--timeout",          "0.2"};
    const Finished refused = testing::run(another, home.environment());
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_NE(refused.err.find("already answering"), std::string::npos) << refused.err;

    EXPECT_EQ(exchange(home.socket(), "not json\n"), "") << "no reply to a bad line";
    EXPECT_EQ(exchange(home.socket(), "{\"id\":\"X\"}\n"), "") << "nor to an incomplete request";
    const std::string request = R"({"id":"A1","source":"codex","sessionID":"c-1","cwd":"/w",)"
                                R"("tool":"Bash","summary":"cargo publish"})"
                                "\n";
    const std::string reply = R"({"decision":"allowAlways","message":"ok"})"
                              "\n";
    EXPECT_EQ(exchange(home.socket(), request), reply);
    {
        // A hook that leaves halfway through its line is skipped too.
        FileDescriptor quitter = socketAt(home.socket());
        ASSERT_EQ(::write(quitter.get(), "{\"id\":", 6), 6);
    }
    EXPECT_EQ(exchange(home.socket(), request), reply);

    const Finished done = standIn->finish();
    EXPECT_EQ(done.exitStatus, 0) << "two answered requests end the stand-in";
    EXPECT_NE(done.err.find("not an approval request: not json"), std::string::npos) << done.err;
    EXPECT_NE(done.err.find("closed before a whole line"), std::string::npos) << done.err;
    const std::string asked = "codex asks: Bash — cargo publish (session c-1)\n";
    EXPECT_EQ(done.out, "listening on " + home.socket().string() + "\n" + asked + asked);

    // A plain file there is the user's.
    Files::atomicReplace(home.socket(), "keep me", 0600);
    const Finished notASocket = testing::run(another, home.environment());
    EXPECT_EQ(notASocket.exitStatus, 1);
    EXPECT_NE(notASocket.err.find("not a socket"), std::string::npos) << notASocket.err;
    EXPECT_EQ(Files::read(home.socket()), "keep me");
}

} // namespace
} // namespace pelmora
