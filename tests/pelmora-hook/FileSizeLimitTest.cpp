#include <gtest/gtest.h>

#include "common/ProcessRunner.h"

namespace pelmora {
namespace {

// Under `ulimit -f` a write past the limit raises SIGXFSZ, whose default is
// to kill: the agent would see a failing hook and a torn temporary remain.
TEST(HookUnderAFileSizeLimit, EndsQuietlyAndKeepsTheOldSessionFile) {
    testing::TempHome home;
    const std::string event =
        R"({"hook_event_name":"UserPromptSubmit","session_id":"s","cwd":"/w","prompt":"Tidy up"})";
    ASSERT_EQ(testing::run({testing::hookBinary()}, home.environment(), event).exitStatus, 0);
    const std::filesystem::path file = home.sessions() / "claude-s.json";
    const std::optional<std::string> before = Files::read(file);
    ASSERT_TRUE(before);

    testing::Child limited({testing::hookBinary()}, home.environment(), event, false,
                           before->size() / 2);
    const testing::Finished done = limited.finish();
    EXPECT_EQ(done.signal, 0);
    EXPECT_EQ(done.exitStatus, 0);
    EXPECT_EQ(done.err, "");
    EXPECT_EQ(Files::read(file), before);
    for (const auto& entry : std::filesystem::directory_iterator(home.sessions())) {
        EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
    }
}

} // namespace
} // namespace pelmora
