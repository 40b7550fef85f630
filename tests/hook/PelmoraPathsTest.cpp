#include "hook/PelmoraPaths.h"

#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <pwd.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Error.h"

namespace pelmora {
namespace {

namespace fs = std::filesystem;

// Sets an environment variable for one scope and puts the old value back.
class ScopedEnv {
public:
    ScopedEnv(const char* name, std::optional<std::string> value) : name_(name) {
        if (const char* old = getenv(name)) {
            old_ = old;
        }
        if (value) {
            setenv(name, value->c_str(), 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (old_) {
            setenv(name_, old_->c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::optional<std::string> old_;
};

fs::path passwordHome() {
    struct passwd* entry = getpwuid(getuid());
    return entry ? entry->pw_dir : "/";
}

TEST(PelmoraPaths, SupportDirectoryFollowsPelmoraHome) {
    ScopedEnv elsewhere("HOME", "/nonexistent/not-the-home");
    EXPECT_EQ(PelmoraPaths::home(), passwordHome());
    fs::path standard = passwordHome() / "Library/Application Support/Pelmora";
    {
        ScopedEnv unset("PELMORA_HOME", std::nullopt);
        EXPECT_EQ(PelmoraPaths::supportDirectory(), standard);
    }
    {
        ScopedEnv empty("PELMORA_HOME", "");
        EXPECT_EQ(PelmoraPaths::supportDirectory(), standard);
    }
    ScopedEnv custom("PELMORA_HOME", "/srv/pelmora");
    EXPECT_EQ(PelmoraPaths::supportDirectory(), "/srv/pelmora");
    EXPECT_EQ(PelmoraPaths::sessionsDirectory(), "/srv/pelmora/sessions");
    EXPECT_EQ(PelmoraPaths::logsDirectory(), "/srv/pelmora/logs");
    EXPECT_EQ(PelmoraPaths::backupsDirectory(), "/srv/pelmora/backups");
    EXPECT_EQ(PelmoraPaths::binDirectory(), "/srv/pelmora/bin");
    EXPECT_EQ(PelmoraPaths::installedHookBinary(), "/srv/pelmora/bin/pelmora-hook");
    EXPECT_EQ(PelmoraPaths::installedCLIBinary(), "/srv/pelmora/bin/pelmora");
    EXPECT_EQ(PelmoraPaths::approvalSocket(), "/srv/pelmora/approval.sock");
    EXPECT_EQ(PelmoraPaths::alertSocket(), "/srv/pelmora/alert.sock");
}

TEST(PelmoraPaths, SocketsMoveToTmpPastNinetyNineBytes) {
    const std::string suffix = "/approval.sock";
    const std::string uid = std::to_string(getuid());
    // The limit counts bytes, so a two-byte character counts twice.
    std::string fits = "/tmp/é" + std::string(99 - suffix.size() - 7, 'x');
    ASSERT_EQ(fits.size() + suffix.size(), 99u);
    {
        ScopedEnv home("PELMORA_HOME", fits);
        EXPECT_EQ(PelmoraPaths::approvalSocket(), fs::path(fits) / "approval.sock");
        EXPECT_EQ(PelmoraPaths::alertSocket(), fs::path(fits) / "alert.sock");
    }
    std::string tooLong = fits + "x";
    {
        ScopedEnv home("PELMORA_HOME", tooLong);
        EXPECT_EQ(PelmoraPaths::approvalSocket(), "/tmp/pelmora-" + uid + ".sock");
        // The alert socket's own path would fit; it moves with the other.
        EXPECT_EQ(PelmoraPaths::alertSocket(), "/tmp/pelmora-" + uid + "-alert.sock");
        EXPECT_EQ(PelmoraPaths::supportDirectory(), tooLong);
    }
}

TEST(PelmoraPaths, AgentFilesUnderHome) {
    fs::path home = passwordHome();
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

class PelmoraPathsOnDisk : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pelmora-paths-XXXXXX";
        ASSERT_TRUE(mkdtemp(pattern));
        root = pattern;
    }
    void TearDown() override { fs::remove_all(root); }
    void touch(const fs::path& file) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << "x";
    }
    fs::path root;
};

TEST_F(PelmoraPathsOnDisk, KimiConfigPrefersTheKimiFolder) {
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi/config.toml");
    touch(root / ".kimi-code/config.toml");
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi-code/config.toml");
    touch(root / ".kimi/config.toml");
    EXPECT_EQ(PelmoraPaths::kimiConfig(root), root / ".kimi/config.toml");
}

TEST_F(PelmoraPathsOnDisk, EnsureDirectoryIsOwnerOnly) {
    fs::path nested = root / "a/b/c";
    mode_t old = umask(0);
    PelmoraPaths::ensureDirectory(nested);
    umask(old);
    for (fs::path dir : {root / "a", root / "a/b", nested}) {
        struct stat info {};
        ASSERT_EQ(stat(dir.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0700u) << dir;
    }
    EXPECT_NO_THROW(PelmoraPaths::ensureDirectory(nested));
    touch(root / "file");
    EXPECT_THROW(PelmoraPaths::ensureDirectory(root / "file"), Error);
    EXPECT_THROW(PelmoraPaths::ensureDirectory(root / "file/below"), Error);
}

} // namespace
} // namespace pelmora
