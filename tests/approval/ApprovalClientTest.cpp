#include "approval/ApprovalClient.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
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
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

// A send that fails means the client gave up, which some tests provoke.
void sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = platform::sendNoSignal(fd, bytes.data(), bytes.size());
        if (sent <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

// Reads until a line feed (true), or until the peer closes or 10 s pass.
bool readUntilLineFeed(int fd, std::string& into) {
    char chunk[4096];
    while (into.find('\n') == std::string::npos) {
        pollfd waiter{fd, POLLIN, 0};
        const ssize_t got = ::poll(&waiter, 1, 10000) > 0 ? ::read(fd, chunk, sizeof chunk) : -1;
        if (got <= 0) {
            return false;
        }
        into.append(chunk, static_cast<std::size_t>(got));
    }
    return true;
}

// The notch app, played by a thread: accepts one connection, reads the
// request line, runs `reply` on the connection and waits for the client to
// hang up; whatever else the client sends lands in `received` too.
class StandInApp {
public:
    StandInApp(fs::path socketPath, std::function<void(int)> reply) : path(std::move(socketPath)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string text = path.string();
        listener_.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
        std::memcpy(address.sun_path, text.data(), std::min(text.size(), sizeof address.sun_path));
        if (text.size() >= sizeof address.sun_path ||
            ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ||
            ::listen(listener_.get(), 4)) {
            listener_.reset();
            return;
        }
        thread_ = std::thread([this, reply = std::move(reply)] { serve(reply); });
    }
    ~StandInApp() {
        finish();
        fs::remove(path);
    }
    bool listening() const { return listener_.valid(); }
    // Joins the app; `received` is final afterwards.
    void finish() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    const fs::path path;
    std::string received;

private:
    void serve(const std::function<void(int)>& reply) {
        // A connection already queued counts even when the test has asked to stop.
        for (pollfd waiter{listener_.get(), POLLIN, 0}; ::poll(&waiter, 1, 20) <= 0;) {
            if (stop_) {
                return;
            }
        }
        FileDescriptor connection(::accept(listener_.get(), nullptr, nullptr));
        if (!connection.valid()) {
            return;
        }
        platform::suppressSigpipe(connection.get());
        if (readUntilLineFeed(connection.get(), received)) {
            reply(connection.get());
            std::string rest; // anything past the one request line is a fault
            readUntilLineFeed(connection.get(), rest);
            received += rest;
        }
    }

    FileDescriptor listener_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
};

std::function<void(int)> answer(std::string bytes, bool thenClose = false) {
    return [bytes, thenClose](int fd) {
        sendAll(fd, bytes);
        if (thenClose) {
            ::shutdown(fd, SHUT_WR);
        }
    };
}

ApprovalRequest sampleRequest() {
    ApprovalRequest request;
    request.id = "0F3C2B1A-9D8E-4F7A-8B6C-5D4E3F2A1B0C";
    request.sessionID = "session-42";
    request.cwd = "/Users/ada/src/app";
    request.tool = "Bash";
    request.summary = "rm -rf build/";
    return request;
}

std::optional<ApprovalResponse> askApp(const StandInApp& app, double timeout = 10) {
    return ApprovalClient::ask(sampleRequest(), timeout, app.path.string());
}

const ApprovalResponse allowed{ApprovalDecision::allow, std::nullopt, std::nullopt};

class ApprovalClientTest : public ::testing::Test {
protected:
    // Short, so that socket paths stay far below the limit unless a test
    // makes them long on purpose.
    void SetUp() override {
        char pattern[] = "/tmp/pelmora-approval-XXXXXX";
        ASSERT_TRUE(::mkdtemp(pattern));
        folder = pattern;
    }
    void TearDown() override { fs::remove_all(folder); }
    fs::path folder;
};

TEST_F(ApprovalClientTest, SendsOneRequestLineAndReadsTheFirstReplyLine) {
    {
        StandInApp app(folder / "approval.sock",
                       answer("{\"decision\":\"deny\",\"message\":\"not on \\/main\"}\n"));
        ASSERT_TRUE(app.listening());
        EXPECT_EQ(askApp(app),
                  (ApprovalResponse{ApprovalDecision::deny, "not on /main", std::nullopt}));
        app.finish();
        EXPECT_EQ(app.received, OrderedJSON::serializeCompact(sampleRequest().toJSON()) + "\n");
    }
    {
        StandInApp app(folder / "pieces.sock", [](int fd) {
            for (std::string_view piece :
                 {"{\"decision\":", "\"allow\",\"ans", "wers\":[\"a b\"]", "}", "\n"}) {
                sendAll(fd, piece);
                std::this_thread::sleep_for(30ms);
            }
        });
        EXPECT_EQ(askApp(app), (ApprovalResponse{ApprovalDecision::allow, std::nullopt,
                                                 std::vector<std::string>{"a b"}}));
    }
    // Only the first line counts, whatever follows it.
    for (const char* reply : {"{\"decision\":\"allow\"}\n{\"decision\":\"deny\"}\n",
                              "{\"decision\":\"allow\"}\nnot json at all"}) {
        StandInApp app(folder / "two.sock", answer(reply));
        EXPECT_EQ(askApp(app), allowed) << reply;
    }
}

TEST_F(ApprovalClientTest, MisbehavingAppGivesNoAnswer) {
    const std::pair<const char*, std::function<void(int)>> misbehaviours[] = {
        {"closes without a line feed", answer("{\"decision\":\"allow\"}", true)},
        {"closes at once", answer("", true)},
        {"undecodable line", answer("{\"decision\":\"Allow\"}\n")},
        {"not JSON", answer("allow\n")},
        {"empty line", answer("\n")},
        {"70 KB without a line feed", answer(std::string(70 * 1024, 'x'))},
        // Well-formed, but past the limit before its line feed arrives.
        {"70 KB line",
         answer("{\"decision\":\"allow\",\"message\":\"" + std::string(70 * 1024, 'm') + "\"}\n")},
    };
    for (const auto& [what, reply] : misbehaviours) {
        StandInApp app(folder / "approval.sock", reply);
        EXPECT_EQ(askApp(app), std::nullopt) << what;
    }

    StandInApp silent(folder / "silent.sock", [](int) {});
    const auto start = Clock::now();
    EXPECT_EQ(askApp(silent, 0.3), std::nullopt);
    EXPECT_GE(Clock::now() - start, 300ms);
    EXPECT_EQ(askApp(silent, 0), std::nullopt);
    EXPECT_EQ(askApp(silent, -1), std::nullopt);
}

TEST_F(ApprovalClientTest, RefusesWhatCannotBeSent) {
    const auto pathOfLength = [&](std::size_t bytes) {
        const std::string prefix = folder.string() + "/";
        return fs::path(prefix + std::string(bytes - prefix.size(), 's'));
    };
    {
        StandInApp longest(pathOfLength(103), answer("{\"decision\":\"allow\"}\n"));
        ASSERT_TRUE(longest.listening());
        EXPECT_EQ(askApp(longest), allowed);
    }
    // Linux can bind a 104-byte path; the client still refuses it, as a Mac
    // must. Each app here would answer whatever reached it.
    StandInApp tooLong(pathOfLength(104), answer("{\"decision\":\"allow\"}\n"));
    ASSERT_TRUE(tooLong.listening());
    EXPECT_EQ(askApp(tooLong), std::nullopt);
    StandInApp app(folder / "approval.sock", answer("{\"decision\":\"allow\"}\n"));
    ApprovalRequest huge = sampleRequest();
    huge.summary = std::string(ApprovalWire::maxLine, 'a');
    EXPECT_EQ(ApprovalClient::ask(huge, 5, app.path.string()), std::nullopt);
    fs::create_directory(folder / "not-a-socket");
    for (const std::string& path :
         {app.path.string() + std::string(1, '\0') + "x", std::string(),
          (folder / "nobody.sock").string(), (folder / "not-a-socket").string()}) {
        EXPECT_EQ(ApprovalClient::ask(sampleRequest(), 5, path), std::nullopt) << path;
    }
}

struct Interrupted {
    std::optional<ApprovalResponse> reply;
    Clock::duration waited;
    int signals;
};

// Asks while another thread interrupts this one with SIGUSR1 every 100 ms,
// for at most 4 s; the handler has no SA_RESTART, so each signal breaks the
// wait.
Interrupted askInterrupted(const StandInApp& app, double timeout) {
    static std::atomic<int> caught;
    caught = 0;
    struct sigaction action {
    }, previous{};
    action.sa_handler = [](int) { caught.fetch_add(1); };
    ::sigaction(SIGUSR1, &action, &previous);
    std::atomic<bool> done{false};
    std::thread interrupter([&done, target = ::pthread_self()] {
        for (const auto giveUp = Clock::now() + 4s; !done && Clock::now() < giveUp;) {
            std::this_thread::sleep_for(100ms);
            if (!done) {
                ::pthread_kill(target, SIGUSR1);
            }
        }
    });
    const auto start = Clock::now();
    Interrupted result{askApp(app, timeout), {}, 0};
    result.waited = Clock::now() - start;
    done = true;
    interrupter.join();
    ::sigaction(SIGUSR1, &previous, nullptr);
    result.signals = caught;
    return result;
}

TEST_F(ApprovalClientTest, SignalsDuringTheWaitResumeWithTheTimeLeft) {
    StandInApp late(folder / "late.sock", [](int fd) {
        std::this_thread::sleep_for(500ms);
        sendAll(fd, "{\"decision\":\"deny\"}\n");
    });
    const Interrupted answered = askInterrupted(late, 10);
    EXPECT_GT(answered.signals, 0);
    EXPECT_EQ(answered.reply,
              (ApprovalResponse{ApprovalDecision::deny, std::nullopt, std::nullopt}));

    // Signals keep coming for 4 s: a wait that restarted with the whole
    // timeout would outlast them all.
    StandInApp silent(folder / "silent.sock", [](int) {});
    const Interrupted unanswered = askInterrupted(silent, 0.8);
    EXPECT_EQ(unanswered.reply, std::nullopt);
    EXPECT_GT(unanswered.signals, 0);
    EXPECT_LT(unanswered.waited, 3s);
}

} // namespace
} // namespace pelmora
