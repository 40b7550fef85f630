#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hook/Source.h"
#include "integration/FileEdit.h"
#include "integration/HookTarget.h"

// What `pelmora install`, `uninstall` and `doctor` share: the home folder
// they work in, the agents named on the command line, and how a set of
// file changes is shown (a dry run's diffs) or carried out and reported.
namespace pelmora::cli::Install {

// The hidden option `--test-home DIR`: the home folder the agents'
// configuration is looked for in, instead of the one in the password
// database. The tests need it; it is left out of the help, and taken only
// together with PELMORA_HOME, so a user who stumbles on it cannot mix a
// fake home with the real support folder.
void addTestHome(CLI::App& app, std::string& folder);
// The folder `--test-home` named, or the user's home. Throws
// CLI::ValidationError for --test-home without PELMORA_HOME.
std::filesystem::path homeFolder(const std::string& testHome);

// The positional AGENT... of install and uninstall.
void addAgents(CLI::App& app, std::vector<std::string>& names, const std::string& help);
// The named agents, each once, in the order given. Throws
// CLI::ValidationError for a name that is not an agent's, listing them.
std::vector<Source> agentsNamed(const std::vector<std::string>& names);
// "claude, codex, ..., kimi"
std::string agentList();

// A line a person needs to read once the agent's hooks are in place, such
// as a setting to change in the agent itself; empty for most agents.
std::string_view advice(Source agent);
// Whether the agent's own state shows the advice followed (Codex's record
// of the hooks its user trusted); false while it is needed or unknowable.
bool adviceHeeded(Source agent, const HookTarget& target);

// Claude's settings take both the hooks and the status line, from two
// plans that each start from the file on disk: the status line's member
// goes onto the hooks' text, as if they had been applied one after the
// other, so one diff shows both and the file is written once. The status
// line's order of files is kept.
std::vector<FileEdit> together(FileEdit hooks, std::vector<FileEdit> statusLine);

// The program a managed command line runs (the word after the marker,
// unquoted as the shell would); none for a command of another shape.
std::optional<std::string> programOf(std::string_view command);

// A failure's message, naming its file once.
std::string describe(const std::exception& error);

// Works out the changes of one part of a run (an agent, the status line,
// the zsh block) and shows them: on a dry run the diff of each file that
// would change; otherwise it makes them (backed up in `run`) and prints
// "<label>: created|updated|deleted|unchanged <file>" per file, leaving
// out files that neither exist nor come to. A failure is printed as
// "pelmora: <label>: <message>" and gives false; a file that cannot be
// read or parsed leaves every file of the part as it was.
bool carryOut(std::string_view label, const std::function<std::vector<FileEdit>()>& plan,
              bool dryRun, BackupRun& run);

} // namespace pelmora::cli::Install
