#include "hook/PelmoraPaths.h"

#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "hook/AgentDetection.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;

class PelmoraPathsTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (const auto& [name, value] : saved) {
            value ? setenv(name, value->c_str(), 1) : unsetenv(name);
        }
        fs::remove_all(root);
    }
    static std::optional<std::string> copy(const char* value) {
        return value ? std::optional<std::string>(value) : std::nullopt;
    }
    const std::pair<const char*, std::optional<std::string>> saved[2] = {
        {"HOME", copy(getenv("HOME"))}, {"PELMORA_HOME", copy(getenv("PELMORA_HOME"))}};
    const fs::path root = fs::temp_directory_path() / ("pelmora-paths-" + std::to_string(getpid()));
};

TEST_F(PelmoraPathsTest, EveryLocationByNameUnderTheSupportDirectoryOrTheRealHome) {
    setenv("HOME", "/nonexistent/not-the-home", 1);
    const struct passwd* entry = getpwuid(getuid());
    const fs::path home = entry ? entry->pw_dir : "/";
    EXPECT_EQ(PelmoraPaths::home(), home);
    setenv("PELMORA_HOME", "", 1);
    EXPECT_EQ(PelmoraPaths::supportDirectory(), home / "Library/Application Support/Pelmora");
    setenv("PELMORA_HOME", "/srv/p", 1);
    // clang-format off
    const std::pair<std::string_view, fs::path> expected[] = {
        {"supportDirectory", "/srv/p"}, {"sessionsDirectory", "/srv/p/sessions"},
        {"logsDirectory", "/srv/p/logs"}, {"backupsDirectory", "/srv/p/backups"}, {"binDirectory", "/srv/p/bin"},
        {"installedHookBinary", "/srv/p/bin/pelmora-hook"}, {"installedCLIBinary", "/srv/p/bin/pelmora"},
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
    const auto named = PelmoraPaths::namedLocations();
    ASSERT_EQ(named.size(), std::size(expected));
    for (std::size_t i = 0; i < named.size(); ++i) {
        EXPECT_EQ(std::pair(named[i].name, named[i].location), expected[i]);
    }
    // Past 99 bytes (a two-byte character counting twice) both sockets move.
    const std::string deep = "/tmp/\u00E9" + std::string(99 - 14 - 7, 'x');
    setenv("PELMORA_HOME", deep.c_str(), 1);
    EXPECT_EQ(PelmoraPaths::approvalSocket().native().size(), 99u);
    setenv("PELMORA_HOME", (deep + "x").c_str(), 1);
    const std::string tmp = "/tmp/pelmora-" + std::to_string(getuid());
    EXPECT_EQ(PelmoraPaths::approvalSocket(), tmp + ".sock");
    EXPECT_EQ(PelmoraPaths::alertSocket(), tmp + "-alert.sock");
    for (Source source : allSources) {
        EXPECT_EQ(PelmoraPaths::configFile(source).has_value(), isAgent(source));
        EXPECT_EQ(AgentDetection::configDirectory(source, "/h").has_value(), isAgent(source));
    }
}

TEST_F(PelmoraPathsTest, AgentsFoundByTheirFolderOrItsAlternativeAndOwnerOnlyFolders) {
    const auto touch = [&](const char* file) {
        fs::create_directories((root / file).parent_path());
        std::ofstream(root / file) << "x";
    };
    fs::create_directories(root / ".kimi");
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi/config.toml");
    touch(".kimi-code/config.toml");
    // The file decides, not the folder; the folder decides detection.
    EXPECT_EQ(PelmoraPaths::configFile(Source::kimi, root), root / ".kimi-code/config.toml");
    touch(".kimi/config.toml");
    EXPECT_EQ(PelmoraPaths::configFile(Source::kimi, root), root / ".kimi/config.toml");
    fs::remove_all(root / ".kimi");

    fs::create_directories(root / ".config/devin");
    touch(".codex"); // a file counts too
    // A dangling link still shows the agent was set up here.
    fs::create_symlink(root / "gone", root / ".qwen");
    fs::create_directories(root / ".claude");
    const std::vector<Source> expected{Source::claude, Source::codex, Source::devin, Source::qwen,
                                       Source::kimi};
    EXPECT_EQ(AgentDetection::detected(root), expected);
    EXPECT_EQ(AgentDetection::configDirectory(Source::kimi, root), root / ".kimi");
    fs::create_directories(root / ".kimi"); // both Kimi folders: still one entry
    EXPECT_EQ(AgentDetection::detected(root), expected);

    const mode_t old = umask(0);
    PelmoraPaths::ensureDirectory(root / "support/sessions");
    umask(old);
    struct stat info {};
    ASSERT_EQ(stat((root / "support").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u);
}

} // namespace
} // namespace pelmora
