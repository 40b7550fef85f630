#include "usage/ClaudeOAuthUsage.h"

#include "usage/UsageJSON.h"

namespace pelmora::ClaudeOAuthUsage {

std::optional<std::string> token(std::string_view credentials, double now) {
    std::optional<JSONValue> parsed = UsageJSON::parseObject(credentials);
    const JSONValue* oauth = UsageJSON::object(parsed ? &*parsed : nullptr, "claudeAiOauth");
    std::optional<double> expiresAt = UsageJSON::number(oauth, "expiresAt");
    if (expiresAt) {
        *expiresAt /= 1000;
    }
    return UsageJSON::liveToken(UsageJSON::text(oauth, "accessToken"), expiresAt, now);
}

std::vector<UsageWindow> windows(std::string_view data) {
    std::vector<UsageWindow> result;
    std::optional<JSONValue> response = UsageJSON::parseObject(data);
    for (const UsageJSON::ClaudeSlot& slot : UsageJSON::claudeSlots) {
        const JSONValue* window = UsageJSON::object(response ? &*response : nullptr, slot.key);
        std::optional<double> utilization = UsageJSON::number(window, "utilization");
        std::optional<double> resetsAt = UsageJSON::date(window, "resets_at");
        if (utilization && resetsAt) {
            result.push_back(
                {std::string(slot.id), Source::claude, slot.minutes, *utilization, *resetsAt});
        }
    }
    return result;
}

} // namespace pelmora::ClaudeOAuthUsage
