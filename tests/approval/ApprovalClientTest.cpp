#include "approval/ApprovalClient.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "approval/ApprovalWire.h"
#include "json/OrderedJSON.h"
#include "platform/Platform.h"
#include "support/Files.h"

namespace pelmora {

// Failures show the reply as the app would have sent it.
static void PrintTo(const ApprovalResponse& response, std::ostream* out) {
    *out << OrderedJSON::serializeCompact(response.toJSON());
}

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A short temporary folder, so that socket paths stay far below the limit
// unless a test makes them long on purpose.
class TemporaryFolder {
public:
    TemporaryFolder() {
        char pattern[] = "/tmp/pelmora-approval-XXXXXX";
        path_ = ::mkdtemp(pattern);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = platform::sendNoSignal(fd, bytes.data(), bytes.size());
        if (sent <= 0) {
            return; // the client gave up; that is what some tests provoke
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

// Reads until the line feed (true) or until the peer closes or 10 s pass.
bool readUntilLineFeed(int fd, std::string& into) {
    char chunk[4096];
    while (into.find('\n') == std::string::npos) {
        pollfd waiter{fd, POLLIN, 0};
        if (::poll(&waiter, 1, 10000) <= 0) {
            return false;
        }
        const ssize_t got = ::read(fd, chunk, sizeof(chunk));
        if (got <= 0) {
            return false;
        }
        into.append(chunk, static_cast<std::size_t>(got));
    }
    return true;
}

// The notch app, played by a thread: accepts one connection, reads the
// request line, runs `behaviour` on the connection and then waits for the
// client to hang up.
class StandInApp {
public:
    using Behaviour = std::function<void(int connection)>;

    StandInApp(std::filesystem::path socketPath, Behaviour behaviour)
        : path_(std::move(socketPath)), behaviour_(std::move(behaviour)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string text = path_.string();
        if (text.size() >= sizeof(address.sun_path)) {
            return;
        }
        std::memcpy(address.sun_path, text.data(), text.size());
        listener_.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
        if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
                0 ||
            ::listen(listener_.get(), 4) != 0) {
            listener_.reset();
            return;
        }
        thread_ = std::thread([this] { serve(); });
    }
    ~StandInApp() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        std::filesystem::remove(path_);
    }

    bool listening() const { return listener_.valid(); }
    const std::filesystem::path& path() const { return path_; }
    // Valid once the client has returned: the app then hangs up too.
    std::string requestLine() {
        thread_.join();
        return received_;
    }
    bool connected() {
        if (thread_.joinable()) {
            stop_ = true;
            thread_.join();
        }
        return connected_;
    }

private:
    void serve() {
        // A connection already queued counts even when the test has asked to stop.
        while (true) {
            pollfd waiter{listener_.get(), POLLIN, 0};
            if (::poll(&waiter, 1, 20) > 0) {
                break;
            }
            if (stop_) {
                return;
            }
        }
        FileDescriptor connection(::accept(listener_.get(), nullptr, nullptr));
        if (!connection.valid()) {
            return;
        }
        connected_ = true;
        platform::suppressSigpipe(connection.get());
        if (!readUntilLineFeed(connection.get(), received_)) {
            return;
        }
        behaviour_(connection.get());
        std::string rest; // anything past the one request line is a fault
        readUntilLineFeed(connection.get(), rest);
        received_ += rest;
    }

    std::filesystem::path path_;
    Behaviour behaviour_;
    FileDescriptor listener_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> connected_{false};
    std::string received_;
};

StandInApp::Behaviour answer(std::string bytes) {
    return [bytes](int fd) { sendAll(fd, bytes); };
}

ApprovalRequest sampleRequest() {
    ApprovalRequest request;
    request.id = "0F3C2B1A-9D8E-4F7A-8B6C-5D4E3F2A1B0C";
    request.source = Source::claude;
    request.sessionID = "session-42";
    request.cwd = "/Users/ada/src/app";
    request.tool = "Bash";
    request.summary = "rm -rf build/";
    return request;
}

std::optional<ApprovalResponse> askApp(const StandInApp& app, double timeout = 10) {
    return ApprovalClient::ask(sampleRequest(), timeout, app.path().string());
}

const ApprovalResponse allowed{ApprovalDecision::allow, std::nullopt, std::nullopt};

TEST(ApprovalClientTest, SendsOneRequestLineAndReadsTheFirstReplyLine) {
    TemporaryFolder folder;
    {
        StandInApp app(folder.path() / "approval.sock",
                       answer("{\"decision\":\"deny\",\"message\":\"not on \\/main\"}\n"));
        ASSERT_TRUE(app.listening());
        EXPECT_EQ(askApp(app),
                  (ApprovalResponse{ApprovalDecision::deny, "not on /main", std::nullopt}));
        EXPECT_EQ(app.requestLine(),
                  OrderedJSON::serializeCompact(sampleRequest().toJSON()) + "\n");
    }
    {
        StandInApp app(folder.path() / "pieces.sock", [](int fd) {
            for (std::string_view piece :
                 {"{\"decision\":", "\"allow\",\"ans", "wers\":[\"a b\"]", "}", "\n"}) {
                sendAll(fd, piece);
                std::this_thread::sleep_for(30ms);
            }
        });
        const auto reply = askApp(app);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->answers, std::vector<std::string>{"a b"});
    }
    {
        StandInApp app(folder.path() / "two.sock",
                       answer("{\"decision\":\"allow\"}\n{\"decision\":\"deny\"}\n"));
        EXPECT_EQ(askApp(app), allowed);
    }
    {
        StandInApp app(folder.path() / "trailing.sock",
                       answer("{\"decision\":\"allowAlways\"}\nnot json at all"));
        EXPECT_EQ(askApp(app),
                  (ApprovalResponse{ApprovalDecision::allowAlways, std::nullopt, std::nullopt}));
    }
}

TEST(ApprovalClientTest, MisbehavingAppGivesNoAnswer) {
    TemporaryFolder folder;
    const auto path = folder.path() / "approval.sock";
    const auto closeAfter = [](std::string bytes) {
        return [bytes](int fd) {
            sendAll(fd, bytes);
            ::shutdown(fd, SHUT_WR);
        };
    };
    for (const char* reply :
         {"{\"decision\":\"allow\"}", "", "{\"decision\":\"Allow\"}\n", "{\"message\":\"x\"}\n",
          "{\"decision\":\"allow\",\"answers\":[1]}\n", "allow\n", "\n"}) {
        SCOPED_TRACE(reply);
        StandInApp app(path, closeAfter(reply));
        EXPECT_EQ(askApp(app), std::nullopt);
    }
    {
        StandInApp app(path, answer(std::string(70 * 1024, 'x')));
        EXPECT_EQ(askApp(app), std::nullopt);
    }
    {
        // Well-formed, but the line is past the limit before its line feed arrives.
        const std::string longLine =
            "{\"decision\":\"allow\",\"message\":\"" + std::string(70 * 1024, 'm') + "\"}\n";
        StandInApp app(path, answer(longLine));
        EXPECT_EQ(askApp(app), std::nullopt);
    }
    {
        StandInApp app(path, [](int fd) { ::shutdown(fd, SHUT_RDWR); });
        EXPECT_EQ(askApp(app), std::nullopt);
    }
    {
        StandInApp silent(path, [](int) {});
        const auto start = Clock::now();
        EXPECT_EQ(askApp(silent, 0.3), std::nullopt);
        EXPECT_GE(Clock::now() - start, 300ms);
    }
    {
        StandInApp silent(path, [](int) {});
        EXPECT_EQ(askApp(silent, 0), std::nullopt);
        EXPECT_EQ(askApp(silent, -1), std::nullopt);
    }
}

TEST(ApprovalClientTest, RefusesWithoutConnectingWhatCannotBeSent) {
    TemporaryFolder folder;
    const auto pathOfLength = [&](std::size_t bytes) {
        const std::string prefix = folder.path().string() + "/";
        return std::filesystem::path(prefix + std::string(bytes - prefix.size(), 's'));
    };
    {
        StandInApp longest(pathOfLength(103), answer("{\"decision\":\"allow\"}\n"));
        ASSERT_TRUE(longest.listening());
        EXPECT_EQ(askApp(longest), allowed);
    }
    {
        // Linux can bind a 104-byte path; the client still refuses it, as a Mac must.
        StandInApp tooLong(pathOfLength(104), answer("{\"decision\":\"allow\"}\n"));
        EXPECT_EQ(askApp(tooLong), std::nullopt);
        EXPECT_FALSE(tooLong.connected());
    }
    {
        StandInApp app(folder.path() / "approval.sock", answer("{\"decision\":\"allow\"}\n"));
        ApprovalRequest huge = sampleRequest();
        huge.summary = std::string(ApprovalWire::maxLine, 'a');
        EXPECT_EQ(ApprovalClient::ask(huge, 5, app.path().string()), std::nullopt);
        const std::string withNul = app.path().string() + std::string(1, '\0') + "x";
        EXPECT_EQ(ApprovalClient::ask(sampleRequest(), 5, withNul), std::nullopt);
        EXPECT_EQ(ApprovalClient::ask(sampleRequest(), 5, ""), std::nullopt);
        EXPECT_FALSE(app.connected());
    }
    EXPECT_EQ(ApprovalClient::ask(sampleRequest(), 5, (folder.path() / "nobody.sock").string()),
              std::nullopt);
    std::filesystem::create_directory(folder.path() / "not-a-socket");
    EXPECT_EQ(ApprovalClient::ask(sampleRequest(), 5, (folder.path() / "not-a-socket").string()),
              std::nullopt);
}

std::atomic<int> signalsCaught{0};
void countSignal(int) {
    signalsCaught.fetch_add(1);
}

// Interrupts the thread that created it with SIGUSR1 every 100 ms, for at
// most 4 s; the handler has no SA_RESTART, so each signal breaks the wait.
class Interrupter {
public:
    Interrupter() : target_(::pthread_self()) {
        struct sigaction action {};
        action.sa_handler = countSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0;
        ::sigaction(SIGUSR1, &action, &previous_);
        signalsCaught = 0;
        thread_ = std::thread([this] {
            const auto giveUp = Clock::now() + 4s;
            while (!stop_ && Clock::now() < giveUp) {
                std::this_thread::sleep_for(100ms);
                if (!stop_) {
                    if (firstSignal_ == Clock::time_point{}) {
                        firstSignal_ = Clock::now();
                    }
                    ::pthread_kill(target_, SIGUSR1);
                }
            }
        });
    }
    ~Interrupter() {
        stop();
        ::sigaction(SIGUSR1, &previous_, nullptr);
    }
    void stop() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    Clock::time_point firstSignal() const { return firstSignal_; }

private:
    pthread_t target_;
    struct sigaction previous_ {};
    std::atomic<bool> stop_{false};
    Clock::time_point firstSignal_{};
    std::thread thread_;
};

TEST(ApprovalClientTest, SignalsDuringTheWaitResumeWithTheTimeLeft) {
    TemporaryFolder folder;
    {
        StandInApp app(folder.path() / "late.sock", [](int fd) {
            std::this_thread::sleep_for(500ms);
            sendAll(fd, "{\"decision\":\"deny\"}\n");
        });
        Interrupter interrupter;
        const auto reply = askApp(app, 10);
        interrupter.stop();
        EXPECT_GT(signalsCaught.load(), 0);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->decision, ApprovalDecision::deny);
    }
    {
        // Signals keep coming for 4 s: a wait that restarted with the whole
        // timeout would outlast them all.
        StandInApp silent(folder.path() / "silent.sock", [](int) {});
        Interrupter interrupter;
        const auto start = Clock::now();
        const auto reply = askApp(silent, 0.8);
        const auto end = Clock::now();
        interrupter.stop();
        EXPECT_EQ(reply, std::nullopt);
        EXPECT_GT(signalsCaught.load(), 0);
        EXPECT_GT(end, interrupter.firstSignal());
        EXPECT_LT(end - start, 3s);
    }
}

} // namespace
} // namespace pelmora
