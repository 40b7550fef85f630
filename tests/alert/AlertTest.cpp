#include <cerrno>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

#include "alert/AlertClient.h"
#include "alert/AlertValidation.h"
#include "alert/AlertWire.h"
#include "common/Fixtures.h"
#include "json/OrderedJSON.h"
#include "platform/LocalSocket.h"

namespace pelmora {
namespace {

const std::filesystem::path home = "/Users/ann";

// The rejection's text, or the request's fields: title|body|level|open|id|ttl.
std::string checked(const AlertValidation::Result& result) {
    if (const auto* rejection = std::get_if<AlertRejection>(&result)) {
        return rejection->description;
    }
    const AlertRequest& r = std::get<AlertRequest>(result);
    return r.title + "|" + r.body + "|" + std::string(rawValue(r.level)) + "|" +
           r.open.value_or("") + "|" + r.id.value_or("") + "|" + std::to_string(r.ttl);
}

TEST(AlertValidation, Arguments) {
    std::string flags; // sixteen characters of two scalars each
    for (int i = 0; i < 16; ++i) {
        flags += "\U0001F1EB\U0001F1F7";
    }
    const std::string body81(81, 'b'), id64(64, 'i'), id65(65, 'i');
    const std::vector<std::pair<std::vector<std::string_view>, std::string>> cases = {
        {{"Build done"}, "Build done||info|||4"},
        {{" Deploy\n", "v1 is live ", "--level", "action", "--id=d.v1:4_x-Y", "--ttl", "60"},
         "Deploy|v1 is live|action||d.v1:4_x-Y|60"},
        {{"--level=fail", "--", "--tests"}, "--tests||fail|||0"},
        {{"-1 test", "--ttl", "86400", "--ttl=0", "--open", "/tmp"}, "-1 test||info|/tmp||0"},
        {{"T", "--open", "file://localhost/Users/ann/My%20Notes"},
         "T||info|/Users/ann/My Notes||4"},
        {{"T", "--open", "/Users/ann/a/./b\xff"}, "T||info|/Users/ann/a/./b\uFFFD||4"},
        {{}, "title is required (1 to 16 characters)"},
        {{" \n\t"}, "title is required (1 to 16 characters)"},
        {{"", "--level", "warn"}, "title is required (1 to 16 characters)"},
        {{"12345678901234567"}, "title is longer than 16 characters"},
        {{"T", body81}, "body is longer than 80 characters"},
        {{"T", "B", "C", "--colour"}, "unexpected argument \"C\""},
        {{"T", "--colour=red", "B", "C"}, "unknown option --colour"},
        {{"T", "--", "B", "--colour"}, "unexpected argument \"--colour\""},
        {{"T", "--level", "Fail"}, "level must be info, action or fail"},
        {{"T", "--level"}, "level must be info, action or fail"},
        {{"T", "--id", "a b"}, "id must be 1 to 64 letters, digits or . _ : -"},
        {{"T", "--id", id65}, "id must be 1 to 64 letters, digits or . _ : -"},
        {{"T", "--ttl", "86401"}, "ttl must be 0 to 86400 seconds"},
        {{"T", "--ttl", "1.5"}, "ttl must be 0 to 86400 seconds"},
        {{"T", "--open", "notes/today.md"}, "open must be an absolute path"},
        {{"T", "--open", "https://example.com/x"}, "open must be a local path, not a URL"},
        {{"T", "--open", "/etc/passwd"}, "open must be under your home folder or /tmp"},
        {{"T", "--open", "/Users/annex/x"}, "open must be under your home folder or /tmp"},
        {{"T", "--open", "/tmp/../etc/passwd"}, "open must not contain .."},
        {{"T", "--open", "file://server/Users/ann/x"}, "open is not a local file URL"},
        {{"T", "--open", "file:///Users/ann/a%zz"}, "open is not a local file URL"},
        {{flags, "--id", id64}, flags + "||info||" + id64 + "|4"},
    };
    for (const auto& [arguments, expected] : cases) {
        EXPECT_EQ(checked(AlertValidation::fromArguments(arguments, home)), expected)
            << (arguments.empty() ? "" : arguments.front());
    }
}

TEST(AlertValidation, Links) {
    const std::pair<std::string_view, std::string> cases[] = {
        {"pelmora://alert?title=Deploy%20done&body=v1+live&level=action&ttl=60",
         "Deploy done|v1+live|action|||60"},
        {"PELMORA://Alert/?&title=%E2%9C%85%20ok&&title=%E2%9C%85#title=x", "✅||info|||4"},
        {"pelmora://alert?title=%FF&open=%2Ftmp%2Fa%20b", "\uFFFD||info|/tmp/a b||4"},
        {"pelmora://alert?title=T&id=", "id must be 1 to 64 letters, digits or . _ : -"},
        {"pelmora://alert", "title is required (1 to 16 characters)"},
        {"pelmora://alerts?title=T", "not a pelmora://alert link"},
        {"https://alert?title=T", "not a pelmora://alert link"},
        {"pelmora://alert?title=%zz", "not a pelmora://alert link"},
        {"pelmora://alert?title=T&colour=red&level=warn", "unknown parameter \"colour\""},
    };
    for (const auto& [link, expected] : cases) {
        EXPECT_EQ(checked(AlertValidation::fromLink(link, home)), expected) << link;
    }
    // An unknown home folder lets nothing through but /tmp.
    EXPECT_EQ(checked(AlertValidation::fromLink("pelmora://alert?title=T&open=/x", "")),
              "open must be under your home folder or /tmp");
}

using pelmora::testing::StandInApp;
using pelmora::testing::TempHome;

// Sends `bytes` in pieces of `piece` bytes, pausing between them.
StandInApp::Behaviour answer(std::string bytes, std::size_t piece = 9000) {
    return [bytes, piece](int fd, const std::string&) {
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            std::this_thread::sleep_for(std::chrono::milliseconds(at > 0 ? 20 : 0));
            pelmora::testing::sendAll(fd, std::string_view(bytes).substr(at, piece));
        }
    };
}

// A clock that moves only by the waits the client asks for; each wait
// polls the real socket briefly, or fails as told.
struct WatchedWait : AlertClient::ReplyWait {
    int error = 0;
    double clock = 1'000;
    std::vector<int> waits;
    double now() override { return clock; }
    int wait(int fd, int milliseconds) override {
        waits.push_back(milliseconds);
        clock += milliseconds / 1000.0;
        pollfd waiter{fd, POLLIN, 0};
        errno = error;
        return error ? -1 : ::poll(&waiter, 1, 20);
    }
};

const AlertRequest request{"Build", "3 tests failed", AlertLevel::fail, "/tmp/build.log", "b-1", 0};

// The app's reply to an outcome, as a line.
std::string replyLine(const AlertOutcome& outcome) {
    return OrderedJSON::serializeCompact(AlertReply::of(outcome).toJSON()) + "\n";
}

TEST(AlertClient, OutcomesOfAStandInAppsAnswers) {
    const std::string text(1500, 'x'); // crosses the 1024-byte reads
    const std::tuple<StandInApp::Behaviour, std::string, int> cases[] = {
        {answer(replyLine(AlertOutcome::shown()) + "{\"status\":\"disabled\"}\n"), "", 0},
        {answer(replyLine(AlertOutcome::disabled())),
         "External alerts are switched off in Pelmora's settings", 2},
        {answer(replyLine(AlertOutcome::rejected("busy"))), "refused: busy", 3},
        {answer(replyLine(AlertOutcome::failed(text)), 700), text, 4},
        {answer(replyLine(AlertOutcome::notRunning())), "unexpected reply", 4},
        {answer("{\"status\":\"rejected\"}\n", 5), "refused: ", 3},
        {answer("{\"status\":\"ok\",\"message\":7}\n"), "unexpected reply", 4},
        {answer(std::string(5000, '{')), "unexpected answer", 4},
        {answer(""), "Pelmora is not running", 1}, // accepts and hangs up
    };
    for (const auto& [behave, message, exitCode] : cases) {
        const TempHome folder;
        const std::string socket = folder.path() / "alert.sock";
        const StandInApp app(socket, behave);
        const AlertOutcome outcome = AlertClient::send(request, socket, 10);
        EXPECT_EQ(outcome.message(), message);
        EXPECT_EQ(outcome.exitCode(), exitCode) << message;
        EXPECT_EQ(app.requests(), std::vector<std::string>{
                                      R"({"body":"3 tests failed","id":"b-1","level":"fail",)"
                                      R"("open":"\/tmp\/build.log","title":"Build","ttl":0})"});
    }
    EXPECT_EQ(replyLine(AlertOutcome::notRunning()) + replyLine(AlertOutcome::failed("x")),
              "{\"status\":\"notRunning\"}\n{\"message\":\"x\",\"status\":\"failed\"}\n");
}

TEST(AlertClient, FailuresWithoutAnAnswer) {
    const TempHome folder;
    const std::string socket = folder.path() / "alert.sock";
    EXPECT_EQ(AlertClient::send(request, socket, 10), AlertOutcome::notRunning());
    EXPECT_EQ(AlertClient::send(request, "/tmp/" + std::string(100, 's'), 10),
              AlertOutcome::failed("socket path too long"));
    AlertRequest huge = request;
    huge.body.assign(AlertWire::maxLine, 'b'); // refused before connecting
    EXPECT_EQ(AlertClient::send(huge, socket, 10), AlertOutcome::failed("too large"));

    // Twelve seconds of silence, waited for in steps of at most five.
    const StandInApp silent(socket, [](int fd, const std::string&) {
        platform::LocalSocket::readLine(fd, platform::LocalSocket::deadlineAfter(10), 1);
    });
    WatchedWait watched;
    EXPECT_EQ(AlertClient::send(request, socket, 12, watched),
              AlertOutcome::failed("Pelmora did not answer"));
    EXPECT_EQ(watched.waits, (std::vector<int>{5000, 5000, 2000}));
    WatchedWait failing;
    failing.error = EIO;
    EXPECT_EQ(AlertClient::send(request, socket, 12, failing),
              AlertOutcome::failed("could not read the answer"));
}

} // namespace
} // namespace pelmora
