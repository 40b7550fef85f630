#include "IslandView.h"

#include <algorithm>
#include <curses.h>
#include <wchar.h>

#include "SessionRows.h"
#include "Terminal.h"
#include "hook/Source.h"
#include "session/ToolWord.h"
#include "support/Text.h"

namespace pelmora::cli {
namespace {

// Text from pieces, in one allocation. (A literal plus a temporary string
// also trips a false -Wrestrict of GCC 12 at -O3.)
template <class... Pieces> std::string joined(const Pieces&... pieces) {
    std::string out;
    out.reserve((std::string_view(pieces).size() + ...));
    (out.append(std::string_view(pieces)), ...);
    return out;
}

constexpr Style plain{};
constexpr Style bold{Colour::normal, true, false};
constexpr Style dim{Colour::normal, false, true};
constexpr Style goneStyle{Colour::magenta, false, false};

// An alert's level, which the scheduler reads from lastEvent.
enum class AlertKind { info, action, fail };

AlertKind alertKind(const SessionRecord& record) {
    if (record.lastEvent == "fail") {
        return AlertKind::fail;
    }
    return record.lastEvent == "action" ? AlertKind::action : AlertKind::info;
}

std::string alertWord(AlertKind kind) {
    switch (kind) {
    case AlertKind::fail:
        return "fail";
    case AlertKind::action:
        return "action";
    case AlertKind::info:
        return "info";
    }
    return "";
}

Style alertStyle(AlertKind kind) {
    switch (kind) {
    case AlertKind::fail:
        return {Colour::red, true, false};
    case AlertKind::action:
        return {Colour::yellow, true, false};
    case AlertKind::info:
        return {Colour::blue, false, false};
    }
    return {};
}

std::string_view alertMark(AlertKind kind, bool unicode) {
    switch (kind) {
    case AlertKind::fail:
        return unicode ? "✗" : "!";
    case AlertKind::action:
        return unicode ? "▸" : ">";
    case AlertKind::info:
        return unicode ? "◇" : "i";
    }
    return "";
}

Style displayStyle(const IslandItem& item, bool gone) {
    if (gone) {
        return goneStyle;
    }
    switch (item.display) {
    case DisplayState::awaiting:
        return {Colour::yellow, !item.quiet, false};
    case DisplayState::failed:
        return stateStyle(SessionState::failed);
    case DisplayState::working:
        return stateStyle(SessionState::working);
    case DisplayState::compacting:
        return stateStyle(SessionState::compacting);
    case DisplayState::stale:
        return dim;
    case DisplayState::done:
        return stateStyle(SessionState::done);
    }
    return {};
}

// The mark and its style, the name and the detail of an item: an agent's
// session reads "Claude Code · web-shop", an alert "Alert · <title>".
struct Face {
    std::string_view mark;
    Style style;
    std::string name;
    std::string place;
};

Face faceOf(const IslandItem& item, const IslandModel& island, bool unicode) {
    const SessionRecord& record = item.record;
    if (IslandModel::isAlert(record)) {
        const AlertKind kind = alertKind(record);
        return {alertMark(kind, unicode), alertStyle(kind), "Alert",
                printable(record.title.value_or(""))};
    }
    const bool gone = island.isGone(record);
    return {stateMark(item.display, gone, unicode), displayStyle(item, gone),
            std::string(displayName(record.source)), printable(record.projectName())};
}

std::string_view dot(bool unicode) {
    return unicode ? " · " : " - ";
}

// Cuts a line at `width` columns, the last segment that fits ending in an
// ellipsis.
void clip(ScreenLine& line, std::size_t width, bool unicode) {
    std::size_t used = 0;
    for (auto segment = line.begin(); segment != line.end(); ++segment) {
        const std::size_t columns = columnsOf(segment->text);
        if (used + columns > width) {
            segment->text = fitColumns(segment->text, width - used, unicode);
            line.erase(segment + 1, line.end());
            return;
        }
        used += columns;
    }
}

std::size_t lineColumns(const ScreenLine& line) {
    std::size_t used = 0;
    for (const Segment& segment : line) {
        used += columnsOf(segment.text);
    }
    return used;
}

// How long a line stays when rows run short: higher stays longer.
enum class Keep { spacing, detail, bubbles, header, primary, request };

struct Lines {
    std::vector<ScreenLine> lines;
    std::vector<Keep> keep;
    void add(ScreenLine line, Keep how) {
        lines.push_back(std::move(line));
        keep.push_back(how);
    }
    void blank() {
        if (!lines.empty() && !lines.back().empty()) {
            add({}, Keep::spacing);
        }
    }
};

void addHeader(Lines& out, const IslandScene& scene) {
    const IslandCounts counts = scene.island.counts(scene.layout);
    ScreenLine line{{"Pelmora", bold}};
    auto count = [&](std::size_t number, DisplayState state, bool gone, std::string_view word) {
        if (number == 0) {
            return;
        }
        const Style style = gone ? goneStyle : displayStyle({{}, state, false}, false);
        line.push_back({"  ", plain});
        line.push_back(
            {joined(stateMark(state, gone, scene.unicode), " ", std::to_string(number), " ", word),
             style});
    };
    count(counts.waiting, DisplayState::awaiting, false, "waiting");
    count(counts.failed, DisplayState::failed, false, "failed");
    count(counts.working, DisplayState::working, false, "working");
    count(counts.gone, DisplayState::working, true, "gone");
    if (scene.island.unreadable() > 0) {
        line.push_back(
            {joined("  ", std::to_string(scene.island.unreadable()), " unreadable"), dim});
    }
    out.add(std::move(line), Keep::header);
}

void addPrimary(Lines& out, const IslandItem& item, const IslandScene& scene) {
    const SessionRecord& record = item.record;
    const Face face = faceOf(item, scene.island, scene.unicode);
    const bool alert = IslandModel::isAlert(record);
    const std::string state = alert                         ? alertWord(alertKind(record))
                              : scene.island.isGone(record) ? "gone"
                                                            : std::string(rawValue(item.display));
    ScreenLine first{{std::string(face.mark) + " ", face.style}, {face.name, bold}};
    if (!face.place.empty()) {
        first.push_back({joined(dot(scene.unicode), face.place), plain});
    }
    first.push_back({joined("   ", state), face.style});
    first.push_back({joined(" ", ageText(scene.now - record.stateSince)), dim});
    out.add(std::move(first), Keep::primary);

    if (!alert && record.title) {
        out.add({{joined("  ", printable(*record.title)), plain}}, Keep::detail);
    }
    ScreenLine more{{"  ", plain}};
    if (!alert && record.tool) {
        more.push_back({printable(*record.tool) + "  ", bold});
    }
    if (record.summary) {
        more.push_back({printable(*record.summary), alert ? plain : summaryStyle});
    }
    if (item.display == DisplayState::failed && record.detail) {
        more.push_back({joined("  ", printable(*record.detail)), stateStyle(SessionState::failed)});
    }
    if (alert && !record.cwd.empty()) {
        more.push_back({joined("  ", printable(record.cwd)), dim});
    }
    if (more.size() > 1) {
        out.add(std::move(more), Keep::detail);
    }
}

// Bubbles flow left to right and wrap; the overflow is counted after them.
void addBubbles(Lines& out, const IslandScene& scene, std::size_t width) {
    std::vector<ScreenLine> pieces;
    for (const IslandItem& item : scene.layout.bubbles) {
        const Face face = faceOf(item, scene.island, scene.unicode);
        std::string text = face.name;
        if (!face.place.empty()) {
            text += joined(dot(scene.unicode), face.place);
        }
        pieces.push_back({{std::string(face.mark) + " ", face.style},
                          {text, plain},
                          {joined(" ", ageText(scene.now - item.record.stateSince)), dim}});
    }
    if (!scene.layout.overflow.empty()) {
        pieces.push_back(
            {{joined("+", std::to_string(scene.layout.overflow.size()), " more"), dim}});
    }
    ScreenLine line;
    for (ScreenLine& piece : pieces) {
        const std::size_t gap = line.empty() ? 0 : 3;
        if (!line.empty() && lineColumns(line) + gap + lineColumns(piece) > width) {
            out.add(std::move(line), Keep::bubbles);
            line.clear();
        } else if (!line.empty()) {
            line.push_back({"   ", plain});
        }
        line.insert(line.end(), piece.begin(), piece.end());
    }
    if (!line.empty()) {
        out.add(std::move(line), Keep::bubbles);
    }
}

void addKey(ScreenLine& line, std::string_view key, std::string_view meaning) {
    if (!line.empty()) {
        line.push_back({"   ", plain});
    }
    line.push_back({std::string(key), bold});
    line.push_back({joined(" ", meaning), plain});
}

void addRequest(Lines& out, const IslandScene& scene, std::size_t width) {
    const PendingApproval& pending = *scene.request;
    const ApprovalRequest& request = pending.request();
    const std::string_view rule = scene.unicode ? "─" : "-";
    // The project is named as the session's record names it.
    const std::string project =
        SessionRecord::make(request.source, request.sessionID, request.cwd, 0).projectName();
    std::string title = joined(rule, rule, " ", displayName(request.source), " asks",
                               dot(scene.unicode), printable(project), " ");
    if (scene.requestsWaiting > 1) {
        title += joined("(1 of ", std::to_string(scene.requestsWaiting), ") ");
    }
    for (std::size_t used = columnsOf(title); used < width; ++used) {
        title += rule;
    }
    out.add({{title, {Colour::yellow, true, false}}}, Keep::request);

    ScreenLine keys;
    if (!pending.asksQuestions()) {
        ScreenLine what{{"  ", plain}};
        const std::optional<std::string> tool = ToolWord::shortWord(request.tool);
        what.push_back({printable(tool.value_or("Permission")) + "  ", bold});
        if (request.summary) {
            what.push_back({printable(*request.summary), plain});
        }
        out.add(std::move(what), Keep::request);
        addKey(keys, "a", "allow");
        addKey(keys, "A", "always allow");
    } else {
        const std::vector<Question>& questions = *request.questions;
        const Question& question = questions[pending.questionIndex()];
        ScreenLine asked{{"  ", plain}};
        if (!question.header.empty()) {
            asked.push_back({printable(question.header) + ": ", bold});
        }
        asked.push_back({printable(question.question), plain});
        if (questions.size() > 1) {
            asked.push_back({joined("  (", std::to_string(pending.questionIndex() + 1), " of ",
                                    std::to_string(questions.size()), ")"),
                             dim});
        }
        out.add(std::move(asked), Keep::request);
        for (std::size_t index = 0; index < question.options.size(); ++index) {
            const QuestionOption& option = question.options[index];
            const bool on = index < pending.toggled().size() && pending.toggled()[index];
            ScreenLine choice{{joined("   ", std::to_string(index + 1), " "), bold}};
            if (question.multiSelect) {
                choice.push_back({on ? "[x] " : "[ ] ", on ? bold : plain});
            }
            choice.push_back({printable(option.label), plain});
            if (!option.description.empty()) {
                choice.push_back({joined(dot(scene.unicode), printable(option.description)), dim});
            }
            out.add(std::move(choice), Keep::request);
        }
        const std::string range = joined("1-", std::to_string(question.options.size()));
        addKey(keys, range, question.multiSelect ? "toggle" : "choose");
        if (question.multiSelect) {
            addKey(keys, "Enter", "done");
        }
    }
    addKey(keys, "d", "deny");
    addKey(keys, "s", "ask in the agent");
    keys.insert(keys.begin(), {"  ", plain});
    out.add(std::move(keys), Keep::request);
}

} // namespace

std::string_view stateMark(DisplayState state, bool gone, bool unicode) {
    if (gone) {
        return unicode ? "⊘" : "-";
    }
    switch (state) {
    case DisplayState::awaiting:
        return unicode ? "◆" : "?";
    case DisplayState::failed:
        return unicode ? "✗" : "!";
    case DisplayState::working:
        return unicode ? "●" : "*";
    case DisplayState::compacting:
        return unicode ? "◐" : "~";
    case DisplayState::stale:
        return unicode ? "○" : ".";
    case DisplayState::done:
        return unicode ? "✓" : "+";
    }
    return "";
}

std::size_t columnsOf(std::string_view text) {
    std::size_t used = 0;
    for (std::size_t offset = 0; offset < text.size();) {
        const char32_t scalar = Text::decodeScalar(text, offset);
        const int width = ::wcwidth(static_cast<wchar_t>(scalar));
        // Marks that join the previous character take no column; anything
        // the locale cannot say is counted as one.
        used += width < 0 ? 1 : static_cast<std::size_t>(width);
    }
    return used;
}

std::string fitColumns(std::string_view text, std::size_t limit, bool unicode) {
    if (columnsOf(text) <= limit) {
        return std::string(text);
    }
    if (limit == 0) {
        return {};
    }
    std::string out;
    std::size_t used = 0;
    for (std::string_view character : Text::characters(text)) {
        const std::size_t width = columnsOf(character);
        if (used + width + 1 > limit) {
            break;
        }
        out.append(character);
        used += width;
    }
    return out + (unicode ? "…" : "~");
}

std::vector<ScreenLine> islandScreen(const IslandScene& scene, int width, int height) {
    const auto across = static_cast<std::size_t>(std::max(width, 1));
    const auto rows = static_cast<std::size_t>(std::max(height, 1));
    Lines out;
    addHeader(out, scene);
    out.blank();
    if (scene.layout.primary) {
        addPrimary(out, *scene.layout.primary, scene);
        out.blank();
        addBubbles(out, scene, across);
    } else {
        out.add({{"Nothing to show: no agent is at work.", dim}}, Keep::detail);
    }
    if (scene.request != nullptr) {
        out.blank();
        addRequest(out, scene, across);
    }

    ScreenLine keys;
    const std::size_t items =
        scene.layout.primary ? 1 + scene.layout.bubbles.size() + scene.layout.overflow.size() : 0;
    if (items > 1) {
        addKey(keys, "Tab", "next");
    }
    if (scene.layout.primary && scene.island.canDismiss(*scene.layout.primary)) {
        addKey(keys, "x", "dismiss");
    }
    addKey(keys, "q", "quit");

    // Detail gives way first, the request and its keys last; the island's
    // keys keep the bottom row.
    while (out.lines.size() + 1 > rows && !out.lines.empty()) {
        const auto lowest = std::min_element(out.keep.rbegin(), out.keep.rend());
        const auto index = static_cast<std::size_t>(out.keep.rend() - lowest - 1);
        out.lines.erase(out.lines.begin() + static_cast<std::ptrdiff_t>(index));
        out.keep.erase(out.keep.begin() + static_cast<std::ptrdiff_t>(index));
    }
    while (out.lines.size() + 1 < rows) {
        out.lines.emplace_back();
    }
    out.lines.push_back(std::move(keys));
    for (std::size_t row = 0; row < out.lines.size(); ++row) {
        // The bottom-right cell would scroll some terminals.
        clip(out.lines[row], row + 1 == rows ? across - 1 : across, scene.unicode);
    }
    return out.lines;
}

void startColours() {
    ::use_default_colors();
    for (short colour = COLOR_BLACK; colour <= COLOR_WHITE; ++colour) {
        ::init_pair(static_cast<short>(colour + 1), colour, -1);
    }
}

void paint(const std::vector<ScreenLine>& lines, bool colour) {
    ::werase(stdscr);
    int row = 0;
    for (const ScreenLine& line : lines) {
        ::wmove(stdscr, row++, 0);
        for (const Segment& segment : line) {
            attr_t attributes = A_NORMAL;
            if (segment.style.bold) {
                attributes |= A_BOLD;
            }
            if (segment.style.dim) {
                attributes |= A_DIM;
            }
            const short pair = colour && segment.style.colour != Colour::normal
                                   ? static_cast<short>(static_cast<int>(segment.style.colour) + 1)
                                   : 0;
            ::wattr_set(stdscr, attributes, pair, nullptr);
            ::waddnstr(stdscr, segment.text.data(), static_cast<int>(segment.text.size()));
        }
    }
    ::wattr_set(stdscr, A_NORMAL, 0, nullptr);
    ::wnoutrefresh(stdscr);
    ::doupdate();
}

std::string islandLine(const IslandLayout& layout, const IslandModel& island, bool unicode,
                       LineColour colour) {
    auto mark = [&](std::string_view text, Style style) {
        switch (colour) {
        case LineColour::none:
            return std::string(text);
        case LineColour::ansi:
            return styled(text, style, true);
        case LineColour::tmux: {
            static constexpr std::string_view names[] = {"black", "red",     "green", "yellow",
                                                         "blue",  "magenta", "cyan",  "white"};
            std::string markup = "#[fg=";
            markup += style.colour == Colour::normal
                          ? "default"
                          : names[static_cast<std::size_t>(style.colour)];
            markup += style.bold ? ",bold" : "";
            return joined(markup, "]", text, "#[default]");
        }
        }
        return std::string(text);
    };
    // tmux reads "#" in a status line as the start of a format or command.
    auto text = [&](std::string_view value) {
        std::string safe =
            Text::characterCount(value) > 24
                ? std::string(Text::prefixCharacters(value, 23)) + (unicode ? "…" : "~")
                : std::string(value);
        if (colour == LineColour::tmux) {
            for (std::size_t at = safe.find('#'); at != std::string::npos;
                 at = safe.find('#', at + 2)) {
                safe.insert(at, 1, '#');
            }
        }
        return safe;
    };

    const IslandCounts counts = island.counts(layout);
    std::string line;
    auto add = [&](std::string piece) { line += (line.empty() ? "" : " ") + piece; };
    const std::pair<std::size_t, DisplayState> shown[] = {{counts.waiting, DisplayState::awaiting},
                                                          {counts.failed, DisplayState::failed},
                                                          {counts.working, DisplayState::working}};
    for (const auto& [number, state] : shown) {
        if (number > 0) {
            add(mark(std::string(stateMark(state, false, unicode)) + std::to_string(number),
                     displayStyle({{}, state, false}, false)));
        }
    }

    std::vector<const IslandItem*> items;
    if (layout.primary) {
        items.push_back(&*layout.primary);
    }
    for (const IslandItem& item : layout.bubbles) {
        items.push_back(&item);
    }
    for (const IslandItem& item : layout.overflow) {
        items.push_back(&item);
    }
    const auto first = std::find_if(items.begin(), items.end(), [&](const IslandItem* item) {
        return !island.isGone(item->record);
    });
    if (first != items.end()) {
        const Face face = faceOf(**first, island, unicode);
        std::string name = face.name;
        if (!face.place.empty()) {
            name += joined(dot(unicode), text(face.place));
        }
        add(name);
    }
    return line;
}

} // namespace pelmora::cli
