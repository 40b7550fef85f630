#include "usage/CodexUsage.h"

#include <array>

#include "usage/UsageJSON.h"

namespace pelmora::CodexUsage {

namespace {

struct Slot {
    std::string_view key;
    std::string_view id;
};
constexpr std::array<Slot, 2> slots{{
    {"primary", "codex.primary"},
    {"secondary", "codex.secondary"},
}};

// Only the opening quote is required, so a key split oddly by an encoder
// still reaches the parser; the parse decides.
bool mayHoldRateLimits(std::string_view line) {
    return line.find("\"rate_limits") != std::string_view::npos ||
           line.find("\"used_percent") != std::string_view::npos;
}

} // namespace

std::vector<UsageWindow> windows(std::string_view line) {
    std::vector<UsageWindow> result;
    if (!mayHoldRateLimits(line)) {
        return result;
    }
    std::optional<JSONValue> record = UsageJSON::parseObject(line);
    const JSONValue* payload = UsageJSON::object(record ? &*record : nullptr, "payload");
    const JSONValue* limits = UsageJSON::object(payload, "rate_limits");
    for (const Slot& slot : slots) {
        const JSONValue* window = UsageJSON::object(limits, slot.key);
        std::optional<double> used = UsageJSON::number(window, "used_percent");
        std::optional<double> length = UsageJSON::number(window, "window_minutes");
        std::optional<double> resetsAt = UsageJSON::number(window, "resets_at");
        std::optional<int> minutes = length ? UsageJSON::wholeMinutes(*length) : std::nullopt;
        if (used && minutes && resetsAt) {
            result.push_back({std::string(slot.id), Source::codex, *minutes, *used, *resetsAt});
        }
    }
    return result;
}

std::vector<UsageWindow> latest(std::string_view tail) {
    std::size_t end = tail.size();
    while (end > 0) {
        const std::size_t newline = tail.rfind('\n', end - 1);
        const std::size_t start = newline == std::string_view::npos ? 0 : newline + 1;
        std::vector<UsageWindow> found = windows(tail.substr(start, end - start));
        if (!found.empty()) {
            return found;
        }
        if (newline == std::string_view::npos) {
            break;
        }
        end = newline;
    }
    return {};
}

} // namespace pelmora::CodexUsage
