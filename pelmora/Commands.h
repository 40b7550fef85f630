#pragma once

#include <functional>
#include <string_view>

#include "Options.h"

// The commands of `pelmora`, one file each. Every command declares in one
// place its name, a one-line summary, its help text and its options;
// main.cpp builds the command line from the table in CommandTable.def and
// generates `pelmora help`, `pelmora help CMD` and `pelmora CMD --help`.
//
// Adding a command, say `pelmora frob`:
//
// 1. Write pelmora/FrobCommand.cpp: its work first, then, at the end, the
//    declaration. The options live in a struct that the run function owns.
//
//        namespace {
//        struct FrobOptions {
//            bool all = false;
//            int count = 1;
//        };
//
//        int runFrob(const FrobOptions& options) { ...; return 0; }
//
//        Run declareFrob(CLI::App& app) {
//            auto options = std::make_shared<FrobOptions>();
//            app.add_flag("--all", options->all, "ended sessions too");
//            addWholeNumber(app, "--count", options->count, 1, "how many (default 1)");
//            return [options] { return runFrob(*options); };
//        }
//        } // namespace
//
//        const Command frobCommand{"frob", "one line for the overview",
//                                  "What it prints and its exit status; an example.",
//                                  declareFrob};
//
//    The summary is at most 56 characters, so the overview fits in 80
//    columns; the help is written as it prints (CLI11 does not wrap it).
//
// 2. Add the line PELMORA_COMMAND(frobCommand) to CommandTable.def, where
//    the overview should list it. The build finds the new file by itself.
//
// 3. Add its usage errors to the table in tests/pelmora-cli/CommandLineTest.cpp,
//    and test what it does, from outside, in tests/pelmora-cli/FrobCommandTest.cpp.
//
// What a command can rely on:
// - Parsing is done when the run function is called. An unknown option, a
//   missing or wrong value, a missing required option: main prints
//   "pelmora: frob: <what is wrong>" and how to get help, and exits 2.
//   Options.h reads whole numbers, seconds and choices strictly, with
//   messages that say what the value must be.
// - The run function returns the exit status: 0 done, 1 could not do it.
//   A pelmora::Error it throws prints "pelmora: <message>: <path>" and exits
//   1. A usage error found only while running (two options that do not go
//   together) is thrown as CLI::ValidationError("--a cannot go with --b"),
//   and exits 2 like the rest.
// - A command of commands (`pelmora shell start`) adds them in its declare
//   function with app.add_subcommand, and its run function asks which one
//   was given (start->parsed()). Help and usage errors name the whole path.
// - A command that runs another command line (`pelmora run make -j4`) calls
//   app.prefix_command(); its run function finds the words after its own
//   in app.remaining(), since `app` outlives the run function, or, when
//   they came after "--" (`pelmora run -- make`), in its parent's.
// - Results go to stdout, problems to stderr. Text from agents and files
//   goes through printable() (Terminal.h); sessions look the same in every
//   view through SessionRows.h and Style.h.
namespace pelmora::cli {

using Run = std::function<int()>;

struct Command {
    std::string_view name;    // `pelmora <name>`
    std::string_view summary; // one line, lower case, no full stop: the overview lists it
    std::string_view help;    // after the options in the command's help; may be empty
    // Declares the options on `app` (already named and described) and
    // returns the function that runs the command once they are parsed.
    Run (*declare)(CLI::App& app);
};

#define PELMORA_COMMAND(command) extern const Command command;
#include "CommandTable.def"
#undef PELMORA_COMMAND

} // namespace pelmora::cli
