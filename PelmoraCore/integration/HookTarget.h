#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "hook/Agents.h"
#include "hook/Source.h"

namespace pelmora {

// Where and how one agent learns about pelmora-hook: the configuration file,
// the hook events registered in it, and the timeouts. Built from the agent's
// row (hook/Agents.h), so a new agent needs no change here.
//
//     HookTarget claude = HookTarget::target(Source::claude, "/Users/ana");
//     claude.fileURL   // "/Users/ana/.claude/settings.json"
struct HookTarget {
    using Kind = Agents::HookFormat;

    // The seconds an agent may wait for a blocking event (the user answers
    // in the notch); every other event gets shortTimeout.
    static constexpr int blockingTimeout = 130;
    static constexpr int shortTimeout = 5;

    Source source = Source::claude;
    std::filesystem::path fileURL;
    std::vector<std::string> events;
    // The whole file is the product's: it may be deleted once nothing else is in it.
    bool ownsFile = false;
    Kind kind = Kind::json;
    // Key path of the object whose members are the event names.
    std::vector<std::string> container;
    // Key path of a boolean that must be true for hooks to run (no agent has one yet).
    std::optional<std::vector<std::string>> enableFlag;
    std::set<std::string> blockingEvents;

    bool operator==(const HookTarget&) const = default;

    // The agent's target under `home`. A source that is not an agent (build,
    // git, ...) gets Claude Code's target: callers that pass a session's
    // source rely on that. Kimi's file depends on which of its folders
    // exists, so it is looked up on every call.
    static HookTarget target(Source source, const std::filesystem::path& home);
    // The same under the home folder from the password database.
    static HookTarget target(Source source);
    // Every agent's target under `home`, in declaration order.
    static std::vector<HookTarget> all(const std::filesystem::path& home);

    // The timeout written for `event`, in the unit the agent reads.
    int timeout(std::string_view event) const;
};

std::string_view rawValue(HookTarget::Kind kind);

} // namespace pelmora
