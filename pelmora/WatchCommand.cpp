// `pelmora watch`: the island, live in a terminal, playing the notch app's
// part: it shows what the agents are doing, answers their permission
// requests and questions on the approval socket, and shows the alerts that
// arrive on the alert socket.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <curses.h>
#include <deque>
#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/file.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include "Commands.h"
#include "IslandView.h"
#include "Terminal.h"
#include "alert/AlertValidation.h"
#include "alert/AlertWire.h"
#include "approval/ApprovalWire.h"
#include "hook/PelmoraPaths.h"
#include "json/OrderedJSON.h"
#include "platform/DirectoryWatch.h"
#include "platform/Error.h"
#include "platform/LocalSocket.h"
#include "support/Files.h"
#include "support/Time.h"

namespace pelmora::cli {
namespace {

namespace LocalSocket = platform::LocalSocket;

// A connection that has not sent its whole line by then is dropped.
constexpr double lineWait = 10;
// More connections than this at once are closed unread; their hooks fall
// back on the agent's own prompt.
constexpr std::size_t maxConnections = 64;

// How long a request is on screen before keys answer it.
constexpr double settleTime = 0.4;

volatile std::sig_atomic_t stopSignal = 0;

void noteStop(int signalNumber) {
    stopSignal = signalNumber;
}

// What a crash needs to give the terminal back and remove the sockets,
// prepared in advance: the handler may call only what is safe in a signal.
struct Rescue {
    termios saved{};
    bool haveSaved = false;
    char reset[256]{}; // leave the alternate screen, show the cursor, plain text
    std::size_t resetLength = 0;
    char sockets[2][LocalSocket::maxPathBytes + 1]{};
};
Rescue rescue;

void onCrash(int signalNumber) {
    if (rescue.resetLength > 0) {
        [[maybe_unused]] const ssize_t ignored =
            ::write(STDOUT_FILENO, rescue.reset, rescue.resetLength);
    }
    if (rescue.haveSaved) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &rescue.saved);
    }
    for (const char* path : rescue.sockets) {
        if (path[0] != '\0') {
            ::unlink(path);
        }
    }
    // SA_RESETHAND made the action the default again: the crash goes on.
    ::raise(signalNumber);
}

void rememberSocket(std::size_t slot, const std::filesystem::path& path) {
    std::strncpy(rescue.sockets[slot], path.c_str(), LocalSocket::maxPathBytes);
}

// Installed before curses starts, which then leaves SIGINT and SIGTERM to
// us and handles SIGWINCH and SIGTSTP itself. Without SA_RESTART, so poll()
// returns at once.
void catchSignals() {
    struct sigaction stop {};
    stop.sa_handler = noteStop;
    sigemptyset(&stop.sa_mask);
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(signalNumber, &stop, nullptr);
    }
    struct sigaction crash {};
    crash.sa_handler = onCrash;
    crash.sa_flags = SA_RESETHAND;
    sigemptyset(&crash.sa_mask);
    for (int signalNumber : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        ::sigaction(signalNumber, &crash, nullptr);
    }
    // A hook that left must give a write error, not end the island.
    ::signal(SIGPIPE, SIG_IGN);
}

// One island per user: the lock is held for the life of the process and
// the file names its pid for the next one to report.
FileDescriptor claimTheIsland() {
    const std::filesystem::path path = PelmoraPaths::supportDirectory() / "watch.lock";
    FileDescriptor lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.valid()) {
        throw Error(std::string("cannot open the lock file: ") + std::strerror(errno), path);
    }
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        const std::string pid = Files::read(path, 32).value_or("");
        throw Error("pelmora watch is already running" +
                    (pid.empty() ? std::string() : " (pid " + pid + ")"));
    }
    const std::string pid = std::to_string(::getpid());
    if (::ftruncate(lock.get(), 0) == 0) {
        Files::writeAll(lock.get(), pid);
    }
    return lock;
}

LocalSocket::Listener listenOn(const std::filesystem::path& path, std::string_view what) {
    try {
        return LocalSocket::Listener(path);
    } catch (const Error& error) {
        if (std::string_view(error.what()).find("already answering") == std::string_view::npos) {
            throw;
        }
        throw Error("another program is already answering on the " + std::string(what) +
                        " socket (pelmora approvals, or the Pelmora app)",
                    path);
    }
}

// The terminal in curses' hands for the life of the object, and handed
// back as it was however the object goes (a return, an exception).
class Screen {
public:
    Screen() {
        rescue.haveSaved = ::tcgetattr(STDIN_FILENO, &rescue.saved) == 0;
        screen_ = ::newterm(nullptr, stdout, stdin);
        if (screen_ == nullptr) {
            const char* term = std::getenv("TERM");
            throw Error("cannot drive this terminal (TERM=" + std::string(term ? term : "") + ")");
        }
        ::set_term(screen_);
        ::cbreak();
        ::noecho();
        ::nonl();
        ::keypad(stdscr, TRUE);
        ::nodelay(stdscr, TRUE);
        ::set_escdelay(25);
        ::curs_set(0);
        colour_ = wantsColour(STDOUT_FILENO) && ::has_colors() && ::start_color() == OK;
        if (colour_) {
            startColours();
        }
        for (const char* capability : {"rmcup", "cnorm", "sgr0"}) {
            const char* sequence = ::tigetstr(capability);
            const std::size_t length =
                sequence == nullptr || sequence == reinterpret_cast<char*>(-1)
                    ? 0
                    : std::strlen(sequence);
            if (rescue.resetLength + length < sizeof rescue.reset) {
                std::memcpy(rescue.reset + rescue.resetLength, sequence, length);
                rescue.resetLength += length;
            }
        }
    }
    ~Screen() {
        ::endwin();
        ::delscreen(screen_);
        rescue.resetLength = 0;
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool colour() const { return colour_; }

private:
    SCREEN* screen_ = nullptr;
    bool colour_ = false;
};

enum class Channel { approval, alert };

// A connection whose line is still arriving.
struct Incoming {
    FileDescriptor fd;
    Channel channel;
    double since = 0;
    std::string buffer;
};

// A hook that holds its connection open while the person decides.
struct Waiting {
    FileDescriptor fd;
    PendingApproval pending;
};

class Watch {
public:
    Watch(IslandModel& island, platform::DirectoryWatch& folder, LocalSocket::Listener& approvals,
          LocalSocket::Listener& alerts, const Screen& screen)
        : island_(island), folder_(folder), approvals_(approvals), alerts_(alerts), screen_(screen),
          unicode_(std::string_view(::nl_langinfo(CODESET)) == "UTF-8") {}

    // Until q or a signal; every waiting hook is then closed unanswered,
    // and asks the user in its own way.
    int run() {
        island_.rescan();
        double shownSecond = -1;
        while (stopSignal == 0 && !quit_) {
            const double now = Time::now();
            if (std::floor(now) != shownSecond || changed_) {
                shownSecond = std::floor(now);
                changed_ = false;
                island_.checkProcesses(now);
                redraw(now);
            }
            waitAndHandle(now);
        }
        return stopSignal != 0 ? 128 + stopSignal : 0;
    }

private:
    void redraw(double now) {
        if (!waiting_.empty() && waiting_.front().pending.request().id != shownRequest_) {
            shownRequest_ = waiting_.front().pending.request().id;
            shownSince_ = now;
        }
        const IslandLayout shown = island_.layout(now);
        const IslandScene scene{
            shown,           island_, waiting_.empty() ? nullptr : &waiting_.front().pending,
            waiting_.size(), now,     unicode_};
        paint(islandScreen(scene, COLS, LINES), screen_.colour());
    }

    void waitAndHandle(double now) {
        std::vector<pollfd> entries{{STDIN_FILENO, POLLIN, 0},
                                    {folder_.fd(), POLLIN, 0},
                                    {approvals_.fd(), POLLIN, 0},
                                    {alerts_.fd(), POLLIN, 0}};
        for (const Incoming& connection : incoming_) {
            entries.push_back({connection.fd.get(), POLLIN, 0});
        }
        for (const Waiting& hook : waiting_) {
            entries.push_back({hook.fd.get(), POLLIN, 0});
        }
        // Wakes on the next whole second, when every age on screen moves.
        const int timeout =
            std::clamp(static_cast<int>(1000 - std::fmod(now, 1.0) * 1000), 1, 1000);
        const int ready = ::poll(entries.data(), entries.size(), timeout);
        if (ready <= 0) {
            if (ready < 0) {
                readKeys(); // curses turns SIGWINCH into KEY_RESIZE
            }
            tick(now);
            return;
        }
        if ((entries[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
            quit_ = true; // the terminal went away
            return;
        }
        // Connections first, by index, before a key answers one.
        const std::size_t firstWaiting = 4 + incoming_.size();
        std::vector<bool> waitingLeft(waiting_.size());
        for (std::size_t index = 0; index < waiting_.size(); ++index) {
            waitingLeft[index] =
                entries[firstWaiting + index].revents != 0 && !stillThere(waiting_[index].fd.get());
        }
        for (std::size_t index = waiting_.size(); index-- > 0;) {
            if (waitingLeft[index]) {
                waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(index));
                changed_ = true;
            }
        }
        for (std::size_t index = incoming_.size(); index-- > 0;) {
            if (entries[4 + index].revents != 0 && !readLine(incoming_[index])) {
                incoming_.erase(incoming_.begin() + static_cast<std::ptrdiff_t>(index));
            }
        }
        if ((entries[0].revents & POLLIN) != 0) {
            readKeys();
        }
        if ((entries[1].revents & POLLIN) != 0) {
            const platform::DirectoryWatch::Changes changes = folder_.drain();
            if (changes.everything) {
                island_.rescan();
            } else if (!changes.names.empty()) {
                island_.reread(changes.names);
            }
            changed_ = changed_ || changes.any();
        }
        if ((entries[2].revents & POLLIN) != 0) {
            accept(approvals_, Channel::approval, now);
        }
        if ((entries[3].revents & POLLIN) != 0) {
            accept(alerts_, Channel::alert, now);
        }
        tick(Time::now());
    }

    // What the clock does: lines that never came, a folder that went away.
    void tick(double now) {
        std::erase_if(incoming_, [now](const Incoming& connection) {
            return now - connection.since > lineWait;
        });
        if (!folder_.watching() && folder_.rearm()) {
            island_.rescan();
            changed_ = true;
        }
    }

    void readKeys() {
        for (int key = ::getch(); key != ERR; key = ::getch()) {
            changed_ = true;
            if (key == KEY_ENTER || key == '\r') {
                key = '\n';
            }
            if (key == 'q') {
                quit_ = true;
                return;
            }
            if (key == '\t') {
                island_.pickNext(Time::now());
            } else if (key == 'x') {
                island_.dismissPrimary(Time::now());
            } else if (!waiting_.empty() && settled(waiting_.front())) {
                if (std::optional<ApprovalResponse> response =
                        waiting_.front().pending.press(key)) {
                    const std::string line =
                        OrderedJSON::serializeCompact(response->toJSON()) + "\n";
                    // A hook that left meanwhile simply misses it.
                    LocalSocket::sendAll(waiting_.front().fd.get(), line,
                                         LocalSocket::deadlineAfter(2));
                    waiting_.pop_front();
                }
            }
        }
    }

    // A key typed for one request must not answer the one that takes its
    // place (its hook left, or it was answered a moment ago): a request
    // takes keys once it has been on screen for a moment.
    bool settled(const Waiting& front) const {
        return front.pending.request().id == shownRequest_ &&
               Time::now() - shownSince_ >= settleTime;
    }

    // False when the hook closed its end: it gave up, or its agent was
    // stopped, and its request goes from the screen.
    static bool stillThere(int fd) {
        char ignored[256];
        const ssize_t got = ::recv(fd, ignored, sizeof ignored, MSG_DONTWAIT);
        return got > 0 || (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
    }

    void accept(LocalSocket::Listener& listener, Channel channel, double now) {
        FileDescriptor fd = listener.accept(LocalSocket::deadlineAfter(0.001));
        if (fd.valid() && incoming_.size() + waiting_.size() < maxConnections) {
            incoming_.push_back({std::move(fd), channel, now, {}});
        }
    }

    // False when the connection is done with: its line handled, or broken.
    bool readLine(Incoming& connection) {
        const std::size_t limit =
            connection.channel == Channel::approval ? ApprovalWire::maxLine : AlertWire::maxLine;
        char chunk[4096];
        const ssize_t got = ::recv(connection.fd.get(), chunk, sizeof chunk, MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            return true;
        }
        if (got <= 0) {
            return false;
        }
        connection.buffer.append(chunk, static_cast<std::size_t>(got));
        const std::size_t end = connection.buffer.find('\n');
        if (end == std::string::npos) {
            return connection.buffer.size() < limit;
        }
        if (end >= limit) {
            return false;
        }
        connection.buffer.resize(end);
        if (connection.channel == Channel::approval) {
            takeRequest(connection);
        } else {
            answerAlert(connection);
        }
        return false;
    }

    void takeRequest(Incoming& connection) {
        const std::optional<JSONValue> json = OrderedJSON::tryParse(connection.buffer);
        std::optional<ApprovalRequest> request =
            json ? ApprovalRequest::fromJSON(*json) : std::nullopt;
        if (request) {
            waiting_.push_back({std::move(connection.fd), PendingApproval(std::move(*request))});
            changed_ = true;
        }
    }

    // Checked again as the app checks it: a script may speak the wire
    // without `pelmora alert`.
    void answerAlert(Incoming& connection) {
        const std::optional<JSONValue> json = OrderedJSON::tryParse(connection.buffer);
        const std::optional<AlertRequest> alert =
            json ? AlertRequest::fromJSON(*json) : std::nullopt;
        AlertOutcome outcome = AlertOutcome::rejected("not an alert request");
        if (alert) {
            const AlertValidation::Fields fields{
                alert->title, alert->body, std::string(rawValue(alert->level)),
                alert->open,  alert->id,   std::to_string(alert->ttl)};
            const AlertValidation::Result checked =
                AlertValidation::validate(fields, PelmoraPaths::home());
            if (const auto* accepted = std::get_if<AlertRequest>(&checked)) {
                island_.addAlert(*accepted, Time::now());
                outcome = AlertOutcome::shown();
                changed_ = true;
            } else {
                outcome = std::get<AlertRejection>(checked).outcome();
            }
        }
        const std::string line =
            OrderedJSON::serializeCompact(AlertReply::of(outcome).toJSON()) + "\n";
        LocalSocket::sendAll(connection.fd.get(), line, LocalSocket::deadlineAfter(1));
    }

    IslandModel& island_;
    platform::DirectoryWatch& folder_;
    LocalSocket::Listener& approvals_;
    LocalSocket::Listener& alerts_;
    const Screen& screen_;
    bool unicode_;
    std::vector<Incoming> incoming_;
    std::deque<Waiting> waiting_;
    std::string shownRequest_; // the id of the request on screen
    double shownSince_ = 0;
    bool changed_ = true;
    bool quit_ = false;
};

int runWatch() {
    PelmoraPaths::ensureDirectory(PelmoraPaths::sessionsDirectory());
    const FileDescriptor lock = claimTheIsland();
    if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0) {
        throw Error("pelmora watch needs a terminal (for a script: pelmora line or pelmora "
                    "sessions)");
    }
    catchSignals();
    ::setlocale(LC_CTYPE, "");

    LocalSocket::Listener approvals = listenOn(PelmoraPaths::approvalSocket(), "approval");
    rememberSocket(0, approvals.path());
    LocalSocket::Listener alerts = listenOn(PelmoraPaths::alertSocket(), "alert");
    rememberSocket(1, alerts.path());
    platform::DirectoryWatch folder(PelmoraPaths::sessionsDirectory(),
                                    PelmoraPaths::darwinNotification.data(), ".json");
    IslandModel island(PelmoraPaths::sessionsDirectory());

    const Screen screen;
    Watch watch(island, folder, approvals, alerts, screen);
    const int status = watch.run();
    std::memset(rescue.sockets, 0, sizeof rescue.sockets);
    return status;
}

Run declareWatch(CLI::App&) {
    return [] { return runWatch(); };
}

} // namespace

const Command watchCommand{
    "watch", "the island, live: sessions, requests and alerts",
    "Shows what the agents are doing as the notch would, redrawn whenever a session\n"
    "changes: the session in front in full, the next ones beside it, and a count of\n"
    "the rest. It answers in place of the notch app: a permission request or a\n"
    "question waits on screen until a key answers it (a allow, A always allow,\n"
    "d deny, s let the agent ask, 1-6 choose an option), and alerts from\n"
    "'pelmora alert' show for their time. Tab puts the next session in front,\n"
    "x dismisses a failure or an alert, q quits. Sessions whose agent has exited\n"
    "show as gone. A hook still waiting when the island closes gets no answer and\n"
    "asks in the agent instead. One island runs at a time.",
    declareWatch};

} // namespace pelmora::cli
