// `pelmora shell start|end`: the receiving end of the zsh integration. The
// script runs it in the background, with its output thrown away, for a
// command that has run a while and when such a command (or a git command)
// ends; it turns that into an activity session for the island. It prints
// nothing and leaves no trace when the command is not worth showing.

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "Help.h"
#include "hook/HostInfo.h"
#include "hook/PelmoraPaths.h"
#include "integration/ShellActivity.h"
#include "session/SessionStore.h"
#include "support/Time.h"

namespace pelmora::cli {
namespace {

constexpr const char* startForm = "--pid PID --start SECONDS --cwd DIR -- COMMAND...";
constexpr const char* endForm = "--pid PID --start SECONDS --exit STATUS --cwd DIR -- COMMAND...";

// The script reports the end of a command that succeeded only once it has
// run its threshold, a whole second at least (its clock counts whole
// seconds, so ours, read later, never counts fewer). A quicker success
// comes from some other caller and is not worth a session, unless its
// start was recorded and must be closed.
bool tooQuickToShow(const ShellActivity::Event& event, const std::filesystem::path& sessions,
                    double now) {
    if (!event.finished || event.exitStatus != 0 ||
        now - static_cast<double>(event.startTime) >= 1) {
        return false;
    }
    const std::string id = ShellActivity::sessionID(event);
    std::error_code error;
    return !std::filesystem::exists(SessionStore::fileURL(Source::build, id, sessions), error) &&
           !std::filesystem::exists(SessionStore::fileURL(Source::git, id, sessions), error);
}

int runShell(const CLI::App& start, const CLI::App& end) {
    const bool finished = end.parsed();
    // The words are left unparsed here: the script's command line, after
    // "--", may hold anything, options of this program included.
    const std::vector<std::string> words = finished ? end.remaining() : start.remaining();
    const std::vector<std::string_view> arguments(words.begin(), words.end());
    const std::optional<ShellActivity::Event> event = ShellActivity::parse(finished, arguments);
    if (!event) {
        throw CLI::ValidationError(std::string("expects ") + (finished ? endForm : startForm));
    }
    const std::filesystem::path sessions = PelmoraPaths::sessionsDirectory();
    const double now = Time::now();
    if (!tooQuickToShow(*event, sessions, now)) {
        ShellActivity::record(*event, sessions, now, HostInfo::processEnvironment());
    }
    return 0;
}

Run declareShell(CLI::App& app) {
    CLI::App* start = app.add_subcommand("start", "a command has been running a while");
    CLI::App* end = app.add_subcommand("end", "a command has finished");
    for (CLI::App* sub : {start, end}) {
        sub->prefix_command();
        auto formatter = helpFormatter();
        formatter->label("prefix words", sub == start ? startForm : endForm);
        sub->formatter(formatter);
    }
    app.require_subcommand(1);
    return [start, end] { return runShell(*start, *end); };
}

} // namespace

const Command shellCommand{
    "shell", "what the zsh integration reports (run by its script)",
    "Run by the script that 'pelmora install --zsh' sources from your .zshrc:\n"
    "  pelmora shell start --pid PID --start SECONDS --cwd DIR -- COMMAND...\n"
    "  pelmora shell end --pid PID --start SECONDS --exit STATUS --cwd DIR -- ...\n"
    "Builds, tests, deploys and git commands become sessions that the island shows\n"
    "running, then done or failed; others are passed over. Prints nothing.",
    declareShell};

} // namespace pelmora::cli
