#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "usage/UsageTracker.h"

// Grok's credit usage as its CLI proxy's billing endpoint reports it. The
// app reads the auth file and makes the request; this reader only names
// the places and reads the bytes.
namespace pelmora::GrokUsage {

// Relative to the home directory.
inline constexpr std::string_view authFile = ".grok/auth.json";
// Queried with the token as a bearer authorization header.
inline constexpr std::string_view billingURL =
    "https://cli-chat-proxy.grok.com/v1/billing?format=credits";
// The auth file keys its entries "<issuer>::<account>".
inline constexpr std::string_view authIssuer = "https://auth.x.ai";

// The first entry, in file order, whose key begins with authIssuer and "::",
// that holds a token ("access_token", else "token") with an ISO 8601
// "expires_at" more than 30 seconds after `now`.
std::optional<std::string> token(std::string_view authFileData, double now);

// "grok.credits": "creditUsagePercent" used over the billing period, from
// "currentPeriod" ("start", "end") or "billingPeriodStart" and
// "billingPeriodEnd". Each member is looked for in "config" first and at the
// top level second. None without a percentage or a period end; a period
// without a start gives a length of 0 minutes.
std::optional<UsageWindow> window(std::string_view billing);

} // namespace pelmora::GrokUsage
