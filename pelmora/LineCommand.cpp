// `pelmora line`: the island in one short line, for a tmux status bar or a
// shell prompt, which run it every second or so.

#include <cstdio>
#include <langinfo.h>
#include <locale.h>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>

#include "Commands.h"
#include "IslandView.h"
#include "Terminal.h"
#include "hook/PelmoraPaths.h"
#include "support/Time.h"

namespace pelmora::cli {
namespace {

enum class ColourChoice { automatic, never, ansi, tmux };

std::string_view rawValue(ColourChoice choice) {
    switch (choice) {
    case ColourChoice::automatic:
        return "auto";
    case ColourChoice::never:
        return "never";
    case ColourChoice::ansi:
        return "ansi";
    case ColourChoice::tmux:
        return "tmux";
    }
    return "";
}

struct LineOptions {
    bool ascii = false;
    ColourChoice colour = ColourChoice::automatic;
    std::string idle;
};

// A process that lives for one line reads the folder cold. No cache is
// kept between runs: it could be trusted only after a stat of every file,
// so it would save only the reads, and a cold read of 500 sessions is
// already cheap enough to run every second (bench/IslandBench).
int runLine(const LineOptions& options) {
    IslandModel island(PelmoraPaths::sessionsDirectory());
    island.rescan();
    const double now = Time::now();
    island.checkProcesses(now);
    const IslandLayout shown = island.layout(now);

    LineColour colour = LineColour::none;
    if (options.colour == ColourChoice::ansi ||
        (options.colour == ColourChoice::automatic && wantsColour(STDOUT_FILENO))) {
        colour = LineColour::ansi;
    } else if (options.colour == ColourChoice::tmux) {
        colour = LineColour::tmux;
    }
    ::setlocale(LC_CTYPE, "");
    const bool unicode = !options.ascii && std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
    const std::string line = islandLine(shown, island, unicode, colour);
    const std::string& out = line.empty() ? options.idle : line;
    if (!out.empty()) {
        std::printf("%s\n", out.c_str());
    }
    return 0;
}

Run declareLine(CLI::App& app) {
    auto options = std::make_shared<LineOptions>();
    app.add_flag("--ascii", options->ascii, "ASCII marks (also where the locale is not UTF-8)");
    addChoice(
        app, "--colour", options->colour,
        {ColourChoice::automatic, ColourChoice::never, ColourChoice::ansi, ColourChoice::tmux},
        "escapes, tmux markup, or none (default: escapes on a terminal)");
    app.add_option("--idle", options->idle, "the text when nothing is shown (default: nothing)")
        ->take_last();
    return [options] { return runLine(*options); };
}

} // namespace

const Command lineCommand{
    "line", "the island in one line, for status bars and prompts",
    "Counts the sessions waiting for you (◆), failed (✗) and working (●), then\n"
    "names the session in front:\n"
    "\n"
    "    ◆1 ✗1 ●2 Claude Code · web-shop\n"
    "\n"
    "--ascii writes ?1 !1 *2 Claude Code - web-shop. Nothing is printed when no\n"
    "session is shown. In tmux: set -g status-right '#(pelmora line --colour tmux)'\n"
    "with status-interval 1.",
    declareLine};

} // namespace pelmora::cli
