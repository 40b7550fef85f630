#include "integration/HookInstaller.h"

#include <sys/time.h>

#include "IntegrationTest.h"
#include "integration/StatusLineInstaller.h"
#include "json/OrderedJSON.h"
#include "platform/Error.h"

namespace pelmora::testing {

namespace HI = HookInstaller;
namespace SL = StatusLineInstaller;
using Case = HI::Status::Case;

// A user's settings as people write them: tabs, one-line objects, numbers
// spelled their way, pelmora-hook in text, the user's hooks in matcher groups
// and an old managed hook between two of them (@OLD@).
constexpr std::string_view userSettings = R"json({
	"model": "opus", "permissions": {"allow": ["Bash(npm run test:*)"], "deny": []},
	"env": {"NOTE": "pelmora-hook runs from the app"}, "hooks": {
		"PreToolUse": [{"matcher": "Bash", "hooks": [{"type": "command", "command": "~/audit.sh"}]},
			{"matcher": "Edit|Write", "hooks": [{"type": "command", "command": "prettier --write"},@OLD@
				{"type": "command", "command": "echo pelmora-hook was here", "timeout": 30}]}],
		"Stop": [{"hooks": [{"type": "command", "command": "say done"}], "comment": "mine"}], "Custom": {"not": "an array"}},
	"numbers": [1.50, 1e3, -0.0], "text": "caf\u00e9 \u2014 ok"}
)json";

static std::string withOldHook(bool old) {
    std::string text(userSettings);
    return text.replace(text.find("@OLD@"), 5,
                        old ? R"({"command": "PELMORA_MANAGED=1 '/Old/pelmora-hook' -x"},)" : "");
}

// How many managed commands the agent itself finds (Python's reading).
constexpr const char* managedCount =
    "sum(h.get('command', h.get('bash', '')).startswith('PELMORA_MANAGED=1') "
    "for v in data['hooks'].values() if isinstance(v, list) for g in v "
    "for h in (g.get('hooks', [g]) if isinstance(g, dict) else []))";

TEST_F(IntegrationTest, TargetsFollowTheAgentRows) {
    EXPECT_EQ(HookTarget::target(Source::devin, home).fileURL, home / ".config/devin/config.json");
    EXPECT_EQ(HookTarget::target(Source::pi, home).fileURL,
              home / ".pi/agent/extensions/pelmora.ts");
    EXPECT_EQ(HookTarget::target(Source::build, home), HookTarget::target(Source::claude, home));
    put(home / ".kimi-code/config.toml", "");
    EXPECT_EQ(HookTarget::target(Source::kimi, home).fileURL, home / ".kimi-code/config.toml");
    EXPECT_EQ(HI::command(Source::codex, "/It's/pelmora-hook"),
              R"(PELMORA_MANAGED=1 '/It'\''s/pelmora-hook' --source codex --ppid "$PPID")");
}

TEST_F(IntegrationTest, JsonAgentsKeepTheUsersContentThroughInstallAndUninstall) {
    for (Source source : {Source::claude, Source::codex, Source::grok, Source::commandcode,
                          Source::devin, Source::qwen}) {
        SCOPED_TRACE(std::string(rawValue(source)));
        const HookTarget target = HookTarget::target(source, home);
        put(target.fileURL, withOldHook(true));
        if (source == Source::devin) { // kept in a dotfiles folder, as many people do
            fs::rename(target.fileURL, temp / "dotfiles.json");
            fs::permissions(temp / "dotfiles.json", fs::perms(0640));
            fs::create_symlink("../../../dotfiles.json", target.fileURL);
        }
        EXPECT_EQ(HI::status(target, hookPath).kind, Case::stale);
        HI::install(target, hookPath);
        const std::string installed = get(target.fileURL);
        EXPECT_EQ(python(target.fileURL, managedCount), std::to_string(target.events.size()));
        EXPECT_EQ(HI::status(target, hookPath), HI::Status::installed());
        const JSONValue root = OrderedJSON::parse(installed);
        EXPECT_EQ(root.value({"hooks", "PreToolUse"})->arrayElements()->size(), 3u);
        const int unit = source == Source::qwen ? 1000 : 1;
        EXPECT_EQ(HI::managedTimeout(root, {"hooks"}, "Stop"), 5 * unit);
        EXPECT_EQ(HI::managedTimeout(root, {"hooks"}, "PermissionRequest"),
                  target.blockingEvents.count("PermissionRequest") ? std::optional(130 * unit)
                                                                   : std::nullopt);
        if (source == Source::qwen) { // an install from before the milliseconds is stale
            std::string old = installed;
            old.replace(old.find("130000"), 6, "130");
            put(target.fileURL, old);
            EXPECT_EQ(HI::status(target, hookPath).kind, Case::stale);
            HI::install(target, hookPath);
        }
        HI::install(target, hookPath);
        EXPECT_EQ(get(target.fileURL), installed) << "a second install changes no byte";
        HI::uninstall(target);
        const std::string removed = get(target.fileURL);
        EXPECT_EQ(OrderedJSON::parse(removed), OrderedJSON::parse(withOldHook(false)));
        EXPECT_EQ(HI::status(target, hookPath).kind, Case::notInstalled);
        HI::uninstall(target);
        EXPECT_EQ(get(target.fileURL), removed);
    }
    EXPECT_TRUE(fs::is_symlink(home / ".config/devin/config.json"));
    EXPECT_EQ(fs::status(temp / "dotfiles.json").permissions(), fs::perms(0640));
    EXPECT_EQ(names(home / ".config/devin"), std::vector<std::string>{"config.json"});
}

TEST_F(IntegrationTest, OwnedFilesGoWhenEmptyAndUsersFilesNeverDo) {
    const HookTarget grok = HookTarget::target(Source::grok, home);
    const HookTarget claude = HookTarget::target(Source::claude, home);
    const HookTarget copilot = HookTarget::target(Source::copilot, home);
    put(claude.fileURL, " \n\t\n");
    for (const HookTarget& target : {grok, claude, copilot}) {
        HI::install(target, hookPath);
        EXPECT_EQ(python(target.fileURL, managedCount), std::to_string(target.events.size()));
        EXPECT_EQ(HI::status(target, hookPath), HI::Status::installed());
    }
    EXPECT_EQ(python(copilot.fileURL,
                     "json.dumps([data['version'], data['hooks']['permissionRequest']])"),
              R"([1, [{"type": "command", "bash": "PELMORA_MANAGED=1 ')" + hookPath +
                  R"(' --source copilot", "timeoutSec": 130}]])");
    for (const HookTarget& target : {grok, claude, copilot}) {
        HI::uninstall(target);
    }
    EXPECT_FALSE(fs::exists(grok.fileURL) || fs::exists(copilot.fileURL));
    EXPECT_EQ(get(claude.fileURL), "{}\n");
}

TEST_F(IntegrationTest, StatusSaysWhatIsWrongAndBrokenFilesAreNotTouched) {
    const HookTarget target = HookTarget::target(Source::claude, home);
    auto statusAfter = [&](const char* event, const char* hooks) {
        HI::install(target, hookPath);
        JSONValue root = OrderedJSON::parse(get(target.fileURL));
        root.set({"hooks", event}, hooks ? std::optional(OrderedJSON::parse(hooks)) : std::nullopt);
        put(target.fileURL, HI::text(root, true));
        return HI::status(target, hookPath).kind;
    };
    EXPECT_EQ(HI::status(target, hookPath).kind, Case::notInstalled);
    EXPECT_EQ(statusAfter("Stop", nullptr), Case::stale);
    EXPECT_EQ(statusAfter("PermissionRequest",
                          R"([{"hooks": [{"command": "PELMORA_MANAGED=1 pelmora-hook"}]}])"),
              Case::stale);
    EXPECT_EQ(HI::status(target, (temp / "moved/pelmora-hook").string()).kind, Case::stale);

    const std::vector<std::string> backups = names(support / "backups");
    const std::string broken = "{\n  \"model\": \"opus\",\n  \"hooks\": {]\n}\n";
    put(target.fileURL, broken);
    const HI::Status status = HI::status(target, hookPath);
    EXPECT_EQ(status.kind, Case::unreadable);
    EXPECT_TRUE(status.text.find(target.fileURL.string()) != std::string::npos &&
                status.text.ends_with("at line 3, column 13"))
        << status.text;
    EXPECT_THROW(HI::install(target, hookPath), Error);
    EXPECT_THROW(HI::uninstall(target), Error);
    EXPECT_EQ(get(target.fileURL), broken);
    EXPECT_EQ(names(support / "backups"), backups);
}

// Root ignores a read-only folder, so the failures are made otherwise: an
// immutable file (the rename fails after the temporary file is written),
// and a folder standing where the temporary file would go.
TEST_F(IntegrationTest, FailedWritesLeaveTheOldFileAndNoTemporary) {
    const HookTarget target = HookTarget::target(Source::codex, home);
    const fs::path folder = target.fileURL.parent_path();
    for (const std::string setUp : {"chattr +i hooks.json", "mkdir .hooks.json.pelmora.tmp"}) {
        put(target.fileURL, "{\"model\": \"o4\"}\n");
        if (shell("cd " + quoted(folder) + " && " + setUp) != 0) {
            continue; // a file system without attributes: the other set-up still runs
        }
        const std::vector<std::string> before = names(folder);
        EXPECT_TRUE(errorOf([&] {
                        HI::install(target, hookPath);
                    }).starts_with("Cannot write " + target.fileURL.string()));
        EXPECT_EQ(get(target.fileURL), "{\"model\": \"o4\"}\n") << setUp;
        EXPECT_EQ(names(folder), before) << setUp;
        shell("chattr -i " + quoted(target.fileURL));
    }
}

TEST_F(IntegrationTest, BackupsOncePerRunAndPrunedByTheClock) {
    const HookTarget claude = HookTarget::target(Source::claude, home);
    put(claude.fileURL, "{\"model\": \"opus\"}\n");
    const double now = 1767607200; // 2026-01-05 10:00:00 UTC
    BackupRun run(support / "backups", now);
    HI::install(claude, hookPath, run);
    SL::install(claude, hookPath, support / "statusline-original.json", run);
    EXPECT_EQ(names(support / "backups").size(), 1u);
    EXPECT_EQ(get(support / "backups/claude-settings.json.2026-01-05T100000Z.bak"),
              "{\"model\": \"opus\"}\n");

    // Seven Claude backups a day apart, and Codex backups of 30 and 61 days.
    auto make = [&](const std::string& name, int days) {
        put(temp / "pruned" / name, name);
        const timeval at = {static_cast<time_t>(now) - days * 86400, 0}, times[2] = {at, at};
        ::utimes((temp / "pruned" / name).c_str(), times);
    };
    for (int day = 1; day <= 7; ++day) {
        make("claude-settings.json.2026-01-0" + std::to_string(day) + "T000000Z.bak", 8 - day);
    }
    make("codex-hooks.json.2025-10-01T000000Z.bak", 61);
    make("codex-hooks.json.2025-12-01T000000Z.bak", 30);
    make("notes.txt", 400);
    HI::pruneBackups(temp / "pruned", 5, now);
    const std::vector<std::string> kept = names(temp / "pruned");
    ASSERT_EQ(kept.size(), 7u);
    EXPECT_EQ(kept[0], "claude-settings.json.2026-01-03T000000Z.bak");
    EXPECT_EQ(kept[5], "codex-hooks.json.2025-12-01T000000Z.bak");
}

TEST_F(IntegrationTest, StatusLineWrapsTheUsersOwnAndGivesItBack) {
    const HookTarget claude = HookTarget::target(Source::claude, home);
    const fs::path side = support / "statusline-original.json";
    const std::string mine = R"({"type": "command", "command": "~/bin/line.sh", "padding": 2})";
    const std::string original = "{\"statusLine\": " + mine + ", \"model\": \"opus\"}\n";
    put(claude.fileURL, original);
    SL::install(claude, hookPath, side);
    SL::install(claude, hookPath, side);
    EXPECT_EQ(SL::status(claude), SL::Status::on());
    EXPECT_EQ(OrderedJSON::parse(get(side)), OrderedJSON::parse(mine));
    EXPECT_EQ(SL::originalCommand(side), "~/bin/line.sh");
    EXPECT_EQ(python(claude.fileURL, "json.dumps(data['statusLine'])"),
              R"({"type": "command", "command": "PELMORA_MANAGED=1 ')" + hookPath +
                  R"(' --statusline", "padding": 2})");
    SL::uninstall(claude, side);
    EXPECT_EQ(get(claude.fileURL), HI::text(OrderedJSON::parse(original), true));
    EXPECT_FALSE(fs::exists(side));

    // Without a status line of the user's, removal leaves none; one the user
    // put in place of ours stays.
    put(claude.fileURL, "{}");
    SL::install(claude, hookPath, side);
    SL::uninstall(claude, side);
    EXPECT_EQ(get(claude.fileURL), "{}");
    SL::install(claude, hookPath, side);
    put(claude.fileURL, R"({"statusLine": {"type": "static"}})");
    SL::uninstall(claude, side);
    EXPECT_EQ(get(claude.fileURL), R"({"statusLine": {"type": "static"}})");
    put(claude.fileURL, "{");
    EXPECT_EQ(SL::status(claude).kind, SL::Status::Case::unreadable);
    EXPECT_THROW(SL::install(claude, hookPath, side), Error);
}

} // namespace pelmora::testing
