// pelmora: the companion command. It shows the sessions that the hooks have
// recorded and can stand in for the notch app, so the whole system can be
// used and tested from a terminal. This file builds the command line from
// the command table and dispatches; each command lives in its own file.

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
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

// Every app allows extras so that a stray word is named here, as what it
// most likely is, rather than listed by CLI11.
std::optional<std::string> strayWord(const CLI::App& app, bool isRoot) {
    const std::vector<std::string> stray = app.remaining();
    if (stray.empty()) {
        return std::nullopt;
    }
    const std::string& word = stray.front();
    if (word.size() > 1 && word.front() == '-') {
        return "unknown option '" + word + "'";
    }
    return (isRoot ? "unknown command '" : "unexpected argument '") + word + "'";
}

int fail(const std::exception& error) {
    const auto* withPath = dynamic_cast<const pelmora::Error*>(&error);
    if (withPath != nullptr && !withPath->path().empty()) {
        std::fprintf(stderr, "pelmora: %s: %s\n", error.what(), withPath->path().c_str());
    } else {
        std::fprintf(stderr, "pelmora: %s\n", error.what());
    }
    return 1;
}

// CLI::App::help() describes the command chosen on the command line, if any;
// this is the overview whatever was chosen.
void printOverview(const CLI::App& app) {
    std::fputs(app.get_formatter()->make_help(&app, "pelmora", CLI::AppFormatMode::Normal).c_str(),
               stdout);
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
        sub->get_help_ptr()->group("options");
        commands.emplace_back(sub, command->declare(*sub));
    }
    std::string asked;
    CLI::App* help = app.add_subcommand("help", "the overview, or a command's options and help");
    help->add_option("command", asked, "the command to explain")->type_name("");
    help->get_help_ptr()->group("options");
    app.footer(overviewFooter);

    CLI::App* chosen = nullptr;
    try {
        app.parse(argc, argv);
        const std::vector<CLI::App*> parsed = app.get_subcommands();
        chosen = parsed.empty() ? nullptr : parsed.front();
        if (std::optional<std::string> stray = strayWord(app, true)) {
            return usageError("", *stray);
        }
        if (chosen != nullptr) {
            if (std::optional<std::string> stray = strayWord(*chosen, false)) {
                return usageError(chosen->get_name(), *stray);
            }
        }
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return 0;
    } catch (const CLI::ParseError& error) {
        const std::vector<CLI::App*> parsed = app.get_subcommands();
        return usageError(parsed.empty() ? "" : parsed.front()->get_name(), problemText(error));
    }

    if (chosen == nullptr || (chosen == help && asked.empty())) {
        printOverview(app);
        return 0;
    }
    if (chosen == help) {
        for (const CLI::App* sub : app.get_subcommands({})) {
            if (sub->get_name() == asked) {
                std::fputs(sub->help("pelmora").c_str(), stdout);
                return 0;
            }
        }
        return usageError("", "unknown command '" + asked + "'");
    }

    for (const auto& [sub, run] : commands) {
        if (sub != chosen) {
            continue;
        }
        try {
            return run();
        } catch (const CLI::ParseError& error) {
            return usageError(sub->get_name(), problemText(error));
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
