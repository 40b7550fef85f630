#pragma once

#include <string>
#include <string_view>

// How a terminal view marks text, as data, so every view marks the same
// thing the same way and renders it its own way: views that print lines
// (the sessions table, a status-bar line) write SGR escape sequences with
// `styled`; a curses view turns the same value into attributes (A_BOLD,
// A_DIM) and a colour pair whose foreground is `colour`.
namespace pelmora::cli {

// The eight colours every terminal has, numbered as both SGR (30 + n) and
// curses (COLOR_RED is 1) number them. `normal` is the terminal's own
// foreground, which curses spells -1 after use_default_colors().
enum class Colour { normal = -1, black, red, green, yellow, blue, magenta, cyan, white };

struct Style {
    Colour colour = Colour::normal;
    bool bold = false;
    bool dim = false;
    bool operator==(const Style&) const = default;
};

// The SGR parameters of `style`: "1;33" for bold yellow, "" for a plain style.
std::string sgr(Style style);

// `text` between the style's SGR sequence and a reset; unchanged when
// `colour` is off (see wantsColour) or the style is plain.
std::string styled(std::string_view text, Style style, bool colour);

} // namespace pelmora::cli
