#include <cstdio>

#include "integration/HookInstaller.h"
#include "integration/InstallerFiles.h"
#include "support/Ascii.h"
#include "support/Text.h"

namespace pelmora::HookInstaller {
namespace {

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && Ascii::isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && Ascii::isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

template <class Visit> void forEachLine(std::string_view text, Visit visit) {
    for (;;) {
        const std::size_t end = text.find('\n');
        visit(text.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        text.remove_prefix(end + 1);
    }
}

// Where the block starts and where its end marker ends; none for a file
// without a complete block.
std::optional<std::pair<std::size_t, std::size_t>> findBlock(std::string_view text) {
    const std::size_t first = text.find(kimiBeginMarker);
    if (first == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t end = text.find(kimiEndMarker, first + kimiBeginMarker.size());
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    // A begin marker left without its end (a hand edit gone wrong) stays with
    // the user's text; the block is the one that the end marker closes.
    const std::size_t begin = text.rfind(kimiBeginMarker, end - kimiBeginMarker.size());
    return std::pair{begin, end + kimiEndMarker.size()};
}

} // namespace

std::string tomlString(std::string_view text) {
    std::string quoted = "\"";
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\' || c == '"') {
            quoted += '\\';
            quoted += c;
        } else if (c == '\n') {
            quoted += "\\n";
        } else if (c == '\r') {
            quoted += "\\r";
        } else if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
            // Control characters are not allowed raw in a TOML string.
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(byte));
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    quoted += '"';
    return quoted;
}

std::string kimiBlock(const std::vector<std::string>& events, std::string_view command) {
    std::string block(kimiBeginMarker);
    const std::string quotedCommand = tomlString(command);
    for (const std::string& event : events) {
        block += "\n[[hooks]]\nevent = " + tomlString(event) + "\ncommand = " + quotedCommand +
                 "\ntimeout = 5\n";
    }
    block += '\n';
    block += kimiEndMarker;
    return block;
}

std::string kimiRemovingBlock(std::string_view text) {
    const auto block = findBlock(text);
    if (!block) {
        return std::string(text);
    }
    std::string before(text.substr(0, block->first));
    while (before.ends_with("\n\n")) {
        before.pop_back();
    }
    std::string_view after = text.substr(block->second);
    if (after.starts_with('\n')) {
        after.remove_prefix(1);
    }
    return before.append(after);
}

std::string kimiRemovingBlocks(std::string_view text) {
    std::string result(text);
    for (std::string next = kimiRemovingBlock(result); next != result;
         next = kimiRemovingBlock(result)) {
        result = std::move(next);
    }
    return result;
}

bool kimiDefinesInlineHooks(std::string_view text) {
    bool found = false;
    forEachLine(text, [&](std::string_view line) {
        line = trimmed(line);
        found = found || (line.starts_with("hooks") && trimmed(line.substr(5)).starts_with('='));
    });
    return found;
}

std::string kimiInstalling(std::string_view text, const std::vector<std::string>& events,
                           std::string_view command) {
    std::string result = kimiRemovingBlocks(text);
    if (!result.empty()) {
        // One blank line before the block, however many the file ended
        // with: removal keeps one line feed, so a second install must find
        // the same text before the block as the first wrote.
        while (result.ends_with("\n\n")) {
            result.pop_back();
        }
        if (!result.ends_with('\n')) {
            result += '\n';
        }
        result += '\n';
    }
    result += kimiBlock(events, command);
    result += '\n';
    return result;
}

Status kimiStatus(const HookTarget& target, std::string_view hookPath) {
    const std::optional<std::string> text = InstallerFiles::readText(target.fileURL);
    if (!text) {
        return Status::notInstalled();
    }
    if (!Text::isValidUTF8(*text)) {
        return Status::unreadable("not UTF-8");
    }
    const std::string_view whole = *text;
    const std::size_t begin = whole.find(kimiBeginMarker);
    const std::size_t end = begin == std::string_view::npos
                                ? begin
                                : whole.find(kimiEndMarker, begin + kimiBeginMarker.size());
    if (end == std::string_view::npos) {
        return Status::notInstalled();
    }
    std::set<std::string_view> lines;
    forEachLine(whole.substr(begin, end - begin),
                [&](std::string_view line) { lines.insert(line); });
    std::vector<std::string> expected = {"command = " +
                                         tomlString(command(target.source, hookPath))};
    for (const std::string& event : target.events) {
        expected.push_back("event = " + tomlString(event));
    }
    for (const std::string& line : expected) {
        if (lines.count(line) == 0) {
            return Status::stale();
        }
    }
    return InstallerFiles::isExecutableFile(hookPath) ? Status::installed() : Status::stale();
}

} // namespace pelmora::HookInstaller
