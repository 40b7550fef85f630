#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "usage/UsageTracker.h"

// Claude's subscription usage as the Anthropic OAuth endpoint reports it.
// The app fetches the credentials (keychain first, the file second) and
// makes the request; this reader only names the places and reads the bytes.
namespace pelmora::ClaudeOAuthUsage {

// Generic-password keychain item holding Claude Code's credentials JSON.
inline constexpr std::string_view keychainService = "Claude Code-credentials";
// The same JSON on disk, relative to the home directory.
inline constexpr std::string_view credentialsFile = ".claude/.credentials.json";
// Queried with the token as a bearer authorization header.
inline constexpr std::string_view usageURL = "https://api.anthropic.com/api/oauth/usage";

// "claudeAiOauth"."accessToken", only while "expiresAt" (milliseconds since
// 1970) lies more than 30 seconds after `now`: a token about to be refused
// is not worth a request.
std::optional<std::string> token(std::string_view credentials, double now);

// "claude.five_hour" and "claude.seven_day", each only when it has a
// numeric "utilization" and an ISO 8601 "resets_at".
std::vector<UsageWindow> windows(std::string_view data);

} // namespace pelmora::ClaudeOAuthUsage
