#include "SessionRows.h"

#include <algorithm>
#include <cstdint>

#include "Terminal.h"
#include "hook/Source.h"

namespace pelmora::cli {

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

Style stateStyle(SessionState state) {
    switch (state) {
    case SessionState::working:
        return {Colour::green, false, false};
    case SessionState::awaiting:
        return {Colour::yellow, true, false};
    case SessionState::compacting:
        return {Colour::cyan, false, false};
    case SessionState::failed:
        return {Colour::red, true, false};
    case SessionState::idle:
    case SessionState::ended:
        return {Colour::normal, false, true};
    case SessionState::done:
        return {};
    }
    return {};
}

SessionRow sessionRow(const SessionRecord& record, double now) {
    SessionRow row;
    row.cells = {
        std::string(displayName(record.source)),     printable(record.projectName()),
        std::string(rawValue(record.state)),         ageText(now - record.stateSince),
        record.tool ? printable(*record.tool) : "-", record.title ? printable(*record.title) : ""};
    row.summary = record.summary ? printable(*record.summary) : "";
    row.state = record.state;
    return row;
}

} // namespace pelmora::cli
