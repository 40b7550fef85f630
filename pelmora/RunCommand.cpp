// `pelmora run -- CMD...`: runs a command as the notch app tracks a build.
// Its output reaches the terminal as it comes, unchanged; the whole of it,
// both streams in the order they came, is kept in a log file; and when the
// command fails, the one line that best says why and where the log is are
// printed after it.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "ChildOutput.h"
#include "Commands.h"
#include "Style.h"
#include "Terminal.h"
#include "activity/BuildLogs.h"
#include "activity/ErrorScanner.h"
#include "hook/PelmoraPaths.h"
#include "platform/ChildProcess.h"
#include "platform/Error.h"
#include "support/Files.h"
#include "support/Time.h"

namespace pelmora::cli {
namespace {

// Two weeks of logs, at most a hundred of them: enough to look back at last
// week's failures without the folder growing with every build.
constexpr std::int64_t keptDays = 14;
constexpr std::int64_t keptLogs = 100;

volatile std::sig_atomic_t runningChild = 0;

// A termination asked of this process is meant for the command: it ends
// first and says how, and this process reports that.
void forwardToChild(int signalNumber) {
    if (runningChild > 0) {
        ::kill(static_cast<pid_t>(runningChild), signalNumber);
    }
}

void forwardTerminations(pid_t child) {
    runningChild = child;
    struct sigaction action {};
    action.sa_handler = forwardToChild;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int signalNumber : {SIGTERM, SIGHUP}) {
        sigaction(signalNumber, &action, nullptr);
    }
}

// "run-20260512-093015-4242": sorts by time, and the pid keeps two runs
// started in the same second apart.
std::string runID() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    return "run-" + std::string(stamp) + "-" + std::to_string(::getpid());
}

// Owner-only whatever the umask, never through a link, never over an
// existing file.
FileDescriptor createLog(const std::filesystem::path& path) {
    PelmoraPaths::ensureDirectory(path.parent_path());
    FileDescriptor log(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!log.valid() || ::fchmod(log.get(), 0600) != 0) {
        throw Error(std::string("cannot create the log: ") + std::strerror(errno), path);
    }
    return log;
}

// As a shell reports it: the exit status, or 128 + the signal's number.
int shellStatus(const platform::ChildProcess::Termination& end) {
    return end.signalled ? 128 + end.status : end.status;
}

std::string howItEnded(const platform::ChildProcess::Termination& end) {
    if (end.signalled) {
        return "ended by signal " + std::to_string(end.status) + ", " + ::strsignal(end.status);
    }
    return "exit status " + std::to_string(end.status);
}

int runLine(const std::vector<std::string>& words) {
    if (words.empty()) {
        throw CLI::ValidationError("needs the command to run: pelmora run -- CMD...");
    }
    const std::string program = printable(words.front());
    // The command's own reactions to a closed output or to Ctrl-C decide;
    // this process must outlive it to report. The child gets the defaults
    // back (ChildProcess resets what is ignored).
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGINT, SIG_IGN);
    ::signal(SIGQUIT, SIG_IGN);
    std::optional<platform::ChildProcess> child = platform::ChildProcess::start(
        words, {.pipeOutput = true, .pipeErrors = true, .searchPath = true});
    if (!child) {
        const int why = errno;
        std::fprintf(stderr, "pelmora: cannot run %s: %s\n", program.c_str(), std::strerror(why));
        // As shells do: 127 when there is no such program, 126 when it
        // cannot be executed.
        return why == ENOENT || why == ENOTDIR ? 127 : 126;
    }
    forwardTerminations(child->pid());

    const std::filesystem::path logPath = BuildLogs::logURL(runID());
    FileDescriptor log;
    try {
        log = createLog(logPath);
        BuildLogs::prune(keptDays, keptLogs, Time::now());
    } catch (const Error& error) {
        // The command matters more than its log: it runs without one.
        std::fprintf(stderr, "pelmora: %s: %s\n", error.what(),
                     printable(error.path().string()).c_str());
    }

    const bool logKept = log.valid();
    bool logCut = false;
    ErrorScanner scanner;
    readOutput(*child, [&](std::string_view chunk, bool isStderr) {
        if (log.valid() && !Files::writeAll(log.get(), chunk)) {
            logCut = true;
            log.reset();
        }
        scanner.feed(chunk, isStderr);
        return Files::writeAll(isStderr ? STDERR_FILENO : STDOUT_FILENO, chunk);
    });
    const std::optional<platform::ChildProcess::Termination> end = child->wait();
    runningChild = 0;
    scanner.finish();
    if (!end) {
        std::fprintf(stderr, "pelmora: lost track of %s\n", program.c_str());
        return 1;
    }
    const int status = shellStatus(*end);
    if (status == 0) {
        return 0;
    }

    const bool colour = wantsColour(STDERR_FILENO);
    std::string report = "pelmora: " + program + " failed (" + howItEnded(*end) + ")";
    if (std::optional<std::string> best = scanner.best()) {
        report += ": " + styled(printable(*best), Style{Colour::red, true, false}, colour);
    }
    std::fprintf(stderr, "%s\n", report.c_str());
    if (logKept) {
        std::fprintf(stderr, "pelmora: %s: %s\n",
                     logCut ? "output up to a write error" : "full output",
                     printable(logPath.string()).c_str());
    }
    return status;
}

Run declareRun(CLI::App& app) {
    app.prefix_command();
    return [&app] {
        // CLI11 hands the words after "--" to pelmora itself, not to run.
        std::vector<std::string> words = app.remaining();
        if (words.empty() && app.get_parent() != nullptr) {
            words = app.get_parent()->remaining();
        }
        return runLine(words);
    };
}

} // namespace

const Command runCommand{
    "run", "run a command, keep its log, say why it failed",
    "Runs CMD (found in PATH) and passes its output and errors through as they come.\n"
    "Both are kept, in the order they came, in a new owner-only file of the logs\n"
    "folder (see 'pelmora paths'); logs older than 14 days and all but the newest\n"
    "100 are removed. When CMD fails, prints on standard error the line that best\n"
    "says why and the log's path. Exits with CMD's status, 128 + N when signal N\n"
    "ended it, 127 when CMD is not found and 126 when it cannot be executed.\n"
    "\n"
    "example: pelmora run -- make -j4",
    declareRun};

} // namespace pelmora::cli
