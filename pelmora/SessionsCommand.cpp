// `pelmora sessions`: what the notch would show, as a table in the terminal
// or as one JSON record per line for scripts.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "Commands.h"
#include "Terminal.h"
#include "hook/PelmoraPaths.h"
#include "hook/Source.h"
#include "session/SessionRecord.h"
#include "session/SessionStore.h"
#include "support/Text.h"
#include "support/Time.h"

namespace pelmora::cli {
namespace {

using SessionStore::LoadResult;

// Whole units, rounded down: "12s", "4m", "2h", "3d". A stateSince in the
// future (another machine's clock) reads as "0s".
std::string ageText(double seconds) {
    if (!(seconds > 0)) {
        seconds = 0;
    }
    // Keeps the conversion below defined for a record from the year 1 or 9999.
    seconds = std::min(seconds, 1e15);
    auto whole = [](double value) { return std::to_string(static_cast<std::int64_t>(value)); };
    if (seconds < 60) {
        return whole(seconds) + "s";
    }
    if (seconds < 3600) {
        return whole(seconds / 60) + "m";
    }
    if (seconds < 86400) {
        return whole(seconds / 3600) + "h";
    }
    return whole(seconds / 86400) + "d";
}

// The SGR code of each state, so what needs the user stands out.
std::string_view stateStyle(SessionState state) {
    switch (state) {
    case SessionState::working:
        return "32";
    case SessionState::awaiting:
        return "1;33";
    case SessionState::compacting:
        return "36";
    case SessionState::failed:
        return "1;31";
    case SessionState::idle:
    case SessionState::ended:
        return "2";
    case SessionState::done:
        return "";
    }
    return "";
}

std::string problemText(const LoadResult& result) {
    const std::string file = printable(result.url.string());
    if (result.kind == LoadResult::Kind::unsupported) {
        return "unsupported session file (another format version): " + file;
    }
    return "corrupt session file: " + file;
}

constexpr std::size_t columnCount = 6;
constexpr std::size_t titleColumn = 5;
constexpr std::string_view gap = "  ";

struct Row {
    std::array<std::string, columnCount> cells; // agent, project, state, since, tool, title
    std::string summary;
    SessionState state = SessionState::idle;
};

Row makeRow(const SessionRecord& record, double now) {
    Row row;
    row.cells = {
        std::string(displayName(record.source)),     printable(record.projectName()),
        std::string(rawValue(record.state)),         ageText(now - record.stateSince),
        record.tool ? printable(*record.tool) : "-", record.title ? printable(*record.title) : ""};
    row.summary = record.summary ? printable(*record.summary) : "";
    row.state = record.state;
    return row;
}

void dropTrailingSpaces(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
}

void printTable(const std::vector<SessionRecord>& records, double now, bool colour) {
    const std::array<std::string, columnCount> headings = {"AGENT", "PROJECT", "STATE",
                                                           "SINCE", "TOOL",    "TITLE"};
    std::vector<Row> rows;
    rows.reserve(records.size());
    for (const SessionRecord& record : records) {
        rows.push_back(makeRow(record, now));
    }
    std::array<std::size_t, columnCount> widths{};
    for (std::size_t column = 0; column < columnCount; ++column) {
        widths[column] = Text::characterCount(headings[column]);
        for (const Row& row : rows) {
            widths[column] = std::max(widths[column], Text::characterCount(row.cells[column]));
        }
    }
    std::size_t titleOffset = 0;
    for (std::size_t column = 0; column < titleColumn; ++column) {
        titleOffset += widths[column] + gap.size();
    }

    // Styles wrap the bare text and padding stays outside them, so the
    // columns line up whether or not colour is on.
    auto cell = [&](std::string_view text, std::size_t column, std::string_view style) {
        std::string out;
        const std::string padding = padRight("", widths[column] - Text::characterCount(text));
        if (column == 3) { // ages line up on their unit letter
            out = padding + styled(text, style, colour);
        } else {
            out = styled(text, style, colour) + padding;
        }
        return out + std::string(column + 1 < columnCount ? gap : "");
    };

    std::string heading;
    for (std::size_t column = 0; column < columnCount; ++column) {
        heading += cell(headings[column], column, "1");
    }
    dropTrailingSpaces(heading);
    std::printf("%s\n", heading.c_str());

    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < columnCount; ++column) {
            line += cell(row.cells[column], column, column == 2 ? stateStyle(row.state) : "");
        }
        dropTrailingSpaces(line);
        std::printf("%s\n", line.c_str());
        if (!row.summary.empty()) {
            std::printf("%s%s\n", std::string(titleOffset, ' ').c_str(),
                        styled(row.summary, "2", colour).c_str());
        }
    }
}

} // namespace

int runSessions(const Arguments& arguments) {
    bool json = false;
    for (std::string_view argument : arguments) {
        if (argument != "--json") {
            return usageError("sessions: unknown option '" + std::string(argument) + "'");
        }
        json = true;
    }

    std::vector<SessionRecord> records;
    std::vector<LoadResult> problems;
    for (LoadResult& result : SessionStore::loadAll(PelmoraPaths::sessionsDirectory())) {
        if (result.kind == LoadResult::Kind::ok && result.record) {
            records.push_back(std::move(*result.record));
        } else {
            problems.push_back(std::move(result));
        }
    }
    // Newest first; the key settles ties so the order never depends on the
    // order of the directory listing.
    std::sort(records.begin(), records.end(), [](const SessionRecord& a, const SessionRecord& b) {
        return a.updatedAt != b.updatedAt ? a.updatedAt > b.updatedAt : a.key() < b.key();
    });
    std::sort(problems.begin(), problems.end(),
              [](const LoadResult& a, const LoadResult& b) { return a.url < b.url; });

    if (json) {
        // Standard output stays pure JSON lines; damage goes to the person.
        for (const SessionRecord& record : records) {
            std::printf("%s\n", record.encode().c_str());
        }
        for (const LoadResult& problem : problems) {
            std::fprintf(stderr, "pelmora: %s\n", problemText(problem).c_str());
        }
        return 0;
    }

    if (records.empty()) {
        std::printf("No sessions.\n");
    } else {
        printTable(records, Time::now(), wantsColour(STDOUT_FILENO));
    }
    for (const LoadResult& problem : problems) {
        std::printf("%s\n", problemText(problem).c_str());
    }
    return 0;
}

} // namespace pelmora::cli
