// `pelmora sessions`: what the notch would show, as a table in the terminal
// or as one JSON record per line for scripts.

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "Commands.h"
#include "SessionRows.h"
#include "Terminal.h"
#include "hook/PelmoraPaths.h"
#include "session/SessionRecord.h"
#include "session/SessionStore.h"
#include "support/Text.h"
#include "support/Time.h"

namespace pelmora::cli {
namespace {

using SessionStore::LoadResult;

// Says why the file was skipped, so a person can mend or remove it.
std::string problemText(const LoadResult& result) {
    const std::string file = printable(result.path.string());
    const std::string why = result.reason.empty() ? "" : " (" + printable(result.reason) + ")";
    if (result.kind == LoadResult::Kind::unsupported) {
        return "unsupported session file: " + file + why;
    }
    return "skipped a damaged session file: " + file + why;
}

void dropTrailingSpaces(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
}

void printTable(const std::vector<SessionRecord>& records, double now, bool colour) {
    constexpr std::string_view gap = "  ";
    std::vector<SessionRow> rows;
    rows.reserve(records.size());
    for (const SessionRecord& record : records) {
        rows.push_back(sessionRow(record, now));
    }
    std::array<std::size_t, columnCount> widths{};
    for (std::size_t column = 0; column < columnCount; ++column) {
        widths[column] = Text::characterCount(columns[column].heading);
        for (const SessionRow& row : rows) {
            widths[column] = std::max(widths[column], Text::characterCount(row.cells[column]));
        }
    }
    const std::size_t titleColumn = static_cast<std::size_t>(Column::title);
    std::size_t titleOffset = 0;
    for (std::size_t column = 0; column < titleColumn; ++column) {
        titleOffset += widths[column] + gap.size();
    }

    // Styles wrap the bare text and padding stays outside them, so the
    // columns line up whether or not colour is on.
    auto cell = [&](std::string_view text, std::size_t column, Style style) {
        const std::string padding = padRight("", widths[column] - Text::characterCount(text));
        std::string out = columns[column].alignsRight ? padding + styled(text, style, colour)
                                                      : styled(text, style, colour) + padding;
        return out + std::string(column + 1 < columnCount ? gap : "");
    };

    std::string heading;
    for (std::size_t column = 0; column < columnCount; ++column) {
        heading += cell(columns[column].heading, column, headingStyle);
    }
    dropTrailingSpaces(heading);
    std::printf("%s\n", heading.c_str());

    const std::size_t stateColumn = static_cast<std::size_t>(Column::state);
    for (const SessionRow& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < columnCount; ++column) {
            line += cell(row.cells[column], column,
                         column == stateColumn ? stateStyle(row.state) : Style{});
        }
        dropTrailingSpaces(line);
        std::printf("%s\n", line.c_str());
        if (!row.summary.empty()) {
            std::printf("%s%s\n", std::string(titleOffset, ' ').c_str(),
                        styled(row.summary, summaryStyle, colour).c_str());
        }
    }
}

int runSessions(bool json) {
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
              [](const LoadResult& a, const LoadResult& b) { return a.path < b.path; });

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

Run declareSessions(CLI::App& app) {
    auto json = std::make_shared<bool>(false);
    app.add_flag("--json", *json, "one compact JSON record per line, for scripts");
    return [json] { return runSessions(*json); };
}

} // namespace

const Command sessionsCommand{
    "sessions", "the agent sessions the hooks have recorded, newest first",
    "The table shows each session's agent, project, state, time in that state, last tool\n"
    "and title, with the latest summary below. Damaged session files are listed after\n"
    "it (on stderr with --json, so that stdout stays JSON lines).",
    declareSessions};

} // namespace pelmora::cli
