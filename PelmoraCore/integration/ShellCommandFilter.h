#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hook/Source.h"
#include "session/SessionRecord.h"

// Which commands typed in the shell are worth showing on the island, and as
// what. The zsh script reports a command that has run for the threshold,
// its end when it ran that long, and a git command that failed however
// fast; this filter decides the rest from the command line alone.
//
// Shown: builds, tests, installs, deploys (naming the provider a deploy goes
// to), git commands, and any other command that runs long. Passed over: what
// the user is looking at anyway or that never ends by itself, that is
// editors, pagers and full-screen tools, shells, REPLs and database clients,
// remote sessions and terminal multiplexers, watchers and dev servers, and
// the coding agents (their own hooks report them). A git command that shows
// a pager or opens an editor (git log, git commit without -m) is shown only
// when it fails.
//
//     ShellCommandFilter::onStart("cd web && npm run build")
//         // {build, Kind::build, "Build"}
//     ShellCommandFilter::onStart("vercel --prod")
//         // {build, Kind::deploy, "Deploy", "Vercel"}
//     ShellCommandFilter::onEnd("git push", 1)->state   // failed
namespace pelmora::ShellCommandFilter {

enum class Kind { git, deploy, test, build, install, command };

std::string_view rawValue(Kind kind);

struct Verdict {
    Source source = Source::build; // git for git commands, build for the rest
    Kind kind = Kind::command;
    // The word the island shows: "Deploy", "Test", "Build", "Install",
    // "Run", or for git the subcommand ("Push", "Rebase", ...).
    std::string tool;
    // Where a deploy goes: "Vercel", "Netlify", "Fly.io", "Kubernetes", ...
    std::optional<std::string> provider;

    bool operator==(const Verdict&) const = default;
};

// A command that is still running after the threshold: what to show, or
// none to pass it over.
std::optional<Verdict> onStart(std::string_view commandLine);

struct Ending {
    Verdict verdict;
    // done, failed, or ended for a command that needs nothing shown: one
    // the user interrupted (exit 130, 131, 137, 143), or a query that
    // answered "no" (git diff --quiet, grep without a match: exit 1).
    SessionState state = SessionState::done;

    bool operator==(const Ending&) const = default;
};

// A command that finished with `exitStatus`: what its end is, or none to
// pass it over.
std::optional<Ending> onEnd(std::string_view commandLine, int exitStatus);

// The simple commands of a command line, each as its words: the line split
// at ; & && || | and parentheses, quotes and escapes removed, redirections
// and comments dropped. Exposed for the tests and the fuzz target.
std::vector<std::vector<std::string>> simpleCommands(std::string_view commandLine);

} // namespace pelmora::ShellCommandFilter
