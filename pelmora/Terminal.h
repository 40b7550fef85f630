#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Output for a person at a terminal.
namespace pelmora::cli {

// Text that came from an agent or a file, safe to print: a control character
// (one that could move the cursor or recolour the terminal) and any byte
// that is not UTF-8 become U+FFFD.
std::string printable(std::string_view text);

// Colours only for a terminal, and never when NO_COLOR is set or the
// terminal is "dumb".
bool wantsColour(int fd);

// Pads with spaces to `width` characters (grapheme clusters).
std::string padRight(std::string_view text, std::size_t width);
std::string padLeft(std::string_view text, std::size_t width);

} // namespace pelmora::cli
