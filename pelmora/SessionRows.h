#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "Style.h"
#include "session/SessionRecord.h"

// A session as every terminal view shows it (the sessions table, a live
// island, a status-bar line): the same cells, ages and state styles, so a
// session reads the same wherever it appears.
namespace pelmora::cli {

// Whole units, rounded down: "12s", "4m", "2h", "3d". A time in the future
// (a record written under another machine's clock) reads "0s".
std::string ageText(double seconds);

// What needs the user stands out most (awaiting, failed), what is running
// less, what is over least.
Style stateStyle(SessionState state);
inline constexpr Style headingStyle{Colour::normal, true, false};
inline constexpr Style summaryStyle{Colour::normal, false, true};

enum class Column { agent, project, state, since, tool, title };
inline constexpr std::size_t columnCount = 6;

struct ColumnInfo {
    std::string_view heading;
    bool alignsRight; // ages line up on their unit letter
};
// Indexed by Column.
inline constexpr std::array<ColumnInfo, columnCount> columns{{{"AGENT", false},
                                                              {"PROJECT", false},
                                                              {"STATE", false},
                                                              {"SINCE", true},
                                                              {"TOOL", false},
                                                              {"TITLE", false}}};

// Every cell is safe to print (see printable): agent text cannot move the
// cursor or recolour the terminal.
struct SessionRow {
    std::array<std::string, columnCount> cells; // "-" for no tool, "" for no title
    std::string summary;                        // "" when the record has none
    SessionState state = SessionState::idle;

    const std::string& operator[](Column column) const {
        return cells[static_cast<std::size_t>(column)];
    }
};

SessionRow sessionRow(const SessionRecord& record, double now);

} // namespace pelmora::cli
