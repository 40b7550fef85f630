#include <chrono>
#include <thread>

#include "IntegrationTest.h"
#include "integration/HookInstaller.h"
#include "platform/Error.h"

namespace pelmora::testing {
namespace {

using Case = HookInstaller::Status::Case;

// Kimi's TOML as a person keeps it: comments, literal and multi-line
// strings, a hook table of the user's and a table after it.
constexpr std::string_view kimiConfig = R"toml(# Kimi Code — edited by hand
default_model = "kimi-k2"   # trailing comment
theme = 'dark'

[providers.moonshot]
base_url = "https://api.moonshot.ai/v1"
notes = """
hooks = [] is only text here?
no: a line of a string still counts"""

[[hooks]]
event = "Stop"
command = "say 'done' # not a comment"
timeout = 10

[mcp.servers."local tools"]
args = ["-y", "tool"]
)toml";

TEST_F(IntegrationTest, KimiBlockComesAndGoesAroundTheUsersToml) {
    const HookTarget target = HookTarget::target(Source::kimi, home);
    // The inline check is line by line, as the block's own rule has it:
    // even a line inside a string refuses, before any write, after a backup.
    put(target.fileURL, std::string(kimiConfig));
    try {
        HookInstaller::install(target, hook.string());
        ADD_FAILURE() << "inline hooks were not refused";
    } catch (const Error& error) {
        EXPECT_STREQ(error.what(), HookInstaller::kimiInlineHooksError.data());
    }
    EXPECT_EQ(get(target.fileURL), kimiConfig);
    EXPECT_EQ(names(support / "backups").size(), 1u);

    std::string config(kimiConfig);
    config.replace(config.find("hooks = []"), 10, "hook list");
    put(target.fileURL, config);
    EXPECT_EQ(python("tomllib", target.fileURL, "len(data['hooks'])").out, "1");
    EXPECT_EQ(HookInstaller::status(target, hook.string()).kind, Case::notInstalled);
    HookInstaller::install(target, hook.string());
    const std::string installed = get(target.fileURL);
    EXPECT_EQ(python("tomllib", target.fileURL,
                     "json.dumps([len(data['hooks']), data['hooks'][0]['command'], "
                     "data['hooks'][-1], data['mcp']['servers']['local tools']])")
                  .out,
              R"([12, "say 'done' # not a comment", {"event": "PostCompact", "command": )"
              R"("PELMORA_MANAGED=1 ')" +
                  hook.string() + R"(' --source kimi", "timeout": 5}, {"args": ["-y", "tool"]}])");
    EXPECT_EQ(HookInstaller::status(target, hook.string()), HookInstaller::Status::installed());
    EXPECT_EQ(HookInstaller::status(target, "/moved/pelmora-hook").kind, Case::stale);
    HookInstaller::install(target, hook.string());
    EXPECT_EQ(get(target.fileURL), installed);
    HookInstaller::uninstall(target);
    EXPECT_EQ(get(target.fileURL), config);

    // A block in the middle leaves one line feed where it was; paths with
    // quotes and backslashes stay valid TOML.
    const std::string odd = "/Apps/Pel\"mora\\x\n/pelmora-hook";
    const std::string block =
        HookInstaller::kimiBlock(target.events, HookInstaller::command(Source::kimi, odd));
    EXPECT_EQ(HookInstaller::kimiRemovingBlock("a = 1\n\n\n" + block + "\nb = 2\n"),
              "a = 1\nb = 2\n");
    EXPECT_EQ(HookInstaller::kimiRemovingBlock("a = 1\n" + block.substr(0, 60)),
              "a = 1\n" + block.substr(0, 60));
    put(target.fileURL, "a = 1\n\n" + block + "\nb = 2\n");
    EXPECT_EQ(python("tomllib", target.fileURL, "data['hooks'][3]['command']").out,
              HookInstaller::command(Source::kimi, odd));
    put(target.fileURL, "x = \"\xff\"\n");
    EXPECT_EQ(HookInstaller::status(target, hook.string()),
              HookInstaller::Status::unreadable("not UTF-8"));
}

fs::path typescriptPackage() {
    const char* chosen = std::getenv("PELMORA_NPM_CACHE");
    const char* cache = std::getenv("XDG_CACHE_HOME");
    const char* homeFolder = std::getenv("HOME");
    fs::path folder = chosen != nullptr       ? fs::path(chosen)
                      : cache != nullptr      ? fs::path(cache) / "pelmora/npm"
                      : homeFolder != nullptr ? fs::path(homeFolder) / ".cache/pelmora/npm"
                                              : fs::path();
    return folder / "node_modules/typescript";
}

// Parses the extension with TypeScript (syntax only, as pi loads it), then
// runs it against a stand-in for pi's event API and a hook that logs what it
// was given.
constexpr std::string_view harness = R"js(
const ts = require(process.argv[2]);
const source = require("fs").readFileSync(process.argv[3], "utf8");
const out = ts.transpileModule(source, { reportDiagnostics: true, compilerOptions: {
    module: ts.ModuleKind.CommonJS, target: ts.ScriptTarget.ES2022 } });
for (const d of out.diagnostics) console.log(ts.flattenDiagnosticMessageText(d.messageText, " "));
const m = { exports: {} };
new Function("module", "exports", "require", out.outputText)(m, m.exports, require);
const on = {};
m.exports.default({ on: (name, handler) => { on[name] = handler; } });
const ctx = { cwd: "/work/p", sessionManager: { getSessionFile: () => "/s/abc.jsonl" } };
const lost = { cwd: 7, sessionManager: { getSessionFile() { throw new Error("no"); } } };
on.session_start({}, ctx);
on.agent_start({}, ctx);
on.before_agent_start({ prompt: "fix it" }, ctx);
on.before_agent_start({}, ctx);
on.tool_call({ toolName: "bash", input: { command: "ls" } }, lost);
on.tool_result({ toolName: "bash" }, ctx);
on.agent_end({}, ctx);
on.session_shutdown({}, ctx);
)js";

TEST_F(IntegrationTest, PiExtensionParsesRunsAndLeavesTheUsersFileAlone) {
    const HookTarget target = HookTarget::target(Source::pi, home);
    put(target.fileURL, "// my own extension\n");
    const std::string foreign =
        target.fileURL.string() + " already exists and was not written by Pelmora.";
    EXPECT_EQ(HookInstaller::status(target, hook.string()),
              HookInstaller::Status::unreadable("pelmora.ts exists and is not Pelmora's"));
    try {
        HookInstaller::install(target, hook.string());
        ADD_FAILURE() << "the user's file was not refused";
    } catch (const Error& error) {
        EXPECT_EQ(error.what(), foreign);
    }
    HookInstaller::uninstall(target);
    EXPECT_EQ(get(target.fileURL), "// my own extension\n");
    fs::remove(target.fileURL);

    const fs::path logs = temp / "logs";
    const fs::path oddHook = temp / "pi \"hook\\" / "pelmora-hook";
    put(oddHook, "#!/bin/sh\n{ printf '%s ' \"$PELMORA_MANAGED\" \"$@\"; cat; } > " + quoted(logs) +
                     "/$$\n");
    fs::permissions(oddHook, fs::perms(0755));
    fs::create_directories(logs);
    HookInstaller::install(target, oddHook.string());
    EXPECT_TRUE(get(target.fileURL).starts_with("// pelmora-managed"));
    EXPECT_EQ(HookInstaller::status(target, oddHook.string()), HookInstaller::Status::installed());
    EXPECT_EQ(HookInstaller::status(target, hook.string()).kind, Case::stale);

    const fs::path typescript = typescriptPackage();
    if (!fs::exists(typescript / "package.json") || shell("node --version").status != 0) {
        GTEST_SKIP() << "TypeScript is not installed at " << typescript
                     << ": run scripts/npm-tools.sh";
    }
    put(temp / "harness.js", std::string(harness));
    const Ran ran = shell("cd " + quoted(temp) + " && node harness.js " + quoted(typescript) + " " +
                          quoted(target.fileURL));
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "") << "TypeScript's syntax diagnostics";
    for (int wait = 0; wait < 100 && names(logs).size() < 7; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::vector<std::string> reports;
    for (const std::string& name : names(logs)) {
        std::string line = get(logs / name);
        const std::size_t at = line.find("--ppid ") + 7;
        const std::string pid = line.substr(at, line.find(' ', at) - at);
        for (std::size_t found; (found = line.find(pid)) != std::string::npos;) {
            line.replace(found, pid.size(), "PID");
        }
        reports.push_back(line);
    }
    std::sort(reports.begin(), reports.end());
    const std::string head = "1 --source pi --ppid PID {\"hook_event_name\":\"";
    const std::string session = "\"session_id\":\"abc\",\"cwd\":\"/work/p\"";
    EXPECT_EQ(reports,
              (std::vector<std::string>{
                  head + "PostToolUse\"," + session + ",\"tool_name\":\"bash\"}",
                  head + "PreToolUse\",\"session_id\":\"pid-PID\",\"cwd\":\"" + temp.string() +
                      "\",\"tool_name\":\"bash\",\"tool_input\":{\"command\":\"ls\"}}",
                  head + "SessionEnd\"," + session + "}",
                  head + "SessionStart\"," + session + "}",
                  head + "Stop\"," + session + "}",
                  head + "UserPromptSubmit\"," + session + ",\"prompt\":\"fix it\"}",
                  head + "UserPromptSubmit\"," + session + "}",
              }));
    HookInstaller::uninstall(target);
    EXPECT_FALSE(fs::exists(target.fileURL));
}

} // namespace
} // namespace pelmora::testing
