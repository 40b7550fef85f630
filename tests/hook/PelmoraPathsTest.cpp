#include "hook/PelmoraPaths.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <pwd.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "hook/AgentDetection.h"
#include "platform/Error.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;

// A temporary home, and HOME and PELMORA_HOME put back as they were.
class PelmoraPathsTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"HOME", "PELMORA_HOME"}) {
            if (const char* value = getenv(name)) {
                saved[name] = value;
            }
        }
        char pattern[] = "/tmp/pelmora-paths-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        root = pattern;
    }
    void TearDown() override {
        for (const char* name : {"HOME", "PELMORA_HOME"}) {
            saved.contains(name) ? setenv(name, saved[name].c_str(), 1) : unsetenv(name);
        }
        fs::remove_all(root);
    }
    void touch(const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << "x";
    }
    std::map<std::string, std::string> saved;
    fs::path root;
};

TEST_F(PelmoraPathsTest, EverythingHangsOffTheSupportDirectoryOrTheRealHome) {
    setenv("HOME", "/nonexistent/not-the-home", 1);
    const struct passwd* entry = getpwuid(getuid());
    const fs::path home = entry ? entry->pw_dir : "/";
    EXPECT_EQ(PelmoraPaths::home(), home);
    unsetenv("PELMORA_HOME");
    EXPECT_EQ(PelmoraPaths::supportDirectory(), home / "Library/Application Support/Pelmora");
    setenv("PELMORA_HOME", "", 1);
    EXPECT_EQ(PelmoraPaths::supportDirectory(), home / "Library/Application Support/Pelmora");
    setenv("PELMORA_HOME", "/srv/pelmora", 1);
    EXPECT_EQ(PelmoraPaths::supportDirectory(), "/srv/pelmora");
    EXPECT_EQ(PelmoraPaths::sessionsDirectory(), "/srv/pelmora/sessions");
    EXPECT_EQ(PelmoraPaths::logsDirectory(), "/srv/pelmora/logs");
    EXPECT_EQ(PelmoraPaths::backupsDirectory(), "/srv/pelmora/backups");
    EXPECT_EQ(PelmoraPaths::binDirectory(), "/srv/pelmora/bin");
    EXPECT_EQ(PelmoraPaths::installedHookBinary(), "/srv/pelmora/bin/pelmora-hook");
    EXPECT_EQ(PelmoraPaths::installedCLIBinary(), "/srv/pelmora/bin/pelmora");
    EXPECT_EQ(PelmoraPaths::approvalSocket(), "/srv/pelmora/approval.sock");
    EXPECT_EQ(PelmoraPaths::alertSocket(), "/srv/pelmora/alert.sock");

    EXPECT_EQ(PelmoraPaths::claudeSettings(), home / ".claude/settings.json");
    EXPECT_EQ(PelmoraPaths::codexHooks(), home / ".codex/hooks.json");
    EXPECT_EQ(PelmoraPaths::grokHooks(), home / ".grok/hooks/pelmora.json");
    EXPECT_EQ(PelmoraPaths::commandCodeSettings(), home / ".commandcode/settings.json");
    EXPECT_EQ(PelmoraPaths::devinConfig(), home / ".config/devin/config.json");
    EXPECT_EQ(PelmoraPaths::qwenSettings(), home / ".qwen/settings.json");
    EXPECT_EQ(PelmoraPaths::copilotHooks(), home / ".copilot/hooks/pelmora.json");
    EXPECT_EQ(PelmoraPaths::piExtension(), home / ".pi/agent/extensions/pelmora.ts");
    EXPECT_EQ(PelmoraPaths::kimiConfig(), PelmoraPaths::kimiConfig(home));
}

TEST_F(PelmoraPathsTest, SocketsMoveToTmpPastNinetyNineBytes) {
    const std::string uid = std::to_string(getuid());
    // The limit counts bytes, so a two-byte character counts twice.
    const std::string fits = "/tmp/\u00E9" + std::string(99 - 14 - 7, 'x');
    ASSERT_EQ((fs::path(fits) / "approval.sock").string().size(), 99u);
    setenv("PELMORA_HOME", fits.c_str(), 1);
    EXPECT_EQ(PelmoraPaths::approvalSocket(), fs::path(fits) / "approval.sock");
    EXPECT_EQ(PelmoraPaths::alertSocket(), fs::path(fits) / "alert.sock");
    setenv("PELMORA_HOME", (fits + "x").c_str(), 1);
    EXPECT_EQ(PelmoraPaths::approvalSocket(), "/tmp/pelmora-" + uid + ".sock");
    // The alert socket's own path would fit; it moves with the other.
    EXPECT_EQ(PelmoraPaths::alertSocket(), "/tmp/pelmora-" + uid + "-alert.sock");
    EXPECT_EQ(PelmoraPaths::supportDirectory(), fits + "x");
}

TEST_F(PelmoraPathsTest, KimiConfigPrefersTheKimiFolder) {
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi/config.toml");
    touch(root / ".kimi-code/config.toml");
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi-code/config.toml");
    touch(root / ".kimi/config.toml");
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi/config.toml");
}

TEST_F(PelmoraPathsTest, EnsureDirectoryIsOwnerOnly) {
    const mode_t old = umask(0);
    PelmoraPaths::ensureDirectory(root / "a/b/c");
    umask(old);
    for (const fs::path& dir : {root / "a", root / "a/b", root / "a/b/c"}) {
        struct stat info {};
        ASSERT_EQ(stat(dir.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0700u) << dir;
    }
    EXPECT_NO_THROW(PelmoraPaths::ensureDirectory(root / "a/b/c"));
    touch(root / "file");
    EXPECT_THROW(PelmoraPaths::ensureDirectory(root / "file"), Error);
    EXPECT_THROW(PelmoraPaths::ensureDirectory(root / "file/below"), Error);
}

TEST_F(PelmoraPathsTest, AgentDetectionFindsAnyEntryInDeclarationOrder) {
    EXPECT_EQ(AgentDetection::configDirectory(Source::claude, "/h"), "/h/.claude");
    EXPECT_EQ(AgentDetection::configDirectory(Source::devin, "/h"), "/h/.config/devin");
    EXPECT_EQ(AgentDetection::configDirectory(Source::pi, "/h"), "/h/.pi");
    for (Source source : allSources) {
        EXPECT_EQ(AgentDetection::configDirectory(source, "/h").has_value(), isAgent(source));
    }

    EXPECT_TRUE(AgentDetection::detected(root).empty());
    fs::create_directories(root / ".kimi-code");
    fs::create_directories(root / ".config/devin");
    touch(root / ".codex"); // a file counts too
    // A dangling link still shows the agent was set up here.
    fs::create_symlink(root / "gone", root / ".qwen");
    fs::create_directories(root / ".claude");
    const std::vector<Source> expected{Source::claude, Source::codex, Source::devin, Source::qwen,
                                       Source::kimi};
    EXPECT_EQ(AgentDetection::detected(root), expected);
    EXPECT_EQ(AgentDetection::configDirectory(Source::kimi, root), root / ".kimi");
    // Both Kimi folders: still one entry.
    fs::create_directories(root / ".kimi");
    EXPECT_EQ(AgentDetection::detected(root), expected);
    EXPECT_TRUE(AgentDetection::detected(root / "missing").empty());
}

} // namespace
} // namespace pelmora
