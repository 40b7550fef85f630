#pragma once

#include <string_view>
#include <vector>

#include "usage/UsageTracker.h"

// Codex's rate limits, read from the token-count records of its session logs.
namespace pelmora::CodexUsage {

// "codex.primary" and "codex.secondary" from one log line, each only when it
// has numeric "used_percent", "window_minutes" and "resets_at" under
// "payload"."rate_limits". Lines that cannot be rate-limit records are
// rejected before any parsing, since most lines of a long log are not.
std::vector<UsageWindow> windows(std::string_view line);

// The windows of the last line of `tail` that has any; empty when none does.
std::vector<UsageWindow> latest(std::string_view tail);

} // namespace pelmora::CodexUsage
