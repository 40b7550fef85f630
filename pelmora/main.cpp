// pelmora: the companion command. It shows the sessions that the hooks have
// recorded and can stand in for the notch app, so the whole system can be
// used and tested from a terminal. This file builds the command line from
// the command table and dispatches; each command lives in its own file.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Help.h"
#include "platform/Error.h"

namespace pelmora::cli {
namespace {

const Command* const commandTable[] = {
#define PELMORA_COMMAND(command) &command,
#include "CommandTable.def"
#undef PELMORA_COMMAND
};

constexpr const char* overview =
    "The terminal side of the Pelmora notch: what the coding agents are doing, and\n"
    "their requests and questions answered in place of the notch app.";

constexpr const char* overviewFooter = "Run 'pelmora help <command>' for a command's options.\n"
                                       "PELMORA_HOME chooses the support directory\n"
                                       "(default: ~/Library/Application Support/Pelmora).";

// CLI::App::help() describes the command chosen on the command line, if
// any; this is the overview whatever was chosen.
std::string overviewText(const CLI::App& app) {
    return app.get_formatter()->make_help(&app, "pelmora", CLI::AppFormatMode::Normal);
}

int usageError(const std::string& command, const std::string& message) {
    const std::string where = command.empty() ? "" : command + ": ";
    const std::string helpCommand = command.empty() ? "pelmora help" : "pelmora help " + command;
    std::fprintf(stderr, "pelmora: %s%s\nRun '%s' for usage.\n", where.c_str(), message.c_str(),
                 helpCommand.c_str());
    return 2;
}

// CLI11 says "--answer: 1 required TEXT missing"; people say "needs a value".
std::string problemText(const CLI::ParseError& error) {
    std::string message = error.what();
    const std::size_t colon = message.find(": ");
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr &&
        colon != std::string::npos && message.ends_with(" missing")) {
        return message.substr(0, colon) + " needs a value";
    }
    return message;
}

// The commands the command line chose, outermost first: none for
// `pelmora --version`, {shell, start} for `pelmora shell start`.
std::vector<CLI::App*> chosenCommands(const CLI::App& app) {
    std::vector<CLI::App*> chosen;
    for (std::vector<CLI::App*> parsed = app.get_subcommands(); !parsed.empty();
         parsed = parsed.front()->get_subcommands()) {
        chosen.push_back(parsed.front());
    }
    return chosen;
}

// "shell start" for the first `count` of `chosen`.
std::string commandName(const std::vector<CLI::App*>& chosen, std::size_t count) {
    std::string name;
    for (std::size_t i = 0; i < count && i < chosen.size(); ++i) {
        name += (i == 0 ? "" : " ") + chosen[i]->get_name();
    }
    return name;
}

// `pelmora help shell start`: the help of the command that `words` name.
int printHelp(const CLI::App& app, const std::vector<std::string>& words) {
    const CLI::App* command = &app;
    std::string parents = "pelmora";
    for (const std::string& word : words) {
        if (command != &app) {
            parents += " " + command->get_name();
        }
        const std::vector<const CLI::App*> children = command->get_subcommands({});
        const auto found =
            std::find_if(children.begin(), children.end(),
                         [&](const CLI::App* child) { return child->get_name() == word; });
        if (found == children.end()) {
            std::string asked;
            for (const std::string& each : words) {
                asked += (asked.empty() ? "" : " ") + each;
            }
            return usageError("", "unknown command '" + asked + "'");
        }
        command = *found;
    }
    const std::string text = command == &app ? overviewText(app) : command->help(parents);
    std::fputs(text.c_str(), stdout);
    return 0;
}

struct Stray {
    std::string command; // "" for pelmora itself
    std::string message;
};

// Every command allows extras, so that a stray word is named here as what
// it most likely is, and where, rather than listed by CLI11. A prefix
// command keeps the words after its own for itself; those after a "--"
// CLI11 2.1 leaves with pelmora itself, for the command to take from there.
std::optional<Stray> strayWord(const CLI::App& app) {
    const std::vector<CLI::App*> chosen = chosenCommands(app);
    const bool afterPrefixMark = !chosen.empty() && chosen.back()->get_prefix_command() &&
                                 chosen.back()->remaining().empty();
    for (std::size_t level = afterPrefixMark ? 1 : 0; level <= chosen.size(); ++level) {
        const CLI::App& command = level == 0 ? app : *chosen[level - 1];
        const std::vector<std::string> stray = command.remaining();
        if (stray.empty() || command.get_prefix_command()) {
            continue;
        }
        const std::string& word = stray.front();
        const std::string what = word.size() > 1 && word.front() == '-' ? "unknown option"
                                 : command.get_subcommands({}).empty()  ? "unexpected argument"
                                                                        : "unknown command";
        return Stray{commandName(chosen, level), what + " '" + word + "'"};
    }
    return std::nullopt;
}

// A command's own commands are made after the inherited defaults were
// copied to its help flag, which CLI11 makes first.
void putHelpFlagsInOptions(CLI::App& app) {
    app.get_help_ptr()->group("options");
    for (CLI::App* sub : app.get_subcommands({})) {
        putHelpFlagsInOptions(*sub);
    }
}

// The library's messages mostly name their file already; the path is added
// only where the message would leave the reader guessing which file.
int fail(const std::exception& error) {
    const auto* withPath = dynamic_cast<const pelmora::Error*>(&error);
    if (withPath != nullptr && !withPath->path().empty() &&
        std::string_view(error.what()).find(withPath->path().native()) == std::string_view::npos) {
        std::fprintf(stderr, "pelmora: %s: %s\n", error.what(), withPath->path().c_str());
    } else {
        std::fprintf(stderr, "pelmora: %s\n", error.what());
    }
    return 1;
}

int dispatch(int argc, char** argv) {
    CLI::App app{overview, "pelmora"};
    app.formatter(helpFormatter());
    // Set before the commands are added, which inherit them.
    app.option_defaults()->group("options");
    app.set_help_flag("-h,--help", "this help");
    app.allow_extras();
    app.group("commands");
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", "pelmora " PELMORA_VERSION, "the version of pelmora");

    std::vector<std::pair<CLI::App*, Run>> commands;
    for (const Command* command : commandTable) {
        CLI::App* sub =
            app.add_subcommand(std::string(command->name), std::string(command->summary));
        sub->footer(std::string(command->help));
        commands.emplace_back(sub, command->declare(*sub));
    }
    std::vector<std::string> asked;
    CLI::App* help = app.add_subcommand("help", "the overview, or a command's options and help");
    help->add_option("command", asked, "the command to explain")->type_name("");
    app.footer(overviewFooter);
    putHelpFlagsInOptions(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return 0;
    } catch (const CLI::ParseError& error) {
        // A mistyped word explains the rest ("shell strat": no command given).
        if (auto stray = strayWord(app)) {
            return usageError(stray->command, stray->message);
        }
        const std::vector<CLI::App*> parsed = chosenCommands(app);
        return usageError(commandName(parsed, parsed.size()), problemText(error));
    }
    if (auto stray = strayWord(app)) {
        return usageError(stray->command, stray->message);
    }

    const std::vector<CLI::App*> chosen = chosenCommands(app);
    if (chosen.empty() || chosen.front() == help) {
        return printHelp(app, asked);
    }
    for (const auto& [command, run] : commands) {
        if (command != chosen.front()) {
            continue;
        }
        try {
            return run();
        } catch (const CLI::ParseError& error) {
            return usageError(commandName(chosen, chosen.size()), problemText(error));
        } catch (const std::exception& error) {
            return fail(error);
        }
    }
    return 1;
}

} // namespace
} // namespace pelmora::cli

int main(int argc, char** argv) {
    return pelmora::cli::dispatch(argc, argv);
}
