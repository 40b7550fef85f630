// `pelmora alert`: asks the island for a short alert, from a script or a
// build, with arguments or with one pelmora://alert link.

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Commands.h"
#include "Help.h"
#include "alert/AlertClient.h"
#include "alert/AlertValidation.h"
#include "hook/PelmoraPaths.h"
#include "support/Text.h"

namespace pelmora::cli {
namespace {

// Long enough for an island that is busy redrawing, short enough for a
// build script that must not hang on it.
constexpr double answerWait = 10;

bool isLink(std::string_view word) {
    return Text::lowercased(word.substr(0, 10)) == "pelmora://";
}

int runAlert(const std::vector<std::string>& words) {
    const std::vector<std::string_view> arguments(words.begin(), words.end());
    const AlertValidation::Result checked =
        arguments.size() == 1 && isLink(arguments.front())
            ? AlertValidation::fromLink(arguments.front(), PelmoraPaths::home())
            : AlertValidation::fromArguments(arguments, PelmoraPaths::home());
    const AlertOutcome outcome =
        std::holds_alternative<AlertRequest>(checked)
            ? AlertClient::send(std::get<AlertRequest>(checked),
                                PelmoraPaths::alertSocket().string(), answerWait)
            : std::get<AlertRejection>(checked).outcome();
    if (!outcome.message().empty()) {
        std::fprintf(stderr, "pelmora: %s\n", outcome.message().c_str());
    }
    return outcome.exitCode();
}

// The words after "alert" reach the validator as they were typed, so that
// its own messages ("unknown option --x") are the ones people see.
Run declareAlert(CLI::App& app) {
    app.prefix_command();
    auto formatter = helpFormatter();
    formatter->label("prefix words", "TITLE [BODY] [OPTION]...");
    app.formatter(formatter);
    return [&app] {
        std::vector<std::string> words = app.remaining();
        // CLI11 hands the words after a leading "--" to pelmora itself and
        // drops the "--", which to the validator still ends the options.
        if (words.empty() && app.get_parent() != nullptr &&
            !app.get_parent()->remaining().empty()) {
            words = app.get_parent()->remaining();
            words.insert(words.begin(), "--");
        }
        return runAlert(words);
    };
}

} // namespace

const Command alertCommand{
    "alert", "show a short alert on the island",
    "OPTION is --level info|action|fail, --open PATH, --id ID or --ttl SECONDS. One\n"
    "link can stand for them all: pelmora alert 'pelmora://alert?title=...&level=...'\n"
    "\n"
    "The title has 1 to 16 characters, the body up to 80. An alert shows for --ttl\n"
    "seconds (0 to 86400; 0 until dismissed; by default 4 for info, 30 for action,\n"
    "until dismissed for fail); one with the --id of an alert on show replaces it.\n"
    "--open names a file under your home folder or /tmp.\n"
    "\n"
    "Exit status: 0 shown, 1 the island is not running, 2 alerts are switched off,\n"
    "3 refused (the message says what to change), 4 failed.\n"
    "\n"
    "example: pelmora alert 'Deploy done' 'v1.4 is live' --level action --ttl 60",
    declareAlert};

} // namespace pelmora::cli
