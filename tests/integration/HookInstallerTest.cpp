#include "integration/HookInstaller.h"

#include <sys/stat.h>
#include <utime.h>

#include "IntegrationTest.h"
#include "integration/StatusLineInstaller.h"
#include "json/OrderedJSON.h"
#include "platform/Error.h"

namespace pelmora::testing {
namespace {

using Case = HookInstaller::Status::Case;

// A user's settings as people write them: tabs and one-line objects, numbers
// spelled their way, text that mentions pelmora-hook, the user's own hooks
// in matcher groups, and an old managed hook between two of them (@OLD@).
constexpr std::string_view userSettings = R"json({
	"$schema": "https://json.schemastore.org/claude-code-settings.json",
	"model": "opus", "permissions": {"allow": ["Bash(npm run test:*)"], "deny": []},
	"env": {"NOTE": "pelmora-hook runs from the app"},
	"hooks": {
		"PreToolUse": [
			{"matcher": "Bash", "hooks": [{"type": "command", "command": "~/bin/audit.sh", "timeout": 30}]},
			{"matcher": "Edit|Write", "hooks": [
				{"type": "command", "command": "prettier --write"},@OLD@
				{"type": "command", "command": "echo pelmora-hook was here"}]}
		],
		"Stop": [{"hooks": [{"type": "command", "command": "say done"}], "comment": "mine"}],
		"Custom": {"not": "an array"}
	},
	"numbers": [1.50, 1e3, -0.0], "text": "caf\u00e9 \u2014 ok"
}
)json";
constexpr std::string_view oldHook =
    R"({"type": "command", "command": "PELMORA_MANAGED=1 '/Old App/pelmora-hook' --source x"},)";

std::string replaced(std::string_view text, std::string_view with) {
    std::string out(text);
    return out.replace(out.find("@OLD@"), 5, with);
}

// How many managed commands the agent itself would find (Python's reading).
constexpr const char* managedCount =
    "sum(h.get('command', h.get('bash', '')).startswith('PELMORA_MANAGED=1') "
    "for v in data['hooks'].values() if isinstance(v, list) for g in v "
    "for h in (g.get('hooks', [g]) if isinstance(g, dict) else []))";

TEST_F(IntegrationTest, TargetsFollowTheAgentRows) {
    struct Row {
        Source source;
        const char* file;
        HookTarget::Kind kind;
        bool owns;
        std::size_t events;
        std::set<std::string> blocking;
        const char* commandEnd;
    };
    const Row rows[] = {
        {Source::claude,
         ".claude/settings.json",
         HookTarget::Kind::json,
         false,
         12,
         {"PermissionRequest"},
         "--source claude --ppid \"$PPID\""},
        {Source::codex,
         ".codex/hooks.json",
         HookTarget::Kind::json,
         false,
         10,
         {"PermissionRequest"},
         "--source codex --ppid \"$PPID\""},
        {Source::grok,
         ".grok/hooks/pelmora.json",
         HookTarget::Kind::json,
         true,
         11,
         {"PreToolUse"},
         "--source grok"},
        {Source::commandcode,
         ".commandcode/settings.json",
         HookTarget::Kind::json,
         false,
         4,
         {},
         "--source commandcode"},
        {Source::devin,
         ".config/devin/config.json",
         HookTarget::Kind::json,
         false,
         8,
         {"PermissionRequest"},
         "--source devin"},
        {Source::qwen,
         ".qwen/settings.json",
         HookTarget::Kind::json,
         false,
         12,
         {"PermissionRequest"},
         "--source qwen"},
        {Source::copilot,
         ".copilot/hooks/pelmora.json",
         HookTarget::Kind::copilot,
         true,
         8,
         {"permissionRequest"},
         "--source copilot"},
        {Source::pi,
         ".pi/agent/extensions/pelmora.ts",
         HookTarget::Kind::piExtension,
         true,
         5,
         {},
         "--source pi"},
        {Source::kimi,
         ".kimi/config.toml",
         HookTarget::Kind::kimiTOML,
         false,
         11,
         {},
         "--source kimi"},
        {Source::build,
         ".claude/settings.json",
         HookTarget::Kind::json,
         false,
         12,
         {"PermissionRequest"},
         "--source claude --ppid \"$PPID\""},
    };
    for (const Row& row : rows) {
        const HookTarget target = HookTarget::target(row.source, home);
        EXPECT_EQ(target.fileURL, home / row.file) << row.file;
        EXPECT_EQ(target.kind, row.kind) << row.file;
        EXPECT_EQ(target.ownsFile, row.owns) << row.file;
        EXPECT_EQ(target.events.size(), row.events) << row.file;
        EXPECT_EQ(target.blockingEvents, row.blocking) << row.file;
        EXPECT_EQ(target.container, std::vector<std::string>{"hooks"});
        EXPECT_FALSE(target.enableFlag.has_value());
        EXPECT_TRUE(
            HookInstaller::command(target.source, "/A/pelmora-hook").ends_with(row.commandEnd));
    }
    // Kimi's file is found afresh: the other folder once only it holds one.
    put(home / ".kimi-code/config.toml", "");
    EXPECT_EQ(HookTarget::target(Source::kimi, home).fileURL, home / ".kimi-code/config.toml");
    EXPECT_EQ(HookTarget::all(home).size(), 9u);
    EXPECT_EQ(HookInstaller::command(Source::codex, "/It's/pelmora-hook"),
              R"(PELMORA_MANAGED=1 '/It'\''s/pelmora-hook' --source codex --ppid "$PPID")");
}

TEST_F(IntegrationTest, JsonAgentsKeepTheUsersContentThroughInstallAndUninstall) {
    for (Source source : {Source::claude, Source::codex, Source::grok, Source::commandcode,
                          Source::devin, Source::qwen}) {
        SCOPED_TRACE(std::string(rawValue(source)));
        const HookTarget target = HookTarget::target(source, home);
        put(target.fileURL, replaced(userSettings, oldHook));
        EXPECT_EQ(HookInstaller::status(target, hook.string()).kind, Case::stale);

        HookInstaller::install(target, hook.string());
        const std::string installed = get(target.fileURL);
        EXPECT_EQ(python("json", target.fileURL, managedCount).out,
                  std::to_string(target.events.size()));
        EXPECT_EQ(HookInstaller::status(target, hook.string()), HookInstaller::Status::installed());
        // The user's groups stay first, in order, with the old hook gone.
        const JSONValue root = OrderedJSON::parse(installed);
        const JSONValue::Elements& pre = *root.value({"hooks", "PreToolUse"})->arrayElements();
        ASSERT_EQ(pre.size(), 3u);
        EXPECT_EQ(pre[1], OrderedJSON::parse(R"({"matcher": "Edit|Write", "hooks": [
            {"type": "command", "command": "prettier --write"},
            {"type": "command", "command": "echo pelmora-hook was here"}]})"));
        EXPECT_EQ(HookInstaller::managedTimeout(root, {"hooks"}, "Stop"), 5);
        for (const std::string& event : target.blockingEvents) {
            EXPECT_EQ(HookInstaller::managedTimeout(root, {"hooks"}, event), 130);
        }

        HookInstaller::install(target, hook.string());
        EXPECT_EQ(get(target.fileURL), installed) << "a second install changes no byte";

        HookInstaller::uninstall(target);
        EXPECT_EQ(OrderedJSON::parse(get(target.fileURL)),
                  OrderedJSON::parse(replaced(userSettings, "")));
        EXPECT_EQ(HookInstaller::status(target, hook.string()).kind, Case::notInstalled);
        const std::string after = get(target.fileURL);
        HookInstaller::uninstall(target);
        EXPECT_EQ(get(target.fileURL), after);
    }
}

TEST_F(IntegrationTest, OwnedFilesGoWhenEmptyAndUsersFilesNeverDo) {
    const HookTarget grok = HookTarget::target(Source::grok, home);
    const HookTarget claude = HookTarget::target(Source::claude, home);
    const HookTarget copilot = HookTarget::target(Source::copilot, home);
    put(claude.fileURL, " \n\t\n");
    for (const HookTarget& target : {grok, claude, copilot}) {
        HookInstaller::install(target, hook.string());
        EXPECT_EQ(python("json", target.fileURL, managedCount).out,
                  std::to_string(target.events.size()));
        EXPECT_TRUE(get(target.fileURL).ends_with("}\n"));
        EXPECT_EQ(HookInstaller::status(target, hook.string()), HookInstaller::Status::installed());
    }
    EXPECT_EQ(OrderedJSON::parse(get(copilot.fileURL))
                  .value({"hooks", "permissionRequest"})
                  ->arrayElements()
                  ->front(),
              OrderedJSON::parse(R"({"type": "command", "bash": ")" +
                                 HookInstaller::command(Source::copilot, hook.string()) +
                                 R"(", "timeoutSec": 130})"));
    for (const HookTarget& target : {grok, claude, copilot}) {
        HookInstaller::uninstall(target);
    }
    EXPECT_FALSE(fs::exists(grok.fileURL));
    EXPECT_FALSE(fs::exists(copilot.fileURL));
    EXPECT_EQ(get(claude.fileURL), "{}\n");

    // A hook of the user's in the product's own file keeps the file.
    HookInstaller::install(copilot, hook.string());
    JSONValue withUsers = OrderedJSON::parse(get(copilot.fileURL));
    withUsers.set({"hooks", "agentStop"},
                  OrderedJSON::parse(R"([{"type": "command", "bash": "notify pelmora-hook"}])"));
    put(copilot.fileURL, HookInstaller::text(withUsers, true));
    HookInstaller::uninstall(copilot);
    EXPECT_EQ(get(copilot.fileURL), R"({
  "version": 1,
  "hooks": {
    "agentStop": [
      {
        "type": "command",
        "bash": "notify pelmora-hook"
      }
    ]
  }
}
)");
}

TEST_F(IntegrationTest, StatusSaysWhatIsWrong) {
    const HookTarget target = HookTarget::target(Source::claude, home);
    const std::string path = hook.string();
    auto statusAfter = [&](const std::function<void(JSONValue&)>& edit) {
        HookInstaller::install(target, path);
        JSONValue root = OrderedJSON::parse(get(target.fileURL));
        edit(root);
        put(target.fileURL, HookInstaller::text(root, true));
        return HookInstaller::status(target, path).kind;
    };
    EXPECT_EQ(HookInstaller::status(target, path).kind, Case::notInstalled);
    EXPECT_EQ(statusAfter([](JSONValue& root) {
                  root.set({"hooks", "Stop"}, std::nullopt);
              }),
              Case::stale);
    EXPECT_EQ(statusAfter([](JSONValue& root) {
                  root.set({"hooks", "PermissionRequest"},
                           OrderedJSON::parse(R"([{"hooks": [{"command":
                           "PELMORA_MANAGED=1 pelmora-hook", "timeout": 5}]}])"));
              }),
              Case::stale);
    EXPECT_EQ(statusAfter([](JSONValue&) {}), Case::installed);
    EXPECT_EQ(HookInstaller::status(target, (temp / "moved/pelmora-hook").string()).kind,
              Case::stale);
    fs::permissions(hook, fs::perms(0644));
    EXPECT_EQ(HookInstaller::status(target, path).kind, Case::stale);

    const std::vector<std::string> backups = names(support / "backups");
    put(target.fileURL, "{\n  \"model\": \"opus\",\n  \"hooks\": {]\n}\n");
    const HookInstaller::Status broken = HookInstaller::status(target, path);
    EXPECT_EQ(broken.kind, Case::unreadable);
    EXPECT_NE(broken.text.find("line 3, column 13"), std::string::npos) << broken.text;
    EXPECT_NE(broken.text.find(target.fileURL.string()), std::string::npos) << broken.text;
    EXPECT_THROW(HookInstaller::install(target, path), Error);
    EXPECT_THROW(HookInstaller::uninstall(target), Error);
    EXPECT_EQ(get(target.fileURL), "{\n  \"model\": \"opus\",\n  \"hooks\": {]\n}\n");
    EXPECT_EQ(names(support / "backups"), backups);
}

TEST_F(IntegrationTest, LinkedSettingsAreUpdatedWhereTheyLive) {
    const HookTarget target = HookTarget::target(Source::claude, home);
    put(temp / "dotfiles/claude.json", "{\"model\": \"opus\"}");
    fs::permissions(temp / "dotfiles/claude.json", fs::perms(0640));
    fs::create_directories(home / ".claude");
    fs::create_symlink("../../dotfiles/claude.json", target.fileURL);
    HookInstaller::install(target, hook.string());
    EXPECT_TRUE(fs::is_symlink(target.fileURL));
    EXPECT_EQ(fs::status(temp / "dotfiles/claude.json").permissions(), fs::perms(0640));
    EXPECT_EQ(python("json", temp / "dotfiles/claude.json", managedCount).out, "12");
    EXPECT_EQ(names(temp / "dotfiles"), std::vector<std::string>{"claude.json"});
    EXPECT_EQ(names(home / ".claude"), std::vector<std::string>{"settings.json"});
}

// Root ignores a read-only folder, so the failures are made otherwise: an
// immutable file (the rename fails after the temporary file is written)
// and a folder standing where the temporary file would go.
TEST_F(IntegrationTest, FailedWritesLeaveTheOldFileAndNoTemporary) {
    const HookTarget target = HookTarget::target(Source::codex, home);
    const fs::path folder = target.fileURL.parent_path();
    const std::string original = "{\"model\": \"o4\"}\n";
    for (const char* setUp : {"chattr +i settings", "mkdir temporary"}) {
        SCOPED_TRACE(setUp);
        put(target.fileURL, original);
        if (std::string(setUp).starts_with("chattr") &&
            shell("chattr +i " + quoted(target.fileURL)).status != 0) {
            continue; // a file system without attributes: the second set-up still runs
        }
        if (std::string(setUp).starts_with("mkdir")) {
            fs::create_directories(folder / ".hooks.json.pelmora.tmp");
        }
        const std::vector<std::string> before = names(folder);
        try {
            HookInstaller::install(target, hook.string());
            ADD_FAILURE() << "the write did not fail";
        } catch (const Error& error) {
            EXPECT_NE(std::string(error.what()).find(target.fileURL.string()), std::string::npos)
                << error.what();
        }
        EXPECT_EQ(get(target.fileURL), original);
        EXPECT_EQ(names(folder), before);
        shell("chattr -i " + quoted(target.fileURL));
    }
}

TEST_F(IntegrationTest, BackupsOncePerRunAndPrunedByTheClock) {
    const HookTarget claude = HookTarget::target(Source::claude, home);
    put(claude.fileURL, "{\"model\": \"opus\"}\n");
    const double now = 1767607200; // 2026-01-05 10:00:00 UTC
    BackupRun run(support / "backups", now);
    HookInstaller::install(claude, hook.string(), run);
    StatusLineInstaller::install(claude, hook.string(), support / "statusline-original.json", run);
    EXPECT_EQ(names(support / "backups"),
              std::vector<std::string>{"claude-settings.json.2026-01-05T100000Z.bak"});
    EXPECT_EQ(get(support / "backups/claude-settings.json.2026-01-05T100000Z.bak"),
              "{\"model\": \"opus\"}\n");

    // Seven Claude backups a day apart and one very old Codex backup.
    const fs::path backups = temp / "pruned";
    auto make = [&](const std::string& name, double age) {
        put(backups / name, name);
        const timeval times[2] = {{static_cast<time_t>(now - age), 0},
                                  {static_cast<time_t>(now - age), 0}};
        ::utimes((backups / name).c_str(), times);
    };
    for (int day = 0; day < 7; ++day) {
        make("claude-settings.json.2026-01-0" + std::to_string(day + 1) + "T000000Z.bak",
             (7 - day) * 86400.0);
    }
    make("codex-hooks.json.2025-10-01T000000Z.bak", 61 * 86400.0);
    make("codex-hooks.json.2025-12-01T000000Z.bak", 30 * 86400.0);
    make("notes.txt", 400 * 86400.0);
    HookInstaller::pruneBackups(backups, 5, now);
    EXPECT_EQ(names(backups), (std::vector<std::string>{
                                  "claude-settings.json.2026-01-03T000000Z.bak",
                                  "claude-settings.json.2026-01-04T000000Z.bak",
                                  "claude-settings.json.2026-01-05T000000Z.bak",
                                  "claude-settings.json.2026-01-06T000000Z.bak",
                                  "claude-settings.json.2026-01-07T000000Z.bak",
                                  "codex-hooks.json.2025-12-01T000000Z.bak",
                                  "notes.txt",
                              }));
}

} // namespace
} // namespace pelmora::testing
