#include <gtest/gtest.h>
#include <string>

#include "usage/ClaudeOAuthUsage.h"
#include "usage/ClaudeUsage.h"
#include "usage/CodexUsage.h"
#include "usage/GrokUsage.h"

using namespace pelmora;

namespace {

constexpr double now = 1'795'341'600;         // 2026-11-22T10:00:00Z
constexpr double fiveHourEnd = 1'795'359'600; // 2026-11-22T15:00:00Z
constexpr double weekEnd = 1'795'946'400;     // 2026-11-29T10:00:00Z

UsageWindow claudeFiveHour(double percent, double end = fiveHourEnd) {
    return {"claude.five_hour", Source::claude, 300, percent, end};
}
UsageWindow claudeWeek(double percent) {
    return {"claude.seven_day", Source::claude, 10'080, percent, weekEnd};
}

// What Claude Code hands its status-line command, trimmed to a few of its fields.
const std::string statusLine = R"({"hook_event_name": "Status", "session_id": "5f1c2a9e",
  "model": {"id": "claude-opus-4-1-20250805"}, "cost": {"total_cost_usd": 1.8342},
  "rate_limits": {"five_hour": {"used_percentage": 42.5, "resets_at": 1795359600},
                  "seven_day": {"used_percentage": 81, "resets_at": 1795946400}}})";

// Lines of a Codex session log.
const std::string codexMessage =
    R"({"timestamp":"2026-11-22T09:59:40.004Z","type":"response_item","payload":{"type":)"
    R"("message","content":[{"type":"output_text","text":"rate_limits and used_percent"}]}})";
const std::string codexTokenCount =
    R"({"timestamp":"2026-11-22T09:59:58.532Z","type":"event_msg","payload":{"type":)"
    R"("token_count","info":{"total_token_usage":{"input_tokens":51234}},"rate_limits":{)"
    R"("primary":{"used_percent":37.0,"window_minutes":300,"resets_at":1795359600},)"
    R"("secondary":{"used_percent":12.5,"window_minutes":10080,"resets_at":1795946400}}}})";

} // namespace

TEST(ClaudeUsage, RecordsRateLimitsAndReadsThemBack) {
    std::optional<std::string> recorded = ClaudeUsage::record(statusLine, now + 0.25);
    ASSERT_TRUE(recorded);
    EXPECT_EQ(*recorded, R"({"rate_limits":{"five_hour":{"resets_at":1795359600,)"
                         R"("used_percentage":42.5},"seven_day":{"resets_at":1795946400,)"
                         R"("used_percentage":81}},"updated_at":1795341600.25})");
    EXPECT_EQ(ClaudeUsage::windows(*recorded), (std::vector{claudeFiveHour(42.5), claudeWeek(81)}));
    EXPECT_FALSE(ClaudeUsage::record(R"({"rate_limits":null})", now));
    // Incomplete windows are skipped one by one.
    EXPECT_EQ(ClaudeUsage::windows(R"({"rate_limits":{"five_hour":{"used_percentage":"3",)"
                                   R"("resets_at":1},"seven_day":{"used_percentage":3,)"
                                   R"("resets_at":1795946400},"other":{"used_percentage":3}}})"),
              std::vector{claudeWeek(3)});
}

TEST(ClaudeOAuthUsage, TokenOnlyWhileComfortablyValidAndUtilizationWithISODates) {
    auto credentials = [](double expiresInSeconds) {
        return R"({"claudeAiOauth":{"accessToken":"sk-ant-oat01-Qx7","expiresAt":)" +
               std::to_string(static_cast<long long>((now + expiresInSeconds) * 1000)) +
               R"(,"scopes":["user:inference"],"subscriptionType":"max"}})";
    };
    EXPECT_EQ(ClaudeOAuthUsage::token(credentials(31), now), "sk-ant-oat01-Qx7");
    // A token about to expire would be refused; better not to ask at all.
    EXPECT_FALSE(ClaudeOAuthUsage::token(credentials(30), now));
    EXPECT_FALSE(ClaudeOAuthUsage::token(R"({"claudeAiOauth":{"accessToken":"t"}})", now));
    EXPECT_FALSE(
        ClaudeOAuthUsage::token(R"({"claudeAiOauth":{"accessToken":7,"expiresAt":9e15}})", now));

    EXPECT_EQ(ClaudeOAuthUsage::windows(R"({
      "five_hour": {"utilization": 23.0, "resets_at": "2026-11-22T15:00:00.250000+00:00"},
      "seven_day": {"utilization": 61, "resets_at": "2026-11-29T11:00:00+01:00"},
      "seven_day_oauth_apps": null, "seven_day_opus": {"utilization": 0, "resets_at": null}})"),
              (std::vector{claudeFiveHour(23, fiveHourEnd + 0.25), claudeWeek(61)}));
    // The reset time must be an ISO 8601 text.
    EXPECT_TRUE(
        ClaudeOAuthUsage::windows(R"({"five_hour":{"utilization":5,"resets_at":1795359600}})")
            .empty());
}

TEST(CodexUsage, ReadsTheLatestTokenCountLine) {
    const std::vector<UsageWindow> expected{
        {"codex.primary", Source::codex, 300, 37, fiveHourEnd},
        {"codex.secondary", Source::codex, 10'080, 12.5, weekEnd}};
    EXPECT_EQ(CodexUsage::windows(codexTokenCount + "\r"), expected);
    EXPECT_TRUE(CodexUsage::windows(codexMessage).empty());
    EXPECT_TRUE(
        CodexUsage::windows(R"({"payload":{"rate_limits":{"primary":)"
                            R"({"used_percent":90,"window_minutes":"300","resets_at":5}}}})")
            .empty());

    // The latest record is the last line that yields any window; the first
    // line of a tail read from the middle of the file is cut.
    const std::string older = R"({"payload":{"rate_limits":{"secondary":)"
                              R"({"used_percent":90,"window_minutes":1440,"resets_at":5}}}})";
    const std::string tail =
        "ied_tokens\":12}}}\n" + older + "\n" + codexTokenCount + "\n" + codexMessage + "\n" +
        R"({"type":"event_msg","payload":{"type":"token_count","rate_limits":null}})" + "\n\n";
    EXPECT_EQ(CodexUsage::latest(tail), expected);
    EXPECT_EQ(CodexUsage::latest(older),
              (std::vector<UsageWindow>{{"codex.secondary", Source::codex, 1'440, 90, 5}}));
    EXPECT_TRUE(CodexUsage::latest(codexMessage + "\n\n").empty());
}

TEST(GrokUsage, TokenFromTheFirstLiveIssuerAndOneWindowPerBillingPeriod) {
    const std::string auth = R"({
      "https://auth.x.ai.example::a": {"access_token": "x", "expires_at": "2026-11-23T00:00:00Z"},
      "https://auth.x.ai::expired": {"access_token": "old", "expires_at": "2026-11-22T10:00:20Z"},
      "https://auth.x.ai::ana": {"token": "fresh", "expires_at": "2026-11-22T11:00:00Z"},
      "https://auth.x.ai::late": {"access_token": "late", "expires_at": "2026-11-23T00:00:00Z"}})";
    EXPECT_EQ(GrokUsage::token(auth, now), "fresh");
    EXPECT_EQ(GrokUsage::token(auth, now - 3600), "old");
    EXPECT_EQ(GrokUsage::token(auth, now + 7200), "late");
    EXPECT_FALSE(GrokUsage::token(auth, now + 86'400));
    EXPECT_FALSE(GrokUsage::token(
        R"({"https://auth.x.ai::a":{"access_token":"t","expires_at":1795345200}})", now));

    const UsageWindow november{"grok.credits", Source::grok, 43'200, 37.25, 1'796'083'200};
    const std::string period = R"("start":"2026-11-01T00:00:00Z","end":"2026-12-01T00:00:00Z")";
    // The period inside "config" or beside it, as currentPeriod or as billingPeriod dates.
    EXPECT_EQ(GrokUsage::window(R"({"config":{"creditUsagePercent":37.25},"currentPeriod":{)" +
                                period + "}}"),
              november);
    EXPECT_EQ(GrokUsage::window(R"({"config":{"creditUsagePercent":37.25},)"
                                R"("billingPeriodStart":"2026-11-01T00:00:00Z",)"
                                R"("billingPeriodEnd":"2026-12-01T00:00:00Z"})"),
              november);
    // Lengths round to the nearest minute; without an end or a percentage there is no window.
    EXPECT_EQ(GrokUsage::window(R"({"config":{"creditUsagePercent":1,"currentPeriod":{"start":)"
                                R"("2026-11-22T10:00:00Z","end":"2026-11-22T10:10:31Z"}}})")
                  ->minutes,
              11);
    EXPECT_FALSE(GrokUsage::window(R"({"config":{"creditUsagePercent":5,"currentPeriod":{}}})"));
    EXPECT_FALSE(GrokUsage::window(R"({"config":{},"currentPeriod":{)" + period + "}}"));
}
