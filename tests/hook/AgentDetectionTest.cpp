#include "hook/AgentDetection.h"

#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "hook/HostInfo.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;

class AgentDetectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pelmora-agents-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        home = pattern;
    }
    void TearDown() override { fs::remove_all(home); }
    fs::path home;
};

TEST_F(AgentDetectionTest, ConfigDirectories) {
    EXPECT_EQ(AgentDetection::configDirectory(Source::claude, "/h"), "/h/.claude");
    EXPECT_EQ(AgentDetection::configDirectory(Source::devin, "/h"), "/h/.config/devin");
    EXPECT_EQ(AgentDetection::configDirectory(Source::pi, "/h"), "/h/.pi");
    EXPECT_EQ(AgentDetection::configDirectory(Source::kimi, "/h"), "/h/.kimi");
    for (Source activity : {Source::build, Source::service, Source::git, Source::update}) {
        EXPECT_FALSE(AgentDetection::configDirectory(activity, "/h"));
    }
    for (Source agent : agentSources) {
        EXPECT_TRUE(AgentDetection::configDirectory(agent, "/h"));
    }
}

TEST_F(AgentDetectionTest, DetectsAnyEntryInDeclarationOrder) {
    EXPECT_TRUE(AgentDetection::detected(home).empty());

    fs::create_directories(home / ".kimi-code");
    fs::create_directories(home / ".config/devin");
    std::ofstream(home / ".codex") << "a file counts too";
    // A dangling link still shows the agent was set up here.
    fs::create_symlink(home / "gone", home / ".qwen");
    fs::create_directories(home / ".claude");
    std::vector<Source> expected{Source::claude, Source::codex, Source::devin, Source::qwen,
                                 Source::kimi};
    EXPECT_EQ(AgentDetection::detected(home), expected);

    // Both Kimi folders: still one entry.
    fs::create_directories(home / ".kimi");
    EXPECT_EQ(AgentDetection::detected(home), expected);
    EXPECT_EQ(AgentDetection::configDirectory(Source::kimi, home), home / ".kimi");
    EXPECT_TRUE(AgentDetection::detected(home / "missing").empty());
}

TEST(HostInfo, FromEnvironmentTakesValuesAsTheyAre) {
    HostInfo::Environment env{
        {"TERM_PROGRAM", "iTerm.app"},
        {"TERM_SESSION_ID", ""},
        {"ITERM_SESSION_ID", "w0t0p0:ABC"},
        {"TMUX", ""},
        {"__CFBundleIdentifier", "com.googlecode.iterm2"},
        {"PATH", "/bin"},
    };
    HostInfo host = HostInfo::fromEnvironment(env, "/dev/ttys003");
    EXPECT_EQ(host.termProgram, "iTerm.app");
    EXPECT_EQ(host.termSessionID, std::optional<std::string>(""));
    EXPECT_EQ(host.itermSessionID, "w0t0p0:ABC");
    EXPECT_TRUE(host.tmux);
    EXPECT_EQ(host.tty, "/dev/ttys003");
    EXPECT_EQ(host.bundleID, "com.googlecode.iterm2");

    EXPECT_EQ(HostInfo::fromEnvironment({}, std::nullopt), HostInfo{});
}

} // namespace
} // namespace pelmora
