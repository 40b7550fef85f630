#include "usage/GrokUsage.h"

#include <string>

#include "usage/UsageJSON.h"

namespace pelmora::GrokUsage {

std::optional<std::string> token(std::string_view authFileData, double now) {
    std::optional<JSONValue> parsed = UsageJSON::parseObject(authFileData);
    if (!parsed) {
        return std::nullopt;
    }
    const std::string prefix = std::string(authIssuer) + "::";
    for (const JSONMember& member : *parsed->objectMembers()) {
        if (!member.key.starts_with(prefix)) {
            continue;
        }
        const std::string* value = UsageJSON::text(&member.value, "access_token");
        if (!value) {
            value = UsageJSON::text(&member.value, "token");
        }
        if (auto live =
                UsageJSON::liveToken(value, UsageJSON::date(&member.value, "expires_at"), now)) {
            return live;
        }
    }
    return std::nullopt;
}

namespace {

struct Period {
    std::optional<double> start;
    std::optional<double> end;
};

Period periodIn(const JSONValue* scope) {
    if (const JSONValue* current = UsageJSON::object(scope, "currentPeriod")) {
        Period period{UsageJSON::date(current, "start"), UsageJSON::date(current, "end")};
        if (period.end) {
            return period;
        }
    }
    return {UsageJSON::date(scope, "billingPeriodStart"),
            UsageJSON::date(scope, "billingPeriodEnd")};
}

} // namespace

std::optional<UsageWindow> window(std::string_view billing) {
    std::optional<JSONValue> response = UsageJSON::parseObject(billing);
    if (!response) {
        return std::nullopt;
    }
    const JSONValue* config = UsageJSON::object(&*response, "config");

    std::optional<double> used = UsageJSON::number(config, "creditUsagePercent");
    if (!used) {
        used = UsageJSON::number(&*response, "creditUsagePercent");
    }
    Period period = periodIn(config);
    if (!period.end) {
        period = periodIn(&*response);
    }
    if (!used || !period.end) {
        return std::nullopt;
    }

    std::optional<int> minutes =
        period.start ? UsageJSON::wholeMinutes((*period.end - *period.start) / 60) : 0;
    if (!minutes) {
        return std::nullopt;
    }
    return UsageWindow{"grok.credits", Source::grok, *minutes, *used, *period.end};
}

} // namespace pelmora::GrokUsage
