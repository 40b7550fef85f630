#include "hook/PelmoraPaths.h"

#include <fstream>
#include <gtest/gtest.h>
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

// A temporary folder, and PELMORA_HOME and HOME put back as they were.
class PelmoraPathsTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pelmora-paths-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        root = pattern;
    }
    void TearDown() override {
        for (const auto& [name, value] : saved) {
            value ? setenv(name, value->c_str(), 1) : unsetenv(name);
        }
        fs::remove_all(root);
    }
    void touch(const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << "x";
    }
    static std::optional<std::string> get(const char* name) {
        const char* value = getenv(name);
        return value ? std::optional<std::string>(value) : std::nullopt;
    }
    const std::pair<const char*, std::optional<std::string>> saved[2] = {
        {"HOME", get("HOME")}, {"PELMORA_HOME", get("PELMORA_HOME")}};
    fs::path root;
};

TEST_F(PelmoraPathsTest, EveryLocationByNameUnderTheSupportDirectoryOrTheRealHome) {
    setenv("HOME", "/nonexistent/not-the-home", 1);
    const struct passwd* entry = getpwuid(getuid());
    const fs::path home = entry ? entry->pw_dir : "/";
    EXPECT_EQ(PelmoraPaths::home(), home);
    for (const char* unset : {"", static_cast<const char*>(nullptr)}) {
        unset ? setenv("PELMORA_HOME", unset, 1) : unsetenv("PELMORA_HOME");
        EXPECT_EQ(PelmoraPaths::supportDirectory(), home / "Library/Application Support/Pelmora");
    }
    setenv("PELMORA_HOME", "/srv/p", 1);
    // clang-format off
    const std::pair<std::string_view, fs::path> expected[] = {
        {"supportDirectory", "/srv/p"},        {"sessionsDirectory", "/srv/p/sessions"},
        {"logsDirectory", "/srv/p/logs"},      {"backupsDirectory", "/srv/p/backups"},
        {"binDirectory", "/srv/p/bin"},        {"installedHookBinary", "/srv/p/bin/pelmora-hook"},
        {"installedCLIBinary", "/srv/p/bin/pelmora"},
        {"approvalSocket", "/srv/p/approval.sock"}, {"alertSocket", "/srv/p/alert.sock"},
        {"claudeSettings", home / ".claude/settings.json"}, {"codexHooks", home / ".codex/hooks.json"},
        {"grokHooks", home / ".grok/hooks/pelmora.json"},
        {"commandCodeSettings", home / ".commandcode/settings.json"},
        {"devinConfig", home / ".config/devin/config.json"}, {"qwenSettings", home / ".qwen/settings.json"},
        {"copilotHooks", home / ".copilot/hooks/pelmora.json"},
        {"kimiConfig", PelmoraPaths::kimiConfig(home)},
        {"piExtension", home / ".pi/agent/extensions/pelmora.ts"},
    };
    // clang-format on
    const std::vector<PelmoraPaths::NamedLocation> named = PelmoraPaths::namedLocations();
    ASSERT_EQ(named.size(), std::size(expected));
    for (std::size_t i = 0; i < named.size(); ++i) {
        EXPECT_EQ(named[i], (PelmoraPaths::NamedLocation{expected[i].first, expected[i].second}));
    }
    EXPECT_EQ(PelmoraPaths::devinConfig(), expected[13].second);
    EXPECT_EQ(PelmoraPaths::piExtension(), expected[17].second);
    for (Source source : allSources) {
        EXPECT_EQ(PelmoraPaths::configFile(source).has_value(), isAgent(source));
        EXPECT_EQ(AgentDetection::configDirectory(source, "/h").has_value(), isAgent(source));
    }
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
}

TEST_F(PelmoraPathsTest, AgentsFoundByTheirFolderOrItsAlternative) {
    EXPECT_TRUE(AgentDetection::detected(root).empty());
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi/config.toml");
    fs::create_directories(root / ".kimi");
    touch(root / ".kimi-code/config.toml");
    // The file decides, not the folder; the folder decides detection.
    EXPECT_EQ(PelmoraPaths::configFile(Source::kimi, root), root / ".kimi-code/config.toml");
    touch(root / ".kimi/config.toml");
    EXPECT_EQ(PelmoraPaths::configFile(Source::kimi, root), root / ".kimi/config.toml");
    fs::remove_all(root / ".kimi");

    fs::create_directories(root / ".config/devin");
    touch(root / ".codex"); // a file counts too
    // A dangling link still shows the agent was set up here.
    fs::create_symlink(root / "gone", root / ".qwen");
    fs::create_directories(root / ".claude");
    const std::vector<Source> expected{Source::claude, Source::codex, Source::devin, Source::qwen,
                                       Source::kimi};
    EXPECT_EQ(AgentDetection::detected(root), expected);
    EXPECT_EQ(AgentDetection::configDirectory(Source::kimi, root), root / ".kimi");
    fs::create_directories(root / ".kimi"); // both Kimi folders: still one entry
    EXPECT_EQ(AgentDetection::detected(root), expected);
}

TEST_F(PelmoraPathsTest, EnsureDirectoryIsOwnerOnly) {
    const mode_t old = umask(0);
    PelmoraPaths::ensureDirectory(root / "a/b");
    umask(old);
    for (const fs::path& dir : {root / "a", root / "a/b"}) {
        struct stat info {};
        ASSERT_EQ(stat(dir.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0700u) << dir;
    }
    EXPECT_NO_THROW(PelmoraPaths::ensureDirectory(root / "a/b"));
    touch(root / "file");
    EXPECT_THROW(PelmoraPaths::ensureDirectory(root / "file/below"), Error);
}

} // namespace
} // namespace pelmora
