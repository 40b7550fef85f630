#include "platform/LocalSocket.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "common/Fixtures.h"
#include "platform/Error.h"

namespace pelmora::platform {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using LocalSocket::ConnectError;
using LocalSocket::deadlineAfter;
using LocalSocket::ReadStatus;

class LocalSocketTest : public ::testing::Test {
protected:
    void SetUp() override { std::ofstream(dir / "plain") << "mine"; }
    const testing::TempHome home;
    const fs::path dir = home.path();
};

// Stale sockets, live ones, plain files and the mode are tested through the
// approvals stand-in; left here: a listener whose file was replaced leaves
// the newcomer's alone, and a path a Mac could not bind is refused.
TEST_F(LocalSocketTest, ListenerRemovesOnlyItsOwnFile) {
    const fs::path path = dir / "app.sock";
    auto listener = std::make_unique<LocalSocket::Listener>(path);
    EXPECT_FALSE(listener->accept(deadlineAfter(0.05)).valid());
    fs::remove(path);
    {
        LocalSocket::Listener newcomer(path);
        listener.reset();
        EXPECT_TRUE(fs::is_socket(path));
    }
    EXPECT_FALSE(fs::exists(path));
    for (const fs::path& refused : {dir / "plain", fs::path(), dir / std::string(104, 's')}) {
        EXPECT_THROW(LocalSocket::Listener{refused}, Error) << refused;
    }
}

TEST_F(LocalSocketTest, ConnectSaysWhyItCannot) {
    const std::string prefix = dir.string() + "/";
    const std::string longest =
        prefix + std::string(LocalSocket::maxPathBytes - prefix.size(), 's');
    LocalSocket::Listener listener(longest);
    const LocalSocket::Connection connection = LocalSocket::connect(longest, deadlineAfter(5));
    EXPECT_FALSE(connection.error);
    const FileDescriptor accepted = listener.accept(deadlineAfter(5));
    EXPECT_EQ(LocalSocket::peerUserID(accepted.get()), userID());
    EXPECT_EQ(LocalSocket::peerUserID(connection.fd.get()), userID());

    // Linux could bind 104 bytes; a Mac could not, so neither side tries.
    const std::pair<std::string, ConnectError> rows[] = {
        {"", ConnectError::pathTooLong},
        {longest + "s", ConnectError::pathTooLong},
        {prefix + std::string(1, '\0'), ConnectError::pathTooLong},
        {prefix + "missing", ConnectError::refused},
        {prefix + "plain", ConnectError::refused},
    };
    for (const auto& [path, error] : rows) {
        EXPECT_EQ(LocalSocket::connect(path, deadlineAfter(1)).error, error) << path;
    }
}

// The client's checks are tested through the approval client; here, the
// listener's: nobody's connection (it finds the file its own) is dropped.
TEST_F(LocalSocketTest, ListenerHandsOverNoConnectionOfAnotherUser) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to play another user";
    }
    const fs::path path = dir / "app.sock";
    fs::permissions(dir, fs::perms::all);
    LocalSocket::Listener listener(path);
    ASSERT_EQ(::chown(path.c_str(), testing::AsNobody::user, 0), 0);
    testing::AsNobody([&] {
        return LocalSocket::connect(path.native(), deadlineAfter(5)).error ? 0 : 1;
    }).wait();
    EXPECT_FALSE(listener.accept(deadlineAfter(0.2)).valid());
}

TEST(LocalSocket, ReadsAndSendsEndAtTheirLimits) {
    // Line, status; read with a limit of 16 bytes, in chunks of 4.
    const std::pair<std::string, ReadStatus> rows[] = {
        {"abc\ndef\n", ReadStatus::line},
        {std::string(15, 'x') + "\n", ReadStatus::line},
        {std::string(16, 'x') + "\n", ReadStatus::tooLong},
        {"", ReadStatus::timedOut},
    };
    for (const auto& [sent, status] : rows) {
        int pair[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        const FileDescriptor near(pair[0]), far(pair[1]);
        testing::sendAll(far.get(), sent);
        const auto read = LocalSocket::readLine(near.get(), deadlineAfter(0.1), 16, 4);
        EXPECT_EQ(read.status, status) << sent;
        EXPECT_EQ(read.text, status == ReadStatus::line ? sent.substr(0, sent.find('\n')) : "");
    }
    const auto stop = [] { return true; };
    EXPECT_EQ(LocalSocket::readLine(-1, deadlineAfter(5), 16, 4, stop).status, ReadStatus::stopped);

    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    FileDescriptor near(pair[0]), far(pair[1]);
    // A peer that never reads: the buffer fills, and the send gives up.
    EXPECT_FALSE(LocalSocket::sendAll(near.get(), std::string(8 << 20, 'x'), deadlineAfter(0.2)));
    far.reset();
    errno = 0;
    EXPECT_FALSE(LocalSocket::sendAll(near.get(), "x", deadlineAfter(1))); // no SIGPIPE
    EXPECT_EQ(errno, EPIPE);
}

// SIGUSR1 every 100 ms for up to 4 s, with a handler without SA_RESTART:
// each signal breaks the wait.
TEST(LocalSocket, SignalsDuringAWaitResumeItWithTheTimeLeft) {
    static std::atomic<int> caught;
    struct sigaction action {
    }, previous{};
    action.sa_handler = [](int) { caught.fetch_add(1); };
    ::sigaction(SIGUSR1, &action, &previous);
    std::atomic<bool> done{false};
    std::thread interrupter([&done, target = ::pthread_self()] {
        for (int i = 0; i < 40 && !done; ++i) {
            std::this_thread::sleep_for(100ms);
            ::pthread_kill(target, SIGUSR1);
        }
    });
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const FileDescriptor near(pair[0]), far(pair[1]);
    std::thread late([&far] {
        std::this_thread::sleep_for(500ms);
        testing::sendAll(far.get(), "late\n");
    });
    EXPECT_EQ(LocalSocket::readLine(near.get(), deadlineAfter(10), 100).text, "late");
    late.join();
    // A wait restarted with the whole 0.8 s would outlast the signals.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(LocalSocket::readLine(near.get(), deadlineAfter(0.8), 100).status,
              ReadStatus::timedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    done = true;
    interrupter.join();
    ::sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_GT(caught.load(), 0);
}

} // namespace
} // namespace pelmora::platform
