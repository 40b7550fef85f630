#include <cstdlib>
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

// What Claude Code hands its status-line command, trimmed to a few of its fields.
const std::string statusLine = R"({
  "hook_event_name": "Status",
  "session_id": "5f1c2a9e-8d3b-4e7f-a1c0-2b9d6e4f8a13",
  "model": {"id": "claude-opus-4-1-20250805", "display_name": "Opus 4.1"},
  "cost": {"total_cost_usd": 1.8342, "total_duration_ms": 912044},
  "rate_limits": {
    "five_hour": {"used_percentage": 42.5, "resets_at": 1795359600},
    "seven_day": {"used_percentage": 81, "resets_at": 1795946400}
  }
})";

const std::string codexMessage =
    R"({"timestamp":"2026-11-22T09:59:40.004Z","type":"response_item","payload":{"type":"message",)"
    R"("role":"assistant","content":[{"type":"output_text","text":"The rate_limits and )"
    R"(used_percent fields look fine."}]}})";
const std::string codexTokenCount =
    R"({"timestamp":"2026-11-22T09:59:58.532Z","type":"event_msg","payload":{"type":"token_count",)"
    R"("info":{"total_token_usage":{"input_tokens":51234,"cached_input_tokens":40960,)"
    R"("output_tokens":2210,"reasoning_output_tokens":1024,"total_tokens":53444},)"
    R"("model_context_window":272000},"rate_limits":{)"
    R"("primary":{"used_percent":37.0,"window_minutes":300,"resets_at":1795359600},)"
    R"("secondary":{"used_percent":12.5,"window_minutes":10080,"resets_at":1795946400}}}})";

const std::string malformed[] = {
    "", "{", "[]", "null", "\"rate_limits\"", "{\"rate_limits\":[]}", std::string(2000, '[')};

} // namespace

TEST(ClaudeUsage, RecordsRateLimitsAndReadsThemBack) {
    std::optional<std::string> recorded = ClaudeUsage::record(statusLine, now + 0.25);
    ASSERT_TRUE(recorded);
    EXPECT_EQ(*recorded, R"({"rate_limits":{"five_hour":{"resets_at":1795359600,)"
                         R"("used_percentage":42.5},"seven_day":{"resets_at":1795946400,)"
                         R"("used_percentage":81}},"updated_at":1795341600.25})");
    EXPECT_EQ(ClaudeUsage::windows(*recorded),
              (std::vector<UsageWindow>{
                  {"claude.five_hour", Source::claude, 300, 42.5, fiveHourEnd},
                  {"claude.seven_day", Source::claude, 10'080, 81, weekEnd},
              }));

    // Without rate limits nothing is produced, so the last file survives.
    EXPECT_FALSE(ClaudeUsage::record(R"({"model":{"id":"claude-sonnet-4-5"},"cost":{}})", now));
    EXPECT_FALSE(ClaudeUsage::record(R"({"rate_limits":null})", now));

    // Incomplete windows are skipped one by one.
    EXPECT_EQ(ClaudeUsage::windows(
                  R"({"rate_limits":{"seven_day":{"used_percentage":3,"resets_at":1795946400}}})"),
              (std::vector<UsageWindow>{{"claude.seven_day", Source::claude, 10'080, 3, weekEnd}}));
    EXPECT_EQ(ClaudeUsage::windows(R"({"rate_limits":{"five_hour":{"used_percentage":"3",)"
                                   R"("resets_at":1},"seven_day":{"used_percentage":3}}})"),
              std::vector<UsageWindow>{});

    const char* previous = std::getenv("PELMORA_HOME");
    const std::string saved = previous ? previous : "";
    setenv("PELMORA_HOME", "/tmp/pelmora-usage-test", 1);
    EXPECT_EQ(ClaudeUsage::file(), "/tmp/pelmora-usage-test/usage/claude.json");
    previous ? setenv("PELMORA_HOME", saved.c_str(), 1) : unsetenv("PELMORA_HOME");
}

TEST(ClaudeOAuthUsage, TokenOnlyWhileComfortablyValidAndUtilizationWithISODates) {
    auto credentials = [](double expiresInSeconds) {
        return R"({"claudeAiOauth":{"accessToken":"sk-ant-oat01-Qx7","refreshToken":"sk-ant-ort01-Zp2",)"
               R"("expiresAt":)" +
               std::to_string(static_cast<long long>((now + expiresInSeconds) * 1000)) +
               R"(,"scopes":["user:inference","user:profile"],"subscriptionType":"max"}})";
    };
    EXPECT_EQ(ClaudeOAuthUsage::token(credentials(3600), now), "sk-ant-oat01-Qx7");
    EXPECT_EQ(ClaudeOAuthUsage::token(credentials(31), now), "sk-ant-oat01-Qx7");
    // A token about to expire would be refused; better not to ask at all.
    for (double expiresIn : {30, 20, -600}) {
        EXPECT_FALSE(ClaudeOAuthUsage::token(credentials(expiresIn), now)) << expiresIn;
    }
    EXPECT_FALSE(ClaudeOAuthUsage::token(R"({"claudeAiOauth":{"accessToken":"t"}})", now));
    EXPECT_FALSE(
        ClaudeOAuthUsage::token(R"({"claudeAiOauth":{"accessToken":7,"expiresAt":9e15}})", now));

    const std::string response = R"({
      "five_hour": {"utilization": 23.0, "resets_at": "2026-11-22T15:00:00.250000+00:00"},
      "seven_day": {"utilization": 61, "resets_at": "2026-11-29T11:00:00+01:00"},
      "seven_day_oauth_apps": null,
      "seven_day_opus": {"utilization": 0, "resets_at": null}
    })";
    EXPECT_EQ(ClaudeOAuthUsage::windows(response),
              (std::vector<UsageWindow>{
                  {"claude.five_hour", Source::claude, 300, 23, fiveHourEnd + 0.25},
                  {"claude.seven_day", Source::claude, 10'080, 61, weekEnd},
              }));
    EXPECT_TRUE(
        ClaudeOAuthUsage::windows(R"({"five_hour":{"utilization":5,"resets_at":null}})").empty());
    EXPECT_TRUE(
        ClaudeOAuthUsage::windows(R"({"five_hour":{"utilization":5,"resets_at":1795359600}})")
            .empty());
}

TEST(CodexUsage, ReadsTheLatestTokenCountLine) {
    const std::vector<UsageWindow> expected{
        {"codex.primary", Source::codex, 300, 37, fiveHourEnd},
        {"codex.secondary", Source::codex, 10'080, 12.5, weekEnd},
    };
    EXPECT_EQ(CodexUsage::windows(codexTokenCount), expected);
    EXPECT_EQ(CodexUsage::windows(codexTokenCount + "\r"), expected);

    EXPECT_TRUE(CodexUsage::windows(codexMessage).empty());
    // Keys spelled with escapes parse to the same object, but the cheap
    // filter looks at the raw text and never lets the parser see them.
    EXPECT_TRUE(
        CodexUsage::windows(R"({"payload":{"\u0072ate_limits":{"primary":)"
                            R"({"\u0075sed_percent":1,"window_minutes":5,"resets_at":9}}}})")
            .empty());
    EXPECT_EQ(CodexUsage::windows(R"({"payload":{"rate_limits":{"secondary":)"
                                  R"({"used_percent":90,"window_minutes":1440,"resets_at":5}}}})"),
              (std::vector<UsageWindow>{{"codex.secondary", Source::codex, 1'440, 90, 5}}));
    EXPECT_TRUE(
        CodexUsage::windows(R"({"payload":{"rate_limits":{"primary":)"
                            R"({"used_percent":90,"window_minutes":"300","resets_at":5}}}})")
            .empty());

    // The latest record is the last line that yields any window.
    const std::string older = R"({"payload":{"rate_limits":{"primary":)"
                              R"({"used_percent":1,"window_minutes":300,"resets_at":2}}}})";
    const std::string tail =
        "ied_tokens\":12}}}\n" + older + "\n" + codexTokenCount + "\n" + codexMessage + "\n" +
        R"({"type":"event_msg","payload":{"type":"token_count","rate_limits":null}})" + "\n" +
        codexMessage + "\n" + R"({"type":"turn_context"})" + "\n";
    EXPECT_EQ(CodexUsage::latest(tail), expected);
    EXPECT_EQ(CodexUsage::latest(older), CodexUsage::windows(older));
    EXPECT_TRUE(CodexUsage::latest(codexMessage + "\n\n").empty());
    EXPECT_TRUE(CodexUsage::latest("\n").empty());
}

TEST(GrokUsage, TokenFromTheFirstLiveIssuerAndOneWindowPerBillingPeriod) {
    const std::string auth = R"({
      "https://auth.x.ai.example::ana": {"access_token": "wrong-issuer",
                                         "expires_at": "2026-11-23T00:00:00Z"},
      "https://auth.x.ai::expired": {"access_token": "old", "expires_at": "2026-11-22T10:00:20Z"},
      "https://auth.x.ai::ana": {"token": "fresh", "refresh_token": "r",
                                 "expires_at": "2026-11-22T11:00:00Z"},
      "https://auth.x.ai::later": {"access_token": "later", "expires_at": "2026-11-23T00:00:00Z"}
    })";
    EXPECT_EQ(GrokUsage::token(auth, now), "fresh");
    EXPECT_EQ(GrokUsage::token(auth, now - 3600), "old");
    EXPECT_EQ(GrokUsage::token(auth, now + 7200), "later");
    EXPECT_FALSE(GrokUsage::token(auth, now + 86'400));
    EXPECT_FALSE(GrokUsage::token(R"({"https://auth.x.ai::a":{"access_token":"t",)"
                                  R"("expires_at":1795345200}})",
                                  now));

    const UsageWindow november{"grok.credits", Source::grok, 43'200, 37.25, 1'796'083'200};
    EXPECT_EQ(GrokUsage::window(R"({
      "config": {"plan": "SuperGrok", "creditUsagePercent": 37.25, "creditLimit": 5000},
      "currentPeriod": {"start": "2026-11-01T00:00:00Z", "end": "2026-12-01T00:00:00Z"}
    })"),
              november);
    EXPECT_EQ(november.kind(), UsageWindow::Kind::month());
    EXPECT_EQ(GrokUsage::window(R"({"config":{"creditUsagePercent":37.25},)"
                                R"("billingPeriodStart":"2026-11-01T00:00:00Z",)"
                                R"("billingPeriodEnd":"2026-12-01T00:00:00Z"})"),
              november);
    // Lengths round to the nearest minute.
    std::optional<UsageWindow> odd = GrokUsage::window(
        R"({"config":{"creditUsagePercent":1,"currentPeriod":{"start":"2026-11-22T10:00:00Z",)"
        R"("end":"2026-11-22T10:10:31Z"}}})");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->minutes, 11);

    EXPECT_FALSE(GrokUsage::window(R"({"config":{"creditUsagePercent":5},)"
                                   R"("currentPeriod":{"start":"2026-11-01T00:00:00Z"}})"));
    EXPECT_FALSE(
        GrokUsage::window(R"({"config":{},"currentPeriod":)"
                          R"({"start":"2026-11-01T00:00:00Z","end":"2026-12-01T00:00:00Z"}})"));
    EXPECT_FALSE(GrokUsage::window(R"({"config":{"creditUsagePercent":5},)"
                                   R"("billingPeriodEnd":"next month"})"));
}

TEST(UsageReaders, MalformedInputGivesNothing) {
    for (const std::string& bad : malformed) {
        EXPECT_FALSE(ClaudeUsage::record(bad, now)) << bad;
        EXPECT_TRUE(ClaudeUsage::windows(bad).empty()) << bad;
        EXPECT_FALSE(ClaudeOAuthUsage::token(bad, now)) << bad;
        EXPECT_TRUE(ClaudeOAuthUsage::windows(bad).empty()) << bad;
        EXPECT_TRUE(CodexUsage::windows(bad).empty()) << bad;
        EXPECT_TRUE(CodexUsage::latest(bad).empty()) << bad;
        EXPECT_FALSE(GrokUsage::token(bad, now)) << bad;
        EXPECT_FALSE(GrokUsage::window(bad)) << bad;
    }
}
