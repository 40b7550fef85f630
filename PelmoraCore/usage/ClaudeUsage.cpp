#include "usage/ClaudeUsage.h"

#include "hook/PelmoraPaths.h"
#include "json/OrderedJSON.h"
#include "usage/UsageJSON.h"

namespace pelmora::ClaudeUsage {

std::filesystem::path file() {
    return PelmoraPaths::supportDirectory() / "usage" / "claude.json";
}

std::optional<std::string> record(std::string_view input, double now) {
    std::optional<JSONValue> status = UsageJSON::parseObject(input);
    const JSONValue* limits = UsageJSON::object(status ? &*status : nullptr, "rate_limits");
    if (!limits) {
        return std::nullopt;
    }
    JSONValue stored = JSONValue::object({
        {"rate_limits", *limits},
        {"updated_at", JSONValue::number(now)},
    });
    return OrderedJSON::serializeCompact(stored);
}

std::vector<UsageWindow> windows(std::string_view data) {
    std::vector<UsageWindow> result;
    std::optional<JSONValue> recorded = UsageJSON::parseObject(data);
    const JSONValue* limits = UsageJSON::object(recorded ? &*recorded : nullptr, "rate_limits");
    for (const UsageJSON::ClaudeSlot& slot : UsageJSON::claudeSlots) {
        const JSONValue* window = UsageJSON::object(limits, slot.key);
        std::optional<double> used = UsageJSON::number(window, "used_percentage");
        std::optional<double> resetsAt = UsageJSON::number(window, "resets_at");
        if (used && resetsAt) {
            result.push_back(
                {std::string(slot.id), Source::claude, slot.minutes, *used, *resetsAt});
        }
    }
    return result;
}

} // namespace pelmora::ClaudeUsage
