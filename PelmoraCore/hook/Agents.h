#pragma once

#include <span>
#include <string_view>

#include "hook/Source.h"

// Everything the system knows of each source, one row apiece: its names and
// capabilities, where its configuration lives, how a hook run tells which
// agent started it, how its hooks are installed and how it is answered.
// Sources, paths, detection, the hook's arguments, the installers, the reply
// writer and the companion all read these rows; adding an agent means adding
// a row (and a Source case).
namespace pelmora::Agents {

// How the product's hooks are written into the agent's configuration.
enum class HookFormat {
    json,        // entries merged into a JSON settings file the user also edits
    copilot,     // a JSON hooks file of the product's own
    kimiTOML,    // a marked block of [[hooks]] tables in the user's TOML
    piExtension, // a TypeScript extension file of the product's own
};

// The shape of the reply a permission request or question gets on stdout.
// Whether a source is asked at all is supportsApprovals/supportsQuestions;
// one that is never asked still has the standard shape, so that a reply
// written for it is the one most agents understand.
enum class ReplyDialect {
    standard, // hookSpecificOutput / PermissionRequest / decision.behavior
    copilot,  // {"behavior": ...}
    devin,    // {"decision": "approve" | "block"}
    grok,     // a refused PreToolUse carrying the user's answers
};

// How a hook run learns from its environment that this agent started it.
enum class Detection {
    none,
    // The variable's presence names the agent whatever "--source" said.
    overridesSource,
    // The variable's presence names the agent only when nothing else did
    // (the source is still the default, claude).
    whenUnnamed,
};

// The unit the agent reads a hook's timeout in.
enum class TimeoutUnit { seconds, milliseconds };

struct Row {
    Source source;
    std::string_view raw;
    std::string_view displayName;
    std::string_view mark;
    bool isAgent = false;
    bool supportsApprovals = false;
    bool supportsQuestions = false;
    bool asksOnPreToolUse = false;

    // Relative to the home folder; empty for the activity sources.
    std::string_view configDirectory;
    // Another folder an install of the agent may use instead (Kimi Code's
    // ".kimi-code"); it counts for detection and for finding the file.
    std::string_view alternativeConfigDirectory;
    // The file the installer writes, relative to the config directory.
    std::string_view configFile;
    // The name under which `pelmora paths` and the code know that file.
    std::string_view configFileName;

    std::string_view detectionVariable;
    Detection detection = Detection::none;

    HookFormat hookFormat = HookFormat::json;
    // The whole file is the product's (it may be deleted when emptied).
    bool ownsFile = false;
    std::span<const std::string_view> hookEvents;
    std::span<const std::string_view> blockingEvents;
    // The agent runs hooks through a shell of its own, so the command line
    // names the agent's process with --ppid "$PPID".
    bool passesParentPID = false;
    TimeoutUnit timeoutUnit = TimeoutUnit::seconds;

    ReplyDialect reply = ReplyDialect::standard;
};

// Every source, in declaration order (rows()[i].source == allSources[i]).
std::span<const Row> rows();
const Row& row(Source source);

} // namespace pelmora::Agents
