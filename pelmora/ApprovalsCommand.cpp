// `pelmora approvals`: stands in for the notch app on the approval socket,
// so an agent's permission requests and questions can be answered from a
// terminal or a script with a fixed answer.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "Commands.h"
#include "Terminal.h"
#include "approval/ApprovalRecords.h"
#include "approval/ApprovalWire.h"
#include "hook/PelmoraPaths.h"
#include "hook/Source.h"
#include "json/OrderedJSON.h"
#include "platform/Error.h"
#include "platform/Platform.h"
#include "support/Files.h"
#include "support/Text.h"

namespace pelmora::cli {
namespace {

using Clock = std::chrono::steady_clock;

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

bool setCloseOnExec(int fd) {
    return ::fcntl(fd, F_SETFD, FD_CLOEXEC) == 0;
}

sockaddr_un socketAddress(const std::filesystem::path& socketPath) {
    const std::string& text = socketPath.native();
    sockaddr_un address{};
    // The 104-byte field of macOS holds the path and its terminating zero.
    constexpr std::size_t limit = 103;
    if (text.empty() || text.size() > limit || text.find('\0') != std::string::npos) {
        throw Error("the socket path is too long for a Unix socket", socketPath);
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, text.data(), text.size());
    return address;
}

// A socket file that nobody answers on is left over from a stand-in or an
// app that did not clean up, and is removed. A live listener, or a file
// that is not a socket at all, is never touched.
void clearStaleSocket(const std::filesystem::path& socketPath, const sockaddr_un& address) {
    struct stat status {};
    if (::lstat(socketPath.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        throw Error("refusing to replace a file that is not a socket", socketPath);
    }
    FileDescriptor probe(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (probe.valid() &&
        ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        throw Error("another program is already answering approvals on this socket", socketPath);
    }
    ::unlink(socketPath.c_str());
}

// The listening socket, whose file goes away with it.
class Listener {
public:
    explicit Listener(std::filesystem::path socketPath) : path_(std::move(socketPath)) {
        const sockaddr_un address = socketAddress(path_);
        PelmoraPaths::ensureDirectory(path_.parent_path());
        clearStaleSocket(path_, address);

        fd_.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
        if (!fd_.valid() || !setCloseOnExec(fd_.get())) {
            throw Error(std::string("cannot create a socket: ") + std::strerror(errno), path_);
        }
        // Owner-only from the moment the file exists, not just after chmod.
        const mode_t previous = ::umask(0177);
        const int bound =
            ::bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        const int bindError = errno;
        ::umask(previous);
        if (bound != 0) {
            throw Error(std::string("cannot bind the socket: ") + std::strerror(bindError), path_);
        }
        bound_ = true;
        if (::chmod(path_.c_str(), 0600) != 0 || ::listen(fd_.get(), 16) != 0) {
            throw Error(std::string("cannot listen on the socket: ") + std::strerror(errno), path_);
        }
    }
    ~Listener() {
        if (bound_) {
            ::unlink(path_.c_str());
        }
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int fd() const { return fd_.get(); }

private:
    std::filesystem::path path_;
    FileDescriptor fd_;
    bool bound_ = false;
};

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 2147483647));
}

enum class Wait { ready, timedOut, stopped };

Wait waitReadable(int fd, Clock::time_point deadline) {
    while (true) {
        if (stopSignal != 0) {
            return Wait::stopped;
        }
        const int timeout = millisecondsUntil(deadline);
        if (timeout == 0) {
            return Wait::timedOut;
        }
        pollfd entry{fd, POLLIN, 0};
        const int result = ::poll(&entry, 1, timeout);
        if (result > 0) {
            return Wait::ready;
        }
        if (result < 0 && errno != EINTR) {
            throw Error(std::string("waiting on the socket failed: ") + std::strerror(errno));
        }
    }
}

struct RequestLine {
    enum class Kind { line, tooLong, cutShort, timedOut, stopped };
    Kind kind = Kind::cutShort;
    std::string text;
};

RequestLine readRequestLine(int fd, Clock::time_point deadline) {
    std::string buffer;
    char chunk[ApprovalWire::readChunk];
    while (true) {
        const Wait wait = waitReadable(fd, deadline);
        if (wait != Wait::ready) {
            return {wait == Wait::stopped ? RequestLine::Kind::stopped
                                          : RequestLine::Kind::timedOut,
                    {}};
        }
        const ssize_t count = ::read(fd, chunk, sizeof chunk);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return {RequestLine::Kind::cutShort, {}};
        }
        buffer.append(chunk, static_cast<std::size_t>(count));
        const std::size_t end = buffer.find('\n');
        if (end != std::string::npos && end < ApprovalWire::maxLine) {
            buffer.resize(end);
            return {RequestLine::Kind::line, std::move(buffer)};
        }
        if (buffer.size() >= ApprovalWire::maxLine) {
            return {RequestLine::Kind::tooLong, {}};
        }
    }
}

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = platform::sendNoSignal(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
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
bool serve(int connection, const Options& options, Clock::time_point deadline) {
    const RequestLine request = readRequestLine(connection, deadline);
    switch (request.kind) {
    case RequestLine::Kind::line:
        break;
    case RequestLine::Kind::tooLong:
        std::fprintf(stderr, "pelmora: skipped a request line of %zu bytes or more\n",
                     ApprovalWire::maxLine);
        return false;
    case RequestLine::Kind::cutShort:
        std::fprintf(stderr, "pelmora: skipped a connection that closed before a whole line\n");
        return false;
    case RequestLine::Kind::timedOut:
    case RequestLine::Kind::stopped:
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
    if (!sendAll(connection, reply)) {
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
    const Listener listener(socketPath);
    std::printf("listening on %s\n", socketPath.c_str());
    std::fflush(stdout);

    const Clock::time_point deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(std::min(options.timeout, 1e9)));
    int answered = 0;
    while (answered < options.count) {
        const Wait wait = waitReadable(listener.fd(), deadline);
        if (wait == Wait::stopped) {
            return 128 + stopSignal;
        }
        if (wait == Wait::timedOut) {
            std::fprintf(stderr, "pelmora: stopped after %g s with %d of %d request(s) answered\n",
                         options.timeout, answered, options.count);
            return 0;
        }
        FileDescriptor connection(::accept(listener.fd(), nullptr, nullptr));
        if (!connection.valid()) {
            continue; // the client gave up between poll and accept, or a signal came
        }
        setCloseOnExec(connection.get());
        platform::suppressSigpipe(connection.get());
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
