#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "HookRun.h"
#include "json/OrderedJSON.h"
#include "support/Files.h"

namespace pelmora {
namespace {

using testing::runHook;
using testing::RunOptions;
using testing::RunResult;
using testing::TempHome;

const std::string statusInput =
    R"({"hook_event_name":"Status","session_id":"abc","cwd":"/Users/ann/shop",)"
    R"("model":{"id":"claude-opus-4","display_name":"Opus"},"workspace":{"current_dir":"/Users/ann/shop"},)"
    R"("cost":{"total_cost_usd":0.42},"rate_limits":{"five_hour":{"used_percentage":41.5,"resets_at":1763812800},)"
    R"("seven_day":{"used_percentage":12,"resets_at":1764300000}}})";

void saveOriginal(const TempHome& home, const std::string& object) {
    Files::atomicReplace(home.path() / "statusline-original.json", object, 0600);
}

RunResult statusLine(const TempHome& home, std::string input, double holdStdinOpen = 0) {
    RunOptions options;
    options.arguments = {"--source", "codex", "--statusline"};
    options.input = std::move(input);
    options.holdStdinOpen = holdStdinOpen;
    return runHook(home, options);
}

TEST(StatusLineMode, RecordsUsageAndForwardsToTheUsersCommand) {
    TempHome home;
    saveOriginal(home, R"({
  "type": "command",
  "command": "cat > \"$PELMORA_HOME/seen.json\"; printf 'Opus | shop'; echo oops >&2; exit 3",
  "padding": 0
})");
    RunResult result = statusLine(home, statusInput);
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.out, "Opus | shop");
    EXPECT_EQ(result.err, "oops\n") << "the user's command keeps our stderr";
    EXPECT_EQ(Files::read(home.path() / "seen.json"), statusInput);

    std::optional<std::string> usage = Files::read(home.path() / "usage" / "claude.json");
    ASSERT_TRUE(usage);
    JSONValue recorded = OrderedJSON::parse(*usage);
    ASSERT_TRUE(recorded.find("rate_limits"));
    EXPECT_EQ(OrderedJSON::serializeCompact(*recorded.find("rate_limits")),
              OrderedJSON::serializeCompact(*OrderedJSON::parse(statusInput).find("rate_limits")));
    ASSERT_TRUE(recorded.find("updated_at") && recorded.find("updated_at")->doubleValue());
    EXPECT_GT(*recorded.find("updated_at")->doubleValue(), 1.7e9);

    // Without rate limits the last figures survive.
    result = statusLine(home, R"({"session_id":"abc","model":{"id":"x"}})");
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(Files::read(home.path() / "usage" / "claude.json"), usage);
}

TEST(StatusLineMode, NothingToForwardEndsQuietly) {
    TempHome home;
    RunResult result = statusLine(home, statusInput);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(std::filesystem::exists(home.path() / "usage" / "claude.json"));

    saveOriginal(home, R"({"type":"static","text":"hello"})");
    result = statusLine(home, "not json at all");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "");

    saveOriginal(home, "{ damaged");
    result = statusLine(home, statusInput);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "");
}

TEST(StatusLineMode, WaitsForItsInputWithoutTheGuard) {
    TempHome home;
    saveOriginal(home, R"({"type":"command","command":"wc -c"})");
    RunResult result = statusLine(home, statusInput, 3);
    EXPECT_FALSE(result.killed);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_GE(result.seconds, 2.5);
    EXPECT_EQ(result.out, std::to_string(statusInput.size()) + "\n");
}

} // namespace
} // namespace pelmora
