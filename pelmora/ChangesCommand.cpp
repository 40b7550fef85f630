// `pelmora changes [DIR]`: what changed in a repository since its last
// commit, read from git as the notch app reads it, and printed as a list of
// files with their line counts, or as the change-set record.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "ChildOutput.h"
#include "Commands.h"
#include "Style.h"
#include "Terminal.h"
#include "activity/GitChanges.h"
#include "json/OrderedJSON.h"
#include "platform/ChildProcess.h"
#include "platform/Error.h"
#include "platform/FileDescriptor.h"

namespace pelmora::cli {
namespace {

struct ChangesOptions {
    std::string folder = ".";
    bool json = false;
};

struct GitOutput {
    bool succeeded = false;
    std::string out;
    std::string err;
};

// git without a shell, found in PATH. --no-optional-locks: a diff refreshes
// the index when it may, and the lock it takes for that would fail an
// agent's own git command running at the same moment.
GitOutput git(const std::string& folder, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"git", "--no-optional-locks", "-C", folder});
    std::optional<platform::ChildProcess> child = platform::ChildProcess::start(
        arguments, {.pipeOutput = true, .pipeErrors = true, .searchPath = true});
    if (!child) {
        throw Error(std::string("cannot run git: ") + std::strerror(errno));
    }
    GitOutput result;
    readOutput(*child, [&result](std::string_view chunk, bool isStderr) {
        (isStderr ? result.err : result.out).append(chunk);
        return true;
    });
    const auto end = child->wait();
    result.succeeded = end && !end->signalled && end->status == 0;
    return result;
}

std::string firstLine(std::string_view text) {
    return printable(text.substr(0, text.find('\n')));
}

std::string withoutNewline(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

// A file git does not track yet, counted as `git add` would make it count:
// its lines as added, or binary when a NUL byte comes early, as git decides.
// A symbolic link is one line, its target. Anything else is left out.
std::optional<FileChange> untrackedChange(const std::string& top, const std::string& path) {
    const std::string full = top + "/" + path;
    struct stat info {};
    if (::lstat(full.c_str(), &info) != 0) {
        return std::nullopt;
    }
    if (S_ISLNK(info.st_mode)) {
        return FileChange{path, std::nullopt, 1, 0, false};
    }
    FileDescriptor file(
        S_ISREG(info.st_mode) ? ::open(full.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW) : -1);
    if (!file.valid()) {
        return std::nullopt;
    }
    constexpr std::size_t binaryProbe = 8000; // git's own look-ahead
    std::array<char, 65536> buffer{};
    std::int64_t lines = 0;
    std::size_t seen = 0;
    char last = '\n';
    for (ssize_t got = 0; (got = ::read(file.get(), buffer.data(), buffer.size())) != 0;) {
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return std::nullopt;
        }
        const char* begin = buffer.data();
        const char* end = begin + got;
        const char* probed = begin + std::min(static_cast<std::size_t>(got),
                                              binaryProbe - std::min(seen, binaryProbe));
        if (std::find(begin, probed, '\0') != probed) {
            return FileChange{path, std::nullopt, 0, 0, true};
        }
        seen += static_cast<std::size_t>(got);
        lines += std::count(begin, end, '\n');
        last = end[-1];
    }
    return FileChange{path, std::nullopt, lines + (last == '\n' ? 0 : 1), 0, false};
}

std::string counted(std::int64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// The files from `firstUntracked` on are not tracked yet.
void printList(const ChangeSet& changes, std::size_t firstUntracked, const std::string& against) {
    const std::string repo = printable(changes.repo);
    if (changes.files.empty()) {
        std::printf("No changes in %s against %s.\n", repo.c_str(), against.c_str());
        return;
    }
    std::printf("Changes in %s against %s:\n", repo.c_str(), against.c_str());
    std::size_t addedWidth = 0;
    std::size_t removedWidth = 0;
    for (const FileChange& file : changes.files) {
        addedWidth = std::max(addedWidth, std::to_string(file.added).size() + 1);
        removedWidth = std::max(removedWidth, std::to_string(file.removed).size() + 1);
    }
    const std::size_t countsWidth = std::max(addedWidth + 1 + removedWidth, std::size_t{6});
    const bool colour = wantsColour(STDOUT_FILENO);
    std::int64_t renamed = 0;
    std::int64_t binaries = 0;
    for (std::size_t index = 0; index < changes.files.size(); ++index) {
        const FileChange& file = changes.files[index];
        std::string counts;
        if (file.isBinary) {
            counts = padLeft("binary", countsWidth);
            ++binaries;
        } else {
            counts = padLeft("", countsWidth - addedWidth - 1 - removedWidth) +
                     styled(padLeft("+" + std::to_string(file.added), addedWidth),
                            Style{Colour::green, false, false}, colour) +
                     " " +
                     styled(padLeft("-" + std::to_string(file.removed), removedWidth),
                            Style{Colour::red, false, false}, colour);
        }
        std::string name = printable(file.path);
        if (file.oldPath) {
            name = printable(*file.oldPath) + " => " + name;
            ++renamed;
        }
        if (index >= firstUntracked) {
            name += styled(" (untracked)", Style{Colour::normal, false, true}, colour);
        }
        std::printf("  %s  %s\n", counts.c_str(), name.c_str());
    }

    std::string summary =
        counted(static_cast<std::int64_t>(changes.files.size()), "file", "files") + " changed, " +
        counted(changes.added(), "insertion(+)", "insertions(+)") + ", " +
        counted(changes.removed(), "deletion(-)", "deletions(-)");
    std::string kinds;
    for (const auto& [count, word] :
         {std::pair{renamed, "renamed"}, std::pair{binaries, "binary"},
          std::pair{static_cast<std::int64_t>(changes.files.size() - firstUntracked),
                    "untracked"}}) {
        if (count > 0) {
            kinds += (kinds.empty() ? "; " : ", ") + std::to_string(count) + " " + word;
        }
    }
    std::printf("%s%s\n", summary.c_str(), kinds.c_str());
}

int runChanges(const ChangesOptions& options) {
    const GitOutput root = git(options.folder, {"rev-parse", "--show-toplevel"});
    if (!root.succeeded) {
        const std::string folder = printable(options.folder);
        if (root.err.find("not a git repository") != std::string::npos) {
            std::fprintf(stderr, "pelmora: not in a git repository: %s\n", folder.c_str());
        } else {
            std::fprintf(stderr, "pelmora: %s: git: %s\n", folder.c_str(),
                         firstLine(root.err).c_str());
        }
        return 1;
    }
    ChangeSet changes;
    changes.repo = withoutNewline(root.out);
    changes.end = "working tree";
    const GitOutput head = git(changes.repo, {"rev-parse", "--verify", "--quiet", "HEAD^{commit}"});
    changes.base = head.succeeded ? withoutNewline(head.out) : std::string(GitChanges::emptyTree);
    const std::string against =
        head.succeeded ? "HEAD " + changes.base.substr(0, 7) : "the empty tree (no commit yet)";

    // Staged and unstaged changes of tracked files alike, renames found even
    // where the user's configuration turns them off, and a binary counted as
    // one whatever a textconv filter makes of it.
    const GitOutput diff = git(changes.repo, {"diff", "--numstat", "-z", "-M", "--no-ext-diff",
                                              "--no-textconv", changes.base, "--"});
    if (!diff.succeeded) {
        throw Error("git diff failed: " + firstLine(diff.err), changes.repo);
    }
    changes.files = GitChanges::parseNumstat(diff.out);

    // New files are changes to a person even before `git add`.
    const GitOutput others =
        git(changes.repo, {"ls-files", "--others", "--exclude-standard", "-z"});
    if (!others.succeeded) {
        throw Error("git ls-files failed: " + firstLine(others.err), changes.repo);
    }
    const std::size_t firstUntracked = changes.files.size();
    std::string_view rest = others.out;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\0'), rest.size());
        const std::string path(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (std::optional<FileChange> change = untrackedChange(changes.repo, path)) {
            changes.files.push_back(std::move(*change));
        }
    }

    if (!options.json) {
        printList(changes, firstUntracked, against);
        return 0;
    }
    JSONValue record = changes.toJSON();
    JSONValue::Elements untrackedPaths;
    for (std::size_t index = firstUntracked; index < changes.files.size(); ++index) {
        untrackedPaths.push_back(JSONValue::string(changes.files[index].path));
    }
    record.set("untracked", JSONValue::array(std::move(untrackedPaths)));
    std::printf("%s\n", OrderedJSON::serialize(record, "  ").c_str());
    return 0;
}

Run declareChanges(CLI::App& app) {
    auto options = std::make_shared<ChangesOptions>();
    app.add_option("DIR", options->folder, "a folder of the repository (default: this one)")
        ->type_name("");
    app.add_flag("--json", options->json, "the change-set record, for scripts");
    return [options] { return runChanges(*options); };
}

} // namespace

const Command changesCommand{
    "changes", "what changed in a git repository since its commit",
    "Lists the files changed in the working tree and the index since HEAD (since the\n"
    "empty tree in a repository with no commit yet): lines added and removed,\n"
    "renames and binary files, then the totals. Files that git does not track yet and\n"
    "does not ignore count as new files and are marked untracked. --json prints the\n"
    "record {repo, base, end, files: [{path, oldPath, added, removed, isBinary}]} with\n"
    "\"untracked\" listing those paths. Exits 1 outside a git repository.\n"
    "\n"
    "example: pelmora changes ~/code/shop --json",
    declareChanges};

} // namespace pelmora::cli
