// `pelmora doctor`: whether what `pelmora install` put in place is there
// and works, one line per part, and an exit status a script can test.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "Commands.h"
#include "InstallShared.h"
#include "Style.h"
#include "Terminal.h"
#include "hook/AgentDetection.h"
#include "hook/PelmoraPaths.h"
#include "integration/HookInstaller.h"
#include "integration/HookTarget.h"
#include "integration/ShellIntegration.h"
#include "integration/StatusLineInstaller.h"
#include "platform/ChildProcess.h"
#include "platform/LocalSocket.h"
#include "platform/Platform.h"

namespace pelmora::cli {
namespace {

using std::filesystem::path;
namespace LocalSocket = platform::LocalSocket;

// Long enough for a cold start on a busy machine; the hook's own guard
// ends it after two seconds whatever it waits for.
constexpr int hookSeconds = 3;

struct Line {
    Line(std::string name_, std::string status_, std::string text_)
        : name(std::move(name_)), status(std::move(status_)), text(std::move(text_)) {}

    std::string name;
    std::string status;
    std::string text;
    bool problem = false;
    std::string advice; // printed on a line of its own below
};

struct Verdict {
    bool runs = false;
    std::string text;
};

std::string firstLine(const std::string& text) {
    return printable(text.substr(0, text.find('\n')));
}

// Runs the hook as an agent would with nothing to report: empty input,
// which it must take quietly, with status 0 and no output.
Verdict tryProgram(const path& program) {
    std::error_code error;
    if (!std::filesystem::exists(program, error)) {
        return {false, "missing"};
    }
    if (!std::filesystem::is_regular_file(program, error) || ::access(program.c_str(), X_OK) != 0) {
        return {false, "not an executable file"};
    }
    auto child = platform::ChildProcess::start(
        {program.string()}, {.pipeInput = true, .pipeOutput = true, .pipeErrors = true});
    if (!child) {
        return {false, std::string("cannot start: ") + std::strerror(errno)};
    }
    child->closeInput();
    const auto deadline = LocalSocket::deadlineAfter(hookSeconds);
    pollfd streams[2] = {{child->output().get(), POLLIN, 0}, {child->errors().get(), POLLIN, 0}};
    std::string said;
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        const int left = LocalSocket::millisecondsLeft(deadline);
        if (left == 0) {
            ::kill(child->pid(), SIGKILL);
            child->wait();
            return {false, "did not finish within " + std::to_string(hookSeconds) + " s"};
        }
        if (::poll(streams, 2, left) < 0 && errno != EINTR) {
            break;
        }
        for (pollfd& stream : streams) {
            char chunk[512];
            const ssize_t got = stream.revents != 0 ? ::read(stream.fd, chunk, sizeof chunk) : -2;
            if (got > 0 && said.size() < 4096) {
                said.append(chunk, static_cast<std::size_t>(got));
            } else if (got == 0 || got == -1) {
                stream.fd = -1;
            }
        }
    }
    const auto end = child->wait();
    if (!end) {
        return {false, "could not be waited for"};
    }
    if (end->signalled) {
        return {false, "ended by signal " + std::to_string(end->status)};
    }
    if (end->status != 0 || !said.empty()) {
        return {false, "exited with status " + std::to_string(end->status) +
                           (said.empty() ? "" : ": " + firstLine(said))};
    }
    return {true, "runs"};
}

class Doctor {
public:
    explicit Doctor(path home) : home_(std::move(home)) {}

    int run() {
        agents();
        statusLine();
        zsh();
        socket("approvals", PelmoraPaths::approvalSocket());
        socket("alerts", PelmoraPaths::alertSocket());
        supportFolder();
        print();
        return std::any_of(lines_.begin(), lines_.end(), [](const Line& l) { return l.problem; })
                   ? 1
                   : 0;
    }

private:
    const Verdict& check(const path& program) {
        auto found = verdicts_.find(program);
        if (found == verdicts_.end()) {
            found = verdicts_.emplace(program, tryProgram(program)).first;
        }
        return found->second;
    }

    // "hook runs", or what is wrong with each program the entries name.
    std::string programs(const std::vector<std::string>& named, bool& problem) {
        std::string text;
        for (const std::string& program : named) {
            const Verdict& verdict = check(program);
            problem = problem || !verdict.runs || program != hook_.native();
            text +=
                (text.empty() ? "" : "; ") + ("hook " + printable(program) + ": ") + verdict.text;
        }
        return named.size() == 1 && named.front() == hook_.native() && !problem ? "hook runs"
                                                                                : text;
    }

    // The programs a JSON target's entries run; none for the other kinds.
    static std::vector<std::string> namedPrograms(const HookTarget& target) {
        std::vector<std::string> named;
        if (target.kind != HookTarget::Kind::json && target.kind != HookTarget::Kind::copilot) {
            return named;
        }
        try {
            const HookInstaller::Contents contents = HookInstaller::read(target.fileURL);
            for (const std::string& command :
                 HookInstaller::managedCommands(contents.root, target.container)) {
                std::optional<std::string> program = Install::programOf(command);
                if (program && std::count(named.begin(), named.end(), *program) == 0) {
                    named.push_back(std::move(*program));
                }
            }
        } catch (const std::exception&) {
            // status() has said what is wrong with the file.
        }
        return named;
    }

    void agents() {
        const std::vector<Source> detected = AgentDetection::detected(home_);
        for (Source agent : agentSources) {
            const HookTarget target = HookTarget::target(agent, home_);
            const HookInstaller::Status status = HookInstaller::status(target, hook_.native());
            using Case = HookInstaller::Status::Case;
            if (status.kind == Case::notInstalled &&
                std::count(detected.begin(), detected.end(), agent) == 0) {
                continue;
            }
            Line line{std::string(rawValue(agent)), std::string(rawValue(status.kind)),
                      printable(target.fileURL.native())};
            if (status.kind == Case::unreadable) {
                line.text = printable(status.text);
                line.problem = true;
            } else if (status.kind != Case::notInstalled) {
                std::vector<std::string> named = namedPrograms(target);
                if (named.empty() && status.kind == Case::installed) {
                    named.push_back(hook_.native());
                }
                line.text += "  " + (named.empty() ? std::string("not what this version writes")
                                                   : programs(named, line.problem));
                line.problem = line.problem || status.kind == Case::stale;
            }
            if (line.problem && status.kind != Case::unreadable) {
                line.text += " ('pelmora install " + line.name + "' puts it right)";
            } else if (status.kind == Case::installed && !Install::adviceHeeded(agent, target)) {
                // In place and yet idle until the user does something in the agent.
                line.status = "untrusted";
                line.problem = true;
                line.advice = std::string(Install::advice(agent));
            }
            lines_.push_back(std::move(line));
        }
        if (lines_.empty()) {
            lines_.push_back(
                {"agents", "none", "no agent's folder is in " + printable(home_.native())});
        }
    }

    void statusLine() {
        const HookTarget claude = HookTarget::target(Source::claude, home_);
        const StatusLineInstaller::Status status = StatusLineInstaller::status(claude);
        Line line{"status line", std::string(rawValue(status.kind)),
                  printable(claude.fileURL.native())};
        if (status.kind == StatusLineInstaller::Status::Case::unreadable) {
            line.text = printable(status.text);
            line.problem = true;
        } else if (status.kind == StatusLineInstaller::Status::Case::on) {
            const HookInstaller::Contents settings = HookInstaller::read(claude.fileURL);
            const JSONValue* value = settings.root.value({"statusLine", "command"});
            const std::string* command = value != nullptr ? value->stringValue() : nullptr;
            const std::optional<std::string> program =
                command != nullptr ? Install::programOf(*command) : std::nullopt;
            line.text += "  " + programs({program.value_or("")}, line.problem);
            if (line.problem) {
                line.status = "stale";
                line.text += " ('pelmora install --statusline' puts it right)";
            }
            if (auto original =
                    StatusLineInstaller::originalCommand(StatusLineInstaller::originalFile())) {
                line.text += "; yours: " + printable(*original);
            }
        }
        lines_.push_back(std::move(line));
    }

    void zsh() {
        const path rc = ShellIntegration::zshrcURL(home_);
        Line line{"zsh", "off", printable(rc.native())};
        if (ShellIntegration::isInstalled(rc)) {
            line.status = "on";
            std::error_code error;
            if (!std::filesystem::exists(ShellIntegration::scriptURL(), error)) {
                line.text += "  the script it sources is missing: " +
                             printable(ShellIntegration::scriptURL().native());
                line.problem = true;
            } else if (::access(PelmoraPaths::installedCLIBinary().c_str(), X_OK) != 0) {
                line.text += "  the pelmora it calls is missing: " +
                             printable(PelmoraPaths::installedCLIBinary().native());
                line.problem = true;
            }
        }
        lines_.push_back(std::move(line));
    }

    void socket(const std::string& name, const path& file) {
        Line line{name, "noApp", printable(file.native())};
        std::error_code error;
        if (!std::filesystem::exists(std::filesystem::symlink_status(file, error))) {
            line.text += "  (no socket: the app is not running)";
            lines_.push_back(std::move(line));
            return;
        }
        const LocalSocket::Connection connection =
            LocalSocket::connect(file.native(), LocalSocket::deadlineAfter(1));
        if (!connection.error) {
            line.status = "answers";
        } else if (*connection.error == LocalSocket::ConnectError::refused) {
            line.text += "  (nothing answers: left by an app that stopped)";
        } else {
            const bool notOurs = *connection.error == LocalSocket::ConnectError::notOurs;
            line.status = notOurs ? "notOurs" : "unusable";
            line.text += notOurs ? "  (another user's: the hooks will not use it)"
                                 : "  (a socket cannot be made at this path)";
            line.problem = true;
        }
        lines_.push_back(std::move(line));
    }

    void supportFolder() {
        const path folder = PelmoraPaths::supportDirectory();
        Line line{"support", "ok", printable(folder.native())};
        struct stat info {};
        if (::stat(folder.c_str(), &info) != 0) {
            line.status = "missing";
            line.text += "  (install makes it)";
        } else if (info.st_uid != platform::userID()) {
            line.status = "notOurs";
            line.text += "  (owned by user " + std::to_string(info.st_uid) + ")";
            line.problem = true;
        } else if ((info.st_mode & 07777) != 0700) {
            char mode[8];
            std::snprintf(mode, sizeof mode, "%04o", info.st_mode & 07777);
            line.status = "open";
            line.text += std::string("  (mode ") + mode + ": others may read the sessions; " +
                         "'chmod 700' it)";
            line.problem = true;
        } else {
            line.text += "  (mode 0700, yours)";
        }
        lines_.push_back(std::move(line));
    }

    void print() const {
        const bool colour = wantsColour(STDOUT_FILENO);
        std::size_t nameWidth = 0;
        std::size_t statusWidth = 0;
        for (const Line& line : lines_) {
            nameWidth = std::max(nameWidth, line.name.size());
            statusWidth = std::max(statusWidth, line.status.size());
        }
        for (const Line& line : lines_) {
            const bool good = line.status == "installed" || line.status == "on" ||
                              line.status == "answers" || line.status == "ok";
            const Style style = line.problem ? Style{Colour::red, true}
                                : good       ? Style{Colour::green}
                                             : Style{Colour::normal, false, true};
            const std::string padding(statusWidth - line.status.size(), ' ');
            std::printf("%s  %s%s  %s\n", padRight(line.name, nameWidth).c_str(),
                        styled(line.status, style, colour).c_str(), padding.c_str(),
                        line.text.c_str());
            if (!line.advice.empty()) {
                std::printf("%s  %s\n", std::string(nameWidth + statusWidth + 2, ' ').c_str(),
                            line.advice.c_str());
            }
        }
    }

    path home_;
    path hook_ = PelmoraPaths::installedHookBinary();
    std::map<path, Verdict> verdicts_;
    std::vector<Line> lines_;
};

Run declareDoctor(CLI::App& app) {
    auto testHome = std::make_shared<std::string>();
    Install::addTestHome(app, *testHome);
    return [testHome] { return Doctor(Install::homeFolder(*testHome)).run(); };
}

} // namespace

const Command doctorCommand{
    "doctor", "check the hooks, the sockets and the support folder",
    "One line per agent whose folder is in your home (or whose file holds the\n"
    "hooks): the file; installed, notInstalled, stale, or unreadable with the line\n"
    "and column of the error; and whether the hook the entries run is there and\n"
    "runs. Then Claude Code's status line, the zsh block, whether an app answers\n"
    "on the approval and alert sockets, and the support folder (yours, mode 0700).\n"
    "Exit status 1 when something installed is stale or broken, else 0.",
    declareDoctor};

} // namespace pelmora::cli
