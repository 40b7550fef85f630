#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "usage/UsageTracker.h"

// The rate limits that Claude Code hands its status-line command: recorded
// by the hook in status-line mode, read back by the app.
namespace pelmora::ClaudeUsage {

// "usage/claude.json" in the support directory.
std::filesystem::path file();

// The bytes to store in file(): compact JSON holding the input's
// "rate_limits" value unchanged and "updated_at" (`now`, seconds since 1970).
// None when the input has no "rate_limits" object, so that the last
// recorded figures survive a status line that lacks them.
std::optional<std::string> record(std::string_view input, double now);

// "claude.five_hour" and "claude.seven_day" from a recorded file, each only
// when it has a numeric "used_percentage" and "resets_at".
std::vector<UsageWindow> windows(std::string_view data);

} // namespace pelmora::ClaudeUsage
