#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "integration/FileEdit.h"
#include "integration/HookTarget.h"
#include "json/JSONValue.h"

// Installs, checks and removes pelmora-hook in each agent's configuration,
// leaving everything the user wrote as it was.
//
// Four kinds of target (HookTarget::Kind):
//   json         entries merged into a settings file the user also edits
//   copilot      a hooks file of the product's own, written whole
//   kimiTOML     one marked block of [[hooks]] tables in the user's TOML
//   piExtension  a TypeScript extension file of the product's own
//
// The product's entries are recognised only by their markers: a hook whose
// "command" (or "bash") string holds both "PELMORA_MANAGED=1" and
// "pelmora-hook"; the Kimi block between its marker comments; the pi file's
// "// pelmora-managed" line. Nothing else is ever changed or removed.
//
// Every operation that changes files comes in two steps: plan*() works out
// the new text without writing (a dry run shows it as a diff), and
// install()/uninstall() apply it, backing the file up first. Failures throw
// pelmora::Error whose message names the file; a file that cannot be read
// or parsed is never written.
namespace pelmora::HookInstaller {

using std::filesystem::path;
using KeyPath = std::vector<std::string>;

// ---- Status ----------------------------------------------------------------

struct Status {
    enum class Case {
        unreadable,   // the file exists but could not be read or parsed; `text` says why
        notInstalled, //
        installed,    //
        stale,        // managed entries present, but not what this version writes
    };
    Case kind = Case::notInstalled;
    std::string text; // only for unreadable

    static Status unreadable(std::string text) { return {Case::unreadable, std::move(text)}; }
    static Status notInstalled() { return {Case::notInstalled, {}}; }
    static Status installed() { return {Case::installed, {}}; }
    static Status stale() { return {Case::stale, {}}; }
    bool operator==(const Status&) const = default;
};

std::string_view rawValue(Status::Case kind);

// ---- Whole targets ---------------------------------------------------------

// `PELMORA_MANAGED=1 '<hook path>' --source <raw>`, plus ` --ppid "$PPID"`
// for the agents that run hooks through a shell of their own.
std::string command(Source source, std::string_view hookPath);

// Never throws: every failure is `unreadable` with its description.
Status status(const HookTarget& target, std::string_view hookPath);

// The file's new text (none: deleted) without writing anything. Throws when
// the file cannot be read or parsed, when Kimi's file defines hooks inline,
// and when the pi extension's place holds a file of the user's.
FileEdit planInstall(const HookTarget& target, std::string_view hookPath);
FileEdit planUninstall(const HookTarget& target);

// planInstall/planUninstall applied, with a backup made in `run` before the
// file changes. A file that would not change is neither backed up nor
// written, so installing again changes no byte and spends no backup.
void install(const HookTarget& target, std::string_view hookPath, BackupRun& run);
void uninstall(const HookTarget& target, BackupRun& run);
// The same in a run of their own (the support directory's backups, now).
void install(const HookTarget& target, std::string_view hookPath);
void uninstall(const HookTarget& target);

// ---- JSON documents (json and copilot kinds) -------------------------------

// A hook object carrying both markers in its "command" (or, failing that,
// "bash") string.
bool isManaged(const JSONValue& hook);

// The merge: managed hooks removed first (so a stale command is replaced,
// never duplicated), then one group {"hooks": [{"type", "command",
// "timeout"}]} appended to each event's array, after the user's groups. An
// event (or the hooks object) that held only managed hooks keeps its place.
// Blocking events get HookTarget::blockingTimeout seconds, others
// shortTimeout; the target's form writes them in the agent's unit.
JSONValue installing(const JSONValue& root, const std::vector<std::string>& events,
                     std::string_view command, const KeyPath& container,
                     const std::optional<KeyPath>& enableFlag,
                     const std::set<std::string>& blocking);
JSONValue installing(const JSONValue& root, const HookTarget& target, std::string_view command);
// Drops the managed hooks under `container`, then the groups and events they
// leave empty; the root unchanged when there were none.
JSONValue removing(const JSONValue& root, const KeyPath& container);

std::vector<std::string> managedCommands(const JSONValue& root, const KeyPath& container);
std::set<std::string> installedEvents(const JSONValue& root, const KeyPath& container);
// The "timeout" (or "timeoutSec") of the event's first managed hook.
std::optional<std::int64_t> managedTimeout(const JSONValue& root, const KeyPath& container,
                                           std::string_view event);

// Copilot's file, written whole: {"version": 1, "hooks": {event: [hook]}}.
JSONValue copilotDocument(const HookTarget& target, std::string_view command);

// How a file ended, so a rewrite keeps it.
enum class Ending { absent, noNewline, newline };

struct Contents {
    JSONValue root = JSONValue::object(); // an empty object for an absent or blank file
    Ending ending = Ending::absent;
    bool operator==(const Contents&) const = default;
};

// Reads and parses a settings file. Throws pelmora::Error naming the file and,
// for a parse error, the line and column.
Contents read(const path& url);
// The same for text already read (none: the file is absent).
Contents parse(const std::optional<std::string>& text, const path& url);
// The installers' indented text of `root`, with a final line feed when asked.
std::string text(const JSONValue& root, bool trailingNewline);
// writeText(text(root, trailingNewline), url).
void write(const JSONValue& root, const path& url, bool trailingNewline);

// ---- Kimi's TOML block -----------------------------------------------------

inline constexpr std::string_view kimiBeginMarker =
    "# >>> pelmora hooks (managed, do not edit) >>>";
inline constexpr std::string_view kimiEndMarker = "# <<< pelmora hooks <<<";
inline constexpr std::string_view kimiInlineHooksError =
    "config.toml already sets `hooks = …` inline; convert it to [[hooks]] tables first.";

// A TOML basic string: "..." with backslashes, quotes and control characters escaped.
std::string tomlString(std::string_view text);
std::string kimiBlock(const std::vector<std::string>& events, std::string_view command);
// The text without its first complete block and the blank line before it.
std::string kimiRemovingBlock(std::string_view text);
// Without every complete block: a block copied by hand must not survive an
// install (which would then no longer be idempotent) or an uninstall.
std::string kimiRemovingBlocks(std::string_view text);
// A line `hooks = ...`: hooks defined inline, which [[hooks]] tables would clash with.
bool kimiDefinesInlineHooks(std::string_view text);
// The file's text with the block (re)placed at its end, after one blank
// line. The caller checks kimiDefinesInlineHooks first.
std::string kimiInstalling(std::string_view text, const std::vector<std::string>& events,
                           std::string_view command);
// status() for the kimiTOML kind; throws only when the file cannot be read.
Status kimiStatus(const HookTarget& target, std::string_view hookPath);

// ---- pi's extension --------------------------------------------------------

inline constexpr std::string_view piMarker = "// pelmora-managed";

// The whole extension file that reports pi's lifecycle to `hookPath`.
std::string piExtension(std::string_view hookPath);
// status() for the piExtension kind; throws only when the file cannot be read.
Status piStatus(const HookTarget& target, std::string_view hookPath);

// ---- Files and backups -----------------------------------------------------

// Replaces the file's contents through "." + name + ".pelmora.tmp" beside
// it and a rename: a link is followed so the real file is updated and the
// link survives; missing folders are made; the old permissions are kept.
// On failure the old file is as it was, the temporary file is gone, and
// pelmora::Error names the file.
void writeText(std::string_view text, const path& url);

// Copies the target's file into `directory` as
// "<source>-<name>.<ISO 8601 time without colons>.bak", then prunes.
// Nothing when the file is absent. Throws pelmora::Error.
void backup(const HookTarget& target, const path& directory, double now);
void backup(Source source, const path& file, const path& directory, double now);
// In each group of ".bak" files of one source and file: keeps the `keep`
// newest, minus those more than 60 days older than `now`. Never fails.
void pruneBackups(const path& directory, int keep, double now);

inline constexpr int backupsKept = 5;
inline constexpr double backupMaxAge = 60 * 86400;

} // namespace pelmora::HookInstaller
