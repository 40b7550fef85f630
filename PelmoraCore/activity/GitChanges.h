#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSONValue.h"
#include "support/Enum.h"

// What git says changed, read from the text git prints. Nothing here runs
// git: the caller runs it and hands the captured standard output in, e.g.
//
//     git diff --numstat -z -M HEAD          (GitChanges::emptyTree without a commit)
//     git diff --no-color -U3 HEAD -- <file>
//
// Malformed input gives fewer entries, never an error.
namespace pelmora {

// One changed file as numstat reports it.
struct FileChange {
    std::string path;                   // after the change (the new path of a rename)
    std::optional<std::string> oldPath; // before a rename; absent otherwise
    std::int64_t added = 0;             // 0 for a binary file
    std::int64_t removed = 0;
    bool isBinary = false; // numstat gave "-" for both counts

    bool operator==(const FileChange&) const = default;

    // Files are told apart by the path they have now.
    const std::string& id() const { return path; }

    // {"path", "oldPath" (left out when absent), "added", "removed", "isBinary"}
    JSONValue toJSON() const;
    // A missing or mistyped member gives none.
    static std::optional<FileChange> fromJSON(const JSONValue& json);
};

// The files changed between two points of one repository.
struct ChangeSet {
    std::string repo; // the repository's root folder
    std::string base; // the commit or tree compared from
    std::string end;  // the commit or state compared to
    std::vector<FileChange> files;

    bool operator==(const ChangeSet&) const = default;

    // Sums over the files. A sum beyond 64 bits aborts: a count that wrapped
    // round would be a lie on screen.
    std::int64_t added() const;
    std::int64_t removed() const;

    // {"repo", "base", "end", "files"}
    JSONValue toJSON() const;
    static std::optional<ChangeSet> fromJSON(const JSONValue& json);
};

// One line of the diff of one file, numbered as in the old and the new file.
struct DiffLine {
    enum class Kind { hunk, added, removed, context, note };

    Kind kind = Kind::note;
    std::optional<std::int64_t> oldNumber; // removed and context lines
    std::optional<std::int64_t> newNumber; // added and context lines
    std::string text;                      // without the leading "+", "-" or blank

    bool operator==(const DiffLine&) const = default;
};

std::string_view rawValue(DiffLine::Kind kind);
template <> std::optional<DiffLine::Kind> fromRaw<DiffLine::Kind>(std::string_view raw);

namespace GitChanges {

// git's hash of the empty tree: the base for a repository with no commit yet.
inline constexpr std::string_view emptyTree = "4b825dc642cb6eb9a060e54bf8d69288fbee4904";

// Text of a diff line that stands for a binary file, and of the line that
// ends a diff cut at its limit.
inline constexpr std::string_view binaryNote = "Binary file";
inline constexpr std::string_view cutOffNote = "Diff cut off here";

// `git diff --numstat -z` output: "<added>\t<removed>\t<path>\0" per file, and
// "<added>\t<removed>\t\0<old path>\0<new path>\0" per rename or copy. Counts
// that are not integers ("-" for binaries) read as 0; a rename whose paths
// are cut off ends the list there.
std::vector<FileChange> parseNumstat(std::string_view output);

// The unified diff of one file, from its first "@@" on. At most `limit`
// lines, then a "Diff cut off here" note; a binary diff is one "Binary file"
// note. Once inside a hunk it stays there: a second file's headers would read
// as a removed and an added line, so hand it one file at a time.
std::vector<DiffLine> parseDiff(std::string_view diff, std::int64_t limit);

} // namespace GitChanges
} // namespace pelmora
