#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "HookRun.h"
#include "json/OrderedJSON.h"
#include "support/Files.h"

namespace pelmora {
namespace {

using testing::runHook;
using testing::RunResult;
using testing::TempHome;

const std::string statusInput =
    R"({"hook_event_name":"Status","session_id":"abc","cwd":"/Users/ann/shop","model":{"id":"o"},)"
    R"("rate_limits":{"five_hour":{"used_percentage":41.5,"resets_at":1763812800},)"
    R"("seven_day":{"used_percentage":12,"resets_at":1764300000}}})";

RunResult statusLine(const TempHome& home, std::string input, double holdStdinOpen = 0) {
    return runHook(home,
                   {{"--source", "codex", "--statusline"}, {}, std::move(input), holdStdinOpen});
}

void saveOriginal(const TempHome& home, const std::string& object) {
    Files::atomicReplace(home.path() / "statusline-original.json", object, 0600);
}

TEST(StatusLineMode, RecordsUsageAndForwardsToTheUsersCommand) {
    TempHome home;
    saveOriginal(home,
                 R"({"type": "command", "padding": 0, "command":)"
                 R"( "cat > \"$PELMORA_HOME/seen.json\"; printf 'Opus'; echo oops >&2; exit 3"})");
    RunResult result = statusLine(home, statusInput);
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.out, "Opus");
    EXPECT_EQ(result.err, "oops\n") << "the user's command keeps our stderr";
    EXPECT_EQ(Files::read(home.path() / "seen.json"), statusInput);
    std::optional<std::string> usage = Files::read(home.path() / "usage" / "claude.json");
    ASSERT_TRUE(usage);
    EXPECT_EQ(OrderedJSON::serializeCompact(*OrderedJSON::parse(*usage).find("rate_limits")),
              OrderedJSON::serializeCompact(*OrderedJSON::parse(statusInput).find("rate_limits")));

    // A command that ends without reading its input, and one killed by a signal.
    saveOriginal(home, R"({"type":"command","command":"exit 0"})");
    EXPECT_EQ(statusLine(home, std::string(1 << 20, 'x')).exitStatus, 0);
    saveOriginal(home, R"({"type":"command","command":"kill -TERM $$"})");
    EXPECT_EQ(statusLine(home, statusInput).exitStatus, SIGTERM);
}

TEST(StatusLineMode, NothingToForwardEndsQuietly) {
    for (const char* original : {"", R"({"type":"static","text":"hello"})", "{ damaged"}) {
        TempHome home;
        if (*original != '\0') {
            saveOriginal(home, original);
        }
        RunResult result = statusLine(home, "not json at all");
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.out + result.err, "") << original;
    }
}

TEST(StatusLineMode, WaitsForItsInputWithoutTheGuard) {
    TempHome home;
    saveOriginal(home, R"({"type":"command","command":"wc -c"})");
    RunResult result = statusLine(home, statusInput, 3);
    EXPECT_FALSE(result.killed);
    EXPECT_GE(result.seconds, 2.5);
    EXPECT_EQ(result.out, std::to_string(statusInput.size()) + "\n");
}

} // namespace
} // namespace pelmora
