#include "integration/HookTarget.h"

#include "hook/PelmoraPaths.h"

namespace pelmora {

HookTarget HookTarget::target(Source source, const std::filesystem::path& home) {
    const Agents::Row& row = Agents::row(isAgent(source) ? source : Source::claude);
    HookTarget target;
    target.source = row.source;
    target.fileURL = PelmoraPaths::configFile(row.source, home).value_or(std::filesystem::path());
    target.events.assign(row.hookEvents.begin(), row.hookEvents.end());
    target.ownsFile = row.ownsFile;
    target.kind = row.hookFormat;
    target.container = {"hooks"};
    target.blockingEvents.insert(row.blockingEvents.begin(), row.blockingEvents.end());
    return target;
}

HookTarget HookTarget::target(Source source) {
    return target(source, PelmoraPaths::home());
}

std::vector<HookTarget> HookTarget::all(const std::filesystem::path& home) {
    std::vector<HookTarget> targets;
    for (Source agent : agentSources) {
        targets.push_back(target(agent, home));
    }
    return targets;
}

int HookTarget::timeout(std::string_view event) const {
    const int seconds =
        blockingEvents.count(std::string(event)) > 0 ? blockingTimeout : shortTimeout;
    return Agents::row(source).timeoutUnit == Agents::TimeoutUnit::milliseconds ? seconds * 1000
                                                                                : seconds;
}

std::string_view rawValue(HookTarget::Kind kind) {
    switch (kind) {
    case HookTarget::Kind::json:
        return "json";
    case HookTarget::Kind::copilot:
        return "copilot";
    case HookTarget::Kind::kimiTOML:
        return "kimiTOML";
    case HookTarget::Kind::piExtension:
        return "piExtension";
    }
    return "json";
}

} // namespace pelmora
