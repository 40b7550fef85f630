#include "activity/GitChanges.h"

#include <cstdlib>

#include "json/KeyedJSON.h"
#include "support/Integers.h"
#include "support/Text.h"

namespace pelmora {

namespace {

// Swift traps on overflow; so do we, rather than show a wrapped count.
std::int64_t checkedSum(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        std::abort();
    }
    return sum;
}

// Git writes whatever bytes a file holds, so a line is compared and cut by
// characters as a person reads them: "+" followed by a combining mark is one
// character that is not "+".
bool beginsWith(std::string_view line, std::string_view asciiPrefix) {
    return line.substr(0, asciiPrefix.size()) == asciiPrefix &&
           Text::prefixCharacters(line, asciiPrefix.size()).size() == asciiPrefix.size();
}

std::string dropCharacters(std::string_view line, std::size_t count) {
    return std::string(line.substr(Text::prefixCharacters(line, count).size()));
}

std::int64_t countOrZero(std::string_view field) {
    return parseInteger<std::int64_t>(field).value_or(0);
}

// "-12,7" gives 12: the field without its sign character, up to a comma.
std::int64_t hunkStart(std::string_view field) {
    const std::string rest = dropCharacters(field, 1);
    return countOrZero(std::string_view(rest).substr(0, rest.find(',')));
}

} // namespace

JSONValue FileChange::toJSON() const {
    JSONObjectWriter writer;
    writer.put("path", path);
    writer.put("oldPath", oldPath);
    writer.put("added", JSONValue::integer(added));
    writer.put("removed", JSONValue::integer(removed));
    writer.put("isBinary", JSONValue::boolean(isBinary));
    return writer.finish();
}

std::optional<FileChange> FileChange::fromJSON(const JSONValue& json) {
    JSONObjectReader reader(json);
    FileChange change;
    change.path = reader.requiredString("path");
    change.oldPath = reader.optionalString("oldPath");
    change.added = reader.requiredInteger<std::int64_t>("added");
    change.removed = reader.requiredInteger<std::int64_t>("removed");
    change.isBinary = reader.requiredBool("isBinary");
    if (reader.failed()) {
        return std::nullopt;
    }
    return change;
}

std::int64_t ChangeSet::added() const {
    std::int64_t sum = 0;
    for (const FileChange& file : files) {
        sum = checkedSum(sum, file.added);
    }
    return sum;
}

std::int64_t ChangeSet::removed() const {
    std::int64_t sum = 0;
    for (const FileChange& file : files) {
        sum = checkedSum(sum, file.removed);
    }
    return sum;
}

JSONValue ChangeSet::toJSON() const {
    JSONObjectWriter writer;
    writer.put("repo", repo);
    writer.put("base", base);
    writer.put("end", end);
    JSONValue::Elements elements;
    elements.reserve(files.size());
    for (const FileChange& file : files) {
        elements.push_back(file.toJSON());
    }
    writer.put("files", JSONValue::array(std::move(elements)));
    return writer.finish();
}

std::optional<ChangeSet> ChangeSet::fromJSON(const JSONValue& json) {
    JSONObjectReader reader(json);
    ChangeSet set;
    set.repo = reader.requiredString("repo");
    set.base = reader.requiredString("base");
    set.end = reader.requiredString("end");
    set.files = reader.requiredDecoded<std::vector<FileChange>>("files", [](const JSONValue& v) {
        return JSONObjectReader::decodeList<FileChange>(v, FileChange::fromJSON);
    });
    if (reader.failed()) {
        return std::nullopt;
    }
    return set;
}

std::string_view rawValue(DiffLine::Kind kind) {
    switch (kind) {
    case DiffLine::Kind::hunk:
        return "hunk";
    case DiffLine::Kind::added:
        return "added";
    case DiffLine::Kind::removed:
        return "removed";
    case DiffLine::Kind::context:
        return "context";
    case DiffLine::Kind::note:
        break;
    }
    return "note";
}

template <> std::optional<DiffLine::Kind> fromRaw<DiffLine::Kind>(std::string_view raw) {
    for (DiffLine::Kind kind :
         {DiffLine::Kind::hunk, DiffLine::Kind::added, DiffLine::Kind::removed,
          DiffLine::Kind::context, DiffLine::Kind::note}) {
        if (rawValue(kind) == raw) {
            return kind;
        }
    }
    return std::nullopt;
}

namespace GitChanges {

std::vector<FileChange> parseNumstat(std::string_view output) {
    std::vector<FileChange> changes;
    // The pieces between NULs, taken from the front as a queue. The NUL
    // after the last record ends it rather than starting an empty piece, so
    // a rename whose new path is missing is seen to be cut short.
    if (output.ends_with('\0')) {
        output.remove_suffix(1);
    }
    std::size_t position = 0;
    bool exhausted = false;
    auto nextPiece = [&]() -> std::optional<std::string_view> {
        if (exhausted) {
            return std::nullopt;
        }
        const std::size_t nul = output.find('\0', position);
        std::string_view piece = output.substr(position, nul - position);
        if (nul == std::string_view::npos) {
            exhausted = true;
        } else {
            position = nul + 1;
        }
        return piece;
    };

    while (std::optional<std::string_view> piece = nextPiece()) {
        if (piece->empty()) {
            continue;
        }
        const std::size_t firstTab = piece->find('\t');
        const std::size_t secondTab =
            firstTab == std::string_view::npos ? firstTab : piece->find('\t', firstTab + 1);
        if (secondTab == std::string_view::npos) {
            continue;
        }
        const std::string_view addedField = piece->substr(0, firstTab);
        const std::string_view removedField = piece->substr(firstTab + 1, secondTab - firstTab - 1);
        const std::string_view pathField = piece->substr(secondTab + 1);

        FileChange change;
        change.isBinary = addedField == "-" && removedField == "-";
        change.added = countOrZero(addedField);
        change.removed = countOrZero(removedField);
        if (!pathField.empty()) {
            change.path = std::string(pathField);
        } else {
            // A rename or copy: its two paths are the next two pieces.
            std::optional<std::string_view> oldPath = nextPiece();
            std::optional<std::string_view> newPath = oldPath ? nextPiece() : std::nullopt;
            if (!newPath) {
                break;
            }
            change.oldPath = std::string(*oldPath);
            change.path = std::string(*newPath);
        }
        changes.push_back(std::move(change));
    }
    return changes;
}

std::vector<DiffLine> parseDiff(std::string_view diff, std::int64_t limit) {
    using Kind = DiffLine::Kind;
    if (diff.starts_with("Binary files ") || diff.find("\nBinary files ") != diff.npos ||
        diff.find("\nGIT binary patch") != diff.npos) {
        return {DiffLine{Kind::note, std::nullopt, std::nullopt, std::string(binaryNote)}};
    }

    std::vector<DiffLine> lines;
    std::int64_t oldLine = 0;
    std::int64_t newLine = 0;
    bool inHunk = false;
    std::size_t start = 0;
    while (true) {
        const std::size_t newline = diff.find('\n', start);
        const bool last = newline == std::string_view::npos;
        const std::string_view line = diff.substr(start, newline - start);

        if (beginsWith(line, "@@")) {
            std::vector<std::string_view> fields;
            for (std::size_t at = 0; at < line.size() && fields.size() < 3;) {
                const std::size_t blank = line.find(' ', at);
                const std::size_t fieldEnd = blank == std::string_view::npos ? line.size() : blank;
                if (fieldEnd > at) {
                    fields.push_back(line.substr(at, fieldEnd - at));
                }
                at = fieldEnd + 1;
            }
            if (fields.size() >= 3) {
                oldLine = hunkStart(fields[1]);
                newLine = hunkStart(fields[2]);
            }
            lines.push_back({Kind::hunk, std::nullopt, std::nullopt, std::string(line)});
            inHunk = true;
        } else if (!inHunk) {
            // The diff's header: "diff --git", "index", "---", "+++".
        } else if (beginsWith(line, "+")) {
            lines.push_back({Kind::added, std::nullopt, newLine, dropCharacters(line, 1)});
            newLine = checkedSum(newLine, 1);
        } else if (beginsWith(line, "-")) {
            lines.push_back({Kind::removed, oldLine, std::nullopt, dropCharacters(line, 1)});
            oldLine = checkedSum(oldLine, 1);
        } else if (beginsWith(line, "\\")) {
            lines.push_back({Kind::note, std::nullopt, std::nullopt, dropCharacters(line, 2)});
        } else if (beginsWith(line, " ")) {
            lines.push_back({Kind::context, oldLine, newLine, dropCharacters(line, 1)});
            oldLine = checkedSum(oldLine, 1);
            newLine = checkedSum(newLine, 1);
        }

        if (static_cast<std::int64_t>(lines.size()) >= limit) {
            lines.push_back({Kind::note, std::nullopt, std::nullopt, std::string(cutOffNote)});
            return lines;
        }
        if (last) {
            return lines;
        }
        start = newline + 1;
    }
}

} // namespace GitChanges
} // namespace pelmora
