#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "IslandAnswers.h"
#include "IslandModel.h"
#include "Style.h"

// How the island reads in a terminal: the screen of `pelmora watch`, built
// as plain lines of styled text and then painted with curses, and the one
// line of `pelmora line`. Both share the marks and styles of each state.
//
//     const IslandLayout shown = island.layout(now);
//     paint(islandScreen({shown, island, waiting.front(), waiting.size(), now}, COLS, LINES),
//           colour);
namespace pelmora::cli {

// The mark of a state: Unicode shapes that every terminal font has and
// that take one column, or ASCII where the locale is not UTF-8.
std::string_view stateMark(DisplayState state, bool gone, bool unicode);

// Columns a text takes in a terminal (wide characters take two).
std::size_t columnsOf(std::string_view text);
// At most `limit` columns of `text`, ending in an ellipsis when cut.
std::string fitColumns(std::string_view text, std::size_t limit, bool unicode);

struct Segment {
    std::string text; // printable (see printable), one line
    Style style;
};
using ScreenLine = std::vector<Segment>;

struct IslandScene {
    const IslandLayout& layout;
    const IslandModel& island;
    const PendingApproval* request = nullptr; // the one the keys answer now
    std::size_t requestsWaiting = 0;          // that one included
    double now = 0;
    bool unicode = true;
};

// The screen, at most `height` lines of at most `width` columns: a header
// with the counts, the primary in full, the bubbles and the overflow count,
// the waiting request with its keys, and the keys of the island on the last
// line. When rows run short, detail goes first and the request last.
std::vector<ScreenLine> islandScreen(const IslandScene& scene, int width, int height);

// Draws the lines on the curses screen and sends only what changed, in one
// write: nothing is cleared first, so nothing flickers.
void paint(const std::vector<ScreenLine>& lines, bool colour);
// Colour pairs for the eight colours on the terminal's own background;
// call once after start_color().
void startColours();

enum class LineColour { none, ansi, tmux };

// `pelmora line`: "◆1 ✗1 ●2 Claude Code · web-shop" (waiting, failed and
// working counts when not zero, then the primary's agent and project, or
// "Alert · <title>"); empty when nothing is shown. ASCII: "?1 !1 *2 Claude
// Code - web-shop". tmux colour is its own markup ("#[fg=yellow,bold]"),
// with any "#" in the text doubled so a project name cannot run a command.
std::string islandLine(const IslandLayout& layout, const IslandModel& island, bool unicode,
                       LineColour colour);

} // namespace pelmora::cli
