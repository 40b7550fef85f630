#include "usage/UsageTracker.h"

#include "json/KeyedJSON.h"

namespace pelmora {

UsageWindow::Kind UsageWindow::kind() const {
    switch (minutes) {
    case 300:
        return Kind::fiveHours();
    case 1'440:
        return Kind::day();
    case 10'080:
        return Kind::week();
    default:
        break;
    }
    if (minutes >= 40'320 && minutes <= 44'640) {
        return Kind::month();
    }
    return Kind::other(minutes);
}

double UsageWindow::percent(double at) const {
    return resetsAt <= at ? 0 : usedPercent;
}

JSONValue UsageWindow::toJSON() const {
    JSONObjectWriter out;
    out.put("id", id);
    out.putRaw("agent", agent);
    out.put("minutes", JSONValue::integer(minutes));
    out.put("usedPercent", JSONValue::number(usedPercent));
    out.put("resetsAt", JSONValue::number(resetsAt));
    return out.finish();
}

std::optional<UsageWindow> UsageWindow::fromJSON(const JSONValue& json,
                                                 JSONDecodeFailure* failure) {
    JSONObjectReader in(json);
    UsageWindow window{in.requiredString("id"), in.requiredRaw<Source>("agent"),
                       in.requiredInteger<int>("minutes"), in.requiredDouble("usedPercent"),
                       in.requiredDouble("resetsAt")};
    return in.finish(std::move(window), failure);
}

std::optional<UsageStage> usageStageFromRaw(int raw) {
    for (UsageStage stage :
         {UsageStage::none, UsageStage::warn80, UsageStage::warn95, UsageStage::exhausted}) {
        if (rawValue(stage) == raw) {
            return stage;
        }
    }
    return std::nullopt;
}

UsageStage stageFor(double percent) {
    if (percent >= 99.9) {
        return UsageStage::exhausted;
    }
    if (percent >= 95.0) {
        return UsageStage::warn95;
    }
    if (percent >= 80.0) {
        return UsageStage::warn80;
    }
    return UsageStage::none;
}

std::vector<UsageEvent> UsageTracker::update(double now, const std::vector<UsageWindow>& windows) {
    const bool hadSeen = seen;
    seen = true;

    std::vector<UsageEvent> events;
    for (const UsageWindow& window : windows) {
        const UsageStage stage =
            window.resetsAt <= now ? UsageStage::none : stageFor(window.usedPercent);
        // Silence on the first reading keeps a restart from re-announcing
        // warnings the user has already seen; being out is news regardless.
        const bool announce = hadSeen || stage == UsageStage::exhausted;

        auto stored = stages.find(window.id);
        if (stored != stages.end()) {
            const UsageStage previous = stored->second;
            if (stage > previous) {
                if (announce) {
                    events.push_back({UsageEvent::Kind::reached(stage), window});
                }
            } else if (stage < previous && previous == UsageStage::exhausted) {
                events.push_back({UsageEvent::Kind::reset(), window});
            }
            stored->second = stage;
        } else {
            if (stage != UsageStage::none && announce) {
                events.push_back({UsageEvent::Kind::reached(stage), window});
            }
            stages.emplace(window.id, stage);
        }
    }
    return events;
}

} // namespace pelmora
