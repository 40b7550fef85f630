// `pelmora approvals`: stands in for the notch app on the approval socket,
// so an agent's permission requests and questions can be answered from a
// terminal or a script with a fixed answer.

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <signal.h>
#include <string>
#include <vector>

#include "Commands.h"
#include "Terminal.h"
#include "approval/ApprovalRecords.h"
#include "approval/ApprovalWire.h"
#include "hook/PelmoraPaths.h"
#include "hook/Source.h"
#include "json/OrderedJSON.h"
#include "platform/LocalSocket.h"
#include "support/Files.h"
#include "support/Text.h"

namespace pelmora::cli {
namespace {

namespace LocalSocket = platform::LocalSocket;

struct Options {
    ApprovalResponse response;
    int count = 1;
    double timeout = 60;
};

volatile std::sig_atomic_t stopSignal = 0;

void noteStop(int signalNumber) {
    stopSignal = signalNumber;
}

// Without SA_RESTART, so a wait in poll or read returns at once and the
// socket file is still removed on the way out.
void catchStopSignals() {
    struct sigaction action {};
    action.sa_handler = noteStop;
    sigemptyset(&action.sa_mask);
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signalNumber, &action, nullptr);
    }
    // A hook that gave up must yield a write error, not end this process.
    signal(SIGPIPE, SIG_IGN);
}

bool stopRequested() {
    return stopSignal != 0;
}

// One line for the request, then each question with its numbered options.
void describe(const ApprovalRequest& request) {
    std::string line = std::string(rawValue(request.source)) + " asks: ";
    line += request.tool ? printable(*request.tool) : "permission";
    if (request.summary) {
        line += " — " + printable(*request.summary);
    }
    line += " (session " + printable(request.sessionID) + ")";
    std::printf("%s\n", line.c_str());

    if (!request.questions) {
        std::fflush(stdout);
        return;
    }
    for (const Question& question : *request.questions) {
        std::string text = "  ";
        if (!question.header.empty()) {
            text += printable(question.header) + ": ";
        }
        text += printable(question.question);
        if (question.multiSelect) {
            text += " (choose any)";
        }
        std::printf("%s\n", text.c_str());
        int number = 0;
        for (const QuestionOption& option : question.options) {
            std::string entry = "    " + std::to_string(++number) + ". " + printable(option.label);
            if (!option.description.empty()) {
                entry += " — " + printable(option.description);
            }
            std::printf("%s\n", entry.c_str());
        }
    }
    std::fflush(stdout);
}

// The agent gets no reply when the answers do not fit the questions, which
// is easy to get wrong on a command line; say so rather than look broken.
void warnAboutAnswers(const ApprovalRequest& request, const ApprovalResponse& response) {
    if (!request.questions || response.decision != ApprovalDecision::allow) {
        return;
    }
    const std::size_t asked = request.questions->size();
    const std::size_t given = response.answers ? response.answers->size() : 0;
    if (asked != given) {
        std::fprintf(stderr,
                     "pelmora: %zu answer(s) for %zu question(s); the agent will ask the user "
                     "itself\n",
                     given, asked);
    }
}

// Answers one connection; true when a request was answered.
bool serve(int connection, const Options& options, LocalSocket::Clock::time_point deadline) {
    const LocalSocket::ReadResult request = LocalSocket::readLine(
        connection, deadline, ApprovalWire::maxLine, ApprovalWire::readChunk, stopRequested);
    switch (request.status) {
    case LocalSocket::ReadStatus::line:
        break;
    case LocalSocket::ReadStatus::tooLong:
        std::fprintf(stderr, "pelmora: skipped a request line of %zu bytes or more\n",
                     ApprovalWire::maxLine);
        return false;
    case LocalSocket::ReadStatus::closed:
        std::fprintf(stderr, "pelmora: skipped a connection that closed before a whole line\n");
        return false;
    case LocalSocket::ReadStatus::timedOut:
    case LocalSocket::ReadStatus::stopped:
        return false;
    }

    std::optional<ApprovalRequest> decoded;
    if (std::optional<JSONValue> json = OrderedJSON::tryParse(request.text)) {
        decoded = ApprovalRequest::fromJSON(*json);
    }
    if (!decoded) {
        const std::string shown(Text::prefixCharacters(request.text, 60));
        std::fprintf(stderr, "pelmora: skipped a line that is not an approval request: %s%s\n",
                     printable(shown).c_str(), shown.size() < request.text.size() ? "…" : "");
        return false;
    }

    describe(*decoded);
    warnAboutAnswers(*decoded, options.response);
    const std::string reply = OrderedJSON::serializeCompact(options.response.toJSON()) + "\n";
    // A hook that stopped reading must not hold the stand-in for long.
    if (!LocalSocket::sendAll(connection, reply, LocalSocket::deadlineAfter(5))) {
        std::fprintf(stderr, "pelmora: the hook of session %s left before the answer\n",
                     printable(decoded->sessionID).c_str());
        return false;
    }
    return true;
}

} // namespace

int runApprovals(const Options& options) {
    catchStopSignals();

    const std::filesystem::path socketPath = PelmoraPaths::approvalSocket();
    PelmoraPaths::ensureDirectory(socketPath.parent_path());
    // Only hooks of this user are answered: the listener closes other users'
    // connections unread.
    LocalSocket::Listener listener(socketPath);
    std::printf("listening on %s\n", socketPath.c_str());
    std::fflush(stdout);

    const LocalSocket::Clock::time_point deadline = LocalSocket::deadlineAfter(options.timeout);
    int answered = 0;
    while (answered < options.count) {
        const FileDescriptor connection = listener.accept(deadline, stopRequested);
        if (stopSignal != 0) {
            return 128 + stopSignal;
        }
        if (!connection.valid()) {
            if (LocalSocket::millisecondsLeft(deadline) > 0) {
                continue; // a passing error of accept()
            }
            std::fprintf(stderr, "pelmora: stopped after %g s with %d of %d request(s) answered\n",
                         options.timeout, answered, options.count);
            return 0;
        }
        if (serve(connection.get(), options, deadline)) {
            ++answered;
        }
    }
    return stopSignal != 0 ? 128 + stopSignal : 0;
}

namespace {

Run declareApprovals(CLI::App& app) {
    auto options = std::make_shared<Options>();
    auto answers = std::make_shared<std::vector<std::string>>();
    addChoice(app, "--answer", options->response.decision,
              {ApprovalDecision::allow, ApprovalDecision::allowAlways, ApprovalDecision::deny,
               ApprovalDecision::ask},
              "the decision for every request")
        ->required();
    app.add_option_function<std::string>(
           "--message", [options](const std::string& text) { options->response.message = text; },
           "the reason the agent is given with the decision")
        ->take_last();
    // Answers match questions by position: each --answers takes exactly one
    // value, so a stray word is refused rather than taken for the next answer.
    app.add_option("--answers", *answers, "the answer to a question; once per question, in order")
        ->allow_extra_args(false)
        ->take_all();
    addWholeNumber(app, "--count", options->count, 1,
                   "the requests to answer before stopping (default 1)");
    addSeconds(app, "--timeout", options->timeout, "the longest time to wait (default 60)");
    return [options, answers] {
        if (!answers->empty()) {
            options->response.answers = *answers;
        }
        return runApprovals(*options);
    };
}

} // namespace

const Command approvalsCommand{
    "approvals", "answer the agents' permission requests and questions",
    "Stands in for the notch app: listens on the approval socket, prints each request\n"
    "as it comes and gives every one the same answer, until --count requests are\n"
    "answered or the time is up; both end with exit status 0. Questions take\n"
    "--answer allow and one --answers per question, in order; when the numbers do not\n"
    "match, the agent asks the user itself.\n"
    "\n"
    "example: pelmora approvals --answer allow --answers Postgres --count 2",
    declareApprovals};

} // namespace pelmora::cli
