#include "approval/ApprovalClient.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include "approval/ApprovalWire.h"
#include "common/Fixtures.h"
#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
namespace LocalSocket = platform::LocalSocket;
using testing::StandInApp;

// Sends `bytes` and keeps the connection until the client hangs up.
StandInApp::Behaviour answer(std::string bytes) {
    return [bytes](int fd, const std::string&) {
        testing::sendAll(fd, bytes);
        LocalSocket::readLine(fd, LocalSocket::deadlineAfter(10), 1);
    };
}

// Replies in pieces, without a line feed, never, or with 70 KB are tested
// through the hook, which carries this client; here is what it does not reach.
class ApprovalClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        request.id = "0F3C2B1A-9D8E-4F7A-8B6C-5D4E3F2A1B0C";
        request.sessionID = "session-42";
        request.cwd = "/Users/ada/src/app";
        request.summary = "rm -rf build/";
    }
    std::optional<ApprovalResponse> ask(double timeout = 10) const {
        return ApprovalClient::ask(request, timeout, socket.native());
    }
    const testing::TempHome home;
    const fs::path socket = home.socket();
    ApprovalRequest request;
};

TEST_F(ApprovalClientTest, SendsOneRequestLineAndDecodesAWholeReplyLineUnderTheLimit) {
    const std::string longMessage(70 * 1024, 'm');
    const std::pair<std::string, std::optional<ApprovalResponse>> rows[] = {
        {"{\"decision\":\"deny\",\"message\":\"not on \\/main\"}\n",
         ApprovalResponse{ApprovalDecision::deny, "not on /main", std::nullopt}},
        {"\n", std::nullopt},
        {R"({"decision":"allow","message":")" + longMessage + "\"}\n", std::nullopt},
        {"", std::nullopt}, // never answers
    };
    for (const auto& [reply, expected] : rows) {
        StandInApp app(socket, answer(reply));
        EXPECT_EQ(ask(reply.empty() ? 0.3 : 10), expected) << reply.substr(0, 40);
        EXPECT_EQ(app.requests(), std::vector{OrderedJSON::serializeCompact(request.toJSON())});
    }
    // No time, or a request too large: nothing, although this app would allow.
    StandInApp app(socket, answer("{\"decision\":\"allow\"}\n"));
    EXPECT_EQ(ask(0), std::nullopt);
    EXPECT_EQ(ask(-1), std::nullopt);
    request.summary = std::string(ApprovalWire::maxLine, 'a');
    EXPECT_EQ(ask(), std::nullopt);
}

// An app that listens but never accepts, its backlog full: connect() alone
// would wait for room forever.
TEST_F(ApprovalClientTest, TheTimeoutBoundsConnectingToo) {
    const LocalSocket::Listener stuck(socket, 0);
    std::vector<FileDescriptor> queued;
    for (;;) {
        LocalSocket::Connection waiting = LocalSocket::connect(socket.native(), {});
        if (waiting.error) {
            break;
        }
        queued.push_back(std::move(waiting.fd));
        ASSERT_LT(queued.size(), 100u);
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ask(0.3), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

// Another user's app where the hook looks (a socket in /tmp made first), as
// an attacker runs it: it accepts anyone, answers "allow" to anything, and
// exits 1 if a request reached it.
TEST_F(ApprovalClientTest, AsksOnlyAnAppOfTheSameUser) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to play another user";
    }
    fs::permissions(home.path(), fs::perms::all | fs::perms::sticky_bit);
    // The file is nobody's; then root's, as if swapped in after the file
    // check, so that only the peer gives the app away.
    for (const bool fileLooksOurs : {false, true}) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        testing::AsNobody app([&] {
            LocalSocket::Listener listener(socket);
            ::close(ready[1]);
            pollfd waiter{listener.fd(), POLLIN, 0};
            if (::poll(&waiter, 1, 2000) != 1) {
                return 0; // never even connected to
            }
            const FileDescriptor hook(::accept(listener.fd(), nullptr, nullptr));
            const LocalSocket::ReadResult asked =
                LocalSocket::readLine(hook.get(), LocalSocket::deadlineAfter(5), 1 << 16);
            testing::sendAll(hook.get(), "{\"decision\":\"allow\"}\n");
            return asked.status == LocalSocket::ReadStatus::line ? 1 : 0;
        });
        ::close(ready[1]);
        char byte;
        ASSERT_EQ(::read(ready[0], &byte, 1), 0);
        ::close(ready[0]);
        if (fileLooksOurs) {
            ASSERT_EQ(::chown(socket.c_str(), 0, 0), 0);
        }
        EXPECT_EQ(ask(), std::nullopt) << fileLooksOurs;
        EXPECT_EQ(app.wait(), 0) << "a request reached another user's app";
    }
}

} // namespace
} // namespace pelmora
