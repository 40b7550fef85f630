#include "hook/Agents.h"

#include <array>

namespace pelmora::Agents {
namespace {

using Events = std::string_view;

constexpr Events claudeEvents[] = {
    "SessionStart", "SessionEnd",         "UserPromptSubmit",  "PreToolUse",
    "PostToolUse",  "PostToolUseFailure", "PermissionRequest", "Notification",
    "Stop",         "StopFailure",        "PreCompact",        "PostCompact",
};
constexpr Events codexEvents[] = {
    "SessionStart", "SessionEnd", "UserPromptSubmit", "PreToolUse", "PermissionRequest",
    "PostToolUse",  "PreCompact", "PostCompact",      "Stop",       "Interrupt",
};
constexpr Events grokEvents[] = {
    "SessionStart",       "SessionEnd",   "UserPromptSubmit", "PreToolUse",  "PostToolUse",
    "PostToolUseFailure", "Notification", "PreCompact",       "PostCompact", "Stop",
    "StopFailure",
};
constexpr Events commandCodeEvents[] = {"SessionStart", "PreToolUse", "PostToolUse", "Stop"};
constexpr Events devinEvents[] = {
    "SessionStart",      "SessionEnd",  "UserPromptSubmit", "PreToolUse",
    "PermissionRequest", "PostToolUse", "PostCompaction",   "Stop",
};
constexpr Events copilotEvents[] = {
    "sessionStart", "sessionEnd",        "userPromptSubmitted", "preToolUse",
    "postToolUse",  "permissionRequest", "notification",        "agentStop",
};
constexpr Events piEvents[] = {"session_start", "agent_start", "tool_call", "agent_end",
                               "session_shutdown"};
constexpr Events kimiEvents[] = {
    "SessionStart", "SessionEnd",         "UserPromptSubmit", "PreToolUse",
    "PostToolUse",  "PostToolUseFailure", "Notification",     "Stop",
    "StopFailure",  "PreCompact",         "PostCompact",
};

constexpr Events permissionRequest[] = {"PermissionRequest"};
constexpr Events preToolUse[] = {"PreToolUse"};
constexpr Events copilotPermissionRequest[] = {"permissionRequest"};

constexpr Row agent(Source source, std::string_view raw, std::string_view displayName,
                    std::string_view mark) {
    Row row{};
    row.source = source;
    row.raw = raw;
    row.displayName = displayName;
    row.mark = mark;
    row.isAgent = true;
    return row;
}

constexpr Row activity(Source source, std::string_view raw, std::string_view displayName,
                       std::string_view mark) {
    Row row{};
    row.source = source;
    row.raw = raw;
    row.displayName = displayName;
    row.mark = mark;
    return row;
}

constexpr std::array<Row, allSources.size()> table = [] {
    std::array<Row, allSources.size()> t{};

    Row& claude = t[0] = agent(Source::claude, "claude", "Claude Code", "CC");
    claude.supportsApprovals = claude.supportsQuestions = true;
    claude.configDirectory = ".claude";
    claude.configFile = "settings.json";
    claude.configFileName = "claudeSettings";
    claude.hookEvents = claudeEvents;
    claude.blockingEvents = permissionRequest;
    claude.passesParentPID = true;

    Row& codex = t[1] = agent(Source::codex, "codex", "Codex", "CX");
    codex.supportsApprovals = true;
    codex.configDirectory = ".codex";
    codex.configFile = "hooks.json";
    codex.configFileName = "codexHooks";
    codex.hookEvents = codexEvents;
    codex.blockingEvents = permissionRequest;
    codex.passesParentPID = true;

    Row& grok = t[2] = agent(Source::grok, "grok", "Grok Build", "GK");
    grok.supportsQuestions = grok.asksOnPreToolUse = true;
    grok.configDirectory = ".grok";
    grok.configFile = "hooks/pelmora.json";
    grok.configFileName = "grokHooks";
    grok.detectionVariable = "GROK_HOOK_EVENT";
    grok.detection = Detection::overridesSource;
    grok.ownsFile = true;
    grok.hookEvents = grokEvents;
    grok.blockingEvents = preToolUse;
    grok.reply = ReplyDialect::grok;

    Row& commandCode = t[3] = agent(Source::commandcode, "commandcode", "Command Code", "CM");
    commandCode.configDirectory = ".commandcode";
    commandCode.configFile = "settings.json";
    commandCode.configFileName = "commandCodeSettings";
    commandCode.detectionVariable = "COMMANDCODE_HOOK_EVENT";
    commandCode.detection = Detection::overridesSource;
    commandCode.hookEvents = commandCodeEvents;

    Row& devin = t[4] = agent(Source::devin, "devin", "Devin", "DV");
    devin.supportsApprovals = true;
    devin.configDirectory = ".config/devin";
    devin.configFile = "config.json";
    devin.configFileName = "devinConfig";
    devin.detectionVariable = "DEVIN_PROJECT_DIR";
    devin.detection = Detection::whenUnnamed;
    devin.hookEvents = devinEvents;
    devin.blockingEvents = permissionRequest;
    devin.reply = ReplyDialect::devin;

    Row& qwen = t[5] = agent(Source::qwen, "qwen", "Qwen Code", "QW");
    qwen.supportsApprovals = true;
    qwen.configDirectory = ".qwen";
    qwen.configFile = "settings.json";
    qwen.configFileName = "qwenSettings";
    qwen.detectionVariable = "QWEN_PROJECT_DIR";
    qwen.detection = Detection::whenUnnamed;
    qwen.hookEvents = claudeEvents;
    qwen.blockingEvents = permissionRequest;
    // Qwen Code before its seconds form read every value as milliseconds, and
    // later versions still read 1000 and above so: only this form holds a
    // permission request for the whole wait everywhere.
    qwen.timeoutUnit = TimeoutUnit::milliseconds;

    Row& copilot = t[6] = agent(Source::copilot, "copilot", "GitHub Copilot", "CP");
    copilot.supportsApprovals = true;
    copilot.configDirectory = ".copilot";
    copilot.configFile = "hooks/pelmora.json";
    copilot.configFileName = "copilotHooks";
    copilot.hookFormat = HookFormat::copilot;
    copilot.ownsFile = true;
    copilot.hookEvents = copilotEvents;
    copilot.blockingEvents = copilotPermissionRequest;
    copilot.reply = ReplyDialect::copilot;

    Row& pi = t[7] = agent(Source::pi, "pi", "pi", "PI");
    pi.configDirectory = ".pi";
    pi.configFile = "agent/extensions/pelmora.ts";
    pi.configFileName = "piExtension";
    pi.hookFormat = HookFormat::piExtension;
    pi.ownsFile = true;
    pi.hookEvents = piEvents;

    Row& kimi = t[8] = agent(Source::kimi, "kimi", "Kimi Code", "KM");
    kimi.configDirectory = ".kimi";
    kimi.alternativeConfigDirectory = ".kimi-code";
    kimi.configFile = "config.toml";
    kimi.configFileName = "kimiConfig";
    kimi.hookFormat = HookFormat::kimiTOML;
    kimi.hookEvents = kimiEvents;

    t[9] = activity(Source::build, "build", "Build & Test", "RUN");
    t[10] = activity(Source::service, "service", "Local Services", "SVC");
    t[11] = activity(Source::git, "git", "Git & CI", "GIT");
    t[12] = activity(Source::update, "update", "Updates", "UPD");
    return t;
}();

constexpr bool inDeclarationOrder() {
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (table[i].source != allSources[i]) {
            return false;
        }
    }
    return true;
}
static_assert(inDeclarationOrder(), "one row per source, in declaration order");

} // namespace

std::span<const Row> rows() {
    return table;
}

const Row& row(Source source) {
    return table[static_cast<std::size_t>(source)];
}

} // namespace pelmora::Agents
