#include "IntegrationTest.h"
#include "integration/HookInstaller.h"

namespace pelmora::testing {

namespace HI = HookInstaller;

// Kimi's TOML as a person keeps it: comments, literal and multi-line
// strings, a hook table of the user's and a table after it.
constexpr std::string_view kimiConfig = R"toml(# Kimi Code — edited by hand
default_model = "kimi-k2"   # trailing comment
[providers.moonshot]
notes = """
hooks = [] is only text here, but a line is a line"""
[[hooks]]
event = "Stop"
command = "say 'done' # not a comment"
[mcp.servers."local tools"]
args = ["-y", 'tool']
)toml";

TEST_F(IntegrationTest, KimiBlockComesAndGoesAroundTheUsersToml) {
    const HookTarget target = HookTarget::target(Source::kimi, home);
    // The inline check reads lines, not TOML: it refuses before any write,
    // after the backup.
    put(target.fileURL, std::string(kimiConfig));
    EXPECT_EQ(errorOf([&] { HI::install(target, hookPath); }), HI::kimiInlineHooksError);
    EXPECT_EQ(get(target.fileURL), kimiConfig);
    EXPECT_EQ(names(support / "backups").size(), 1u);

    std::string config(kimiConfig);
    config.replace(config.find("hooks = []"), 10, "hook list");
    put(target.fileURL, config);
    HI::install(target, hookPath);
    const std::string installed = get(target.fileURL);
    EXPECT_EQ(python(target.fileURL, "json.dumps([len(data['hooks']), data['hooks'][0]['command'], "
                                     "data['hooks'][-1], data['mcp']['servers']['local tools']])"),
              R"([12, "say 'done' # not a comment", {"event": "PostCompact", "command": )"
              R"("PELMORA_MANAGED=1 ')" +
                  hookPath + R"(' --source kimi", "timeout": 5}, {"args": ["-y", "tool"]}])");
    EXPECT_EQ(HI::status(target, hookPath), HI::Status::installed());
    HI::install(target, hookPath);
    EXPECT_EQ(get(target.fileURL), installed);
    HI::uninstall(target);
    EXPECT_EQ(get(target.fileURL), config);

    // A block in the middle leaves one line feed where it was; an unfinished
    // one is left alone; odd paths stay valid TOML.
    const std::string odd = "/Apps/Pel\"mora\\x\n/pelmora-hook";
    const std::string block = HI::kimiBlock(target.events, HI::command(Source::kimi, odd));
    EXPECT_EQ(HI::kimiRemovingBlock("a = 1\n\n\n" + block + "\nb = 2\n"), "a = 1\nb = 2\n");
    EXPECT_EQ(HI::kimiRemovingBlock("a = 1\n" + block.substr(0, 60)),
              "a = 1\n" + block.substr(0, 60));
    put(target.fileURL, "a = 1\n\n" + block + "\nb = 2\n");
    EXPECT_EQ(python(target.fileURL, "data['hooks'][3]['command']"),
              HI::command(Source::kimi, odd));
    put(target.fileURL, "x = \"\xff\"\n");
    EXPECT_EQ(HI::status(target, hookPath), HI::Status::unreadable("not UTF-8"));
}

// Parses the extension with TypeScript (syntax only, as pi loads it), then
// runs it against a stand-in for pi's event API.
constexpr std::string_view harness = R"js(
const ts = require(process.argv[2]);
const out = ts.transpileModule(require("fs").readFileSync(process.argv[3], "utf8"), {
    reportDiagnostics: true, compilerOptions: {
    module: ts.ModuleKind.CommonJS, target: ts.ScriptTarget.ES2022 } });
for (const d of out.diagnostics) console.log(ts.flattenDiagnosticMessageText(d.messageText, " "));
const m = { exports: {} }, on = {};
new Function("module", "exports", "require", out.outputText)(m, m.exports, require);
m.exports.default({ on: (name, handler) => { on[name] = handler; } });
const ctx = { cwd: "/work/p", sessionManager: { getSessionFile: () => "/s/abc.jsonl" } };
const lost = { cwd: 7, sessionManager: { getSessionFile() { throw new Error("no"); } } };
on.session_start({}, ctx); on.before_agent_start({ prompt: "fix it" }, ctx);
on.before_agent_start({}, ctx); on.agent_start({}, ctx);
on.tool_call({ toolName: "bash", input: { command: "ls" } }, lost);
on.tool_result({ toolName: "bash" }, ctx);
// pi's print mode shuts down while its queue still holds the run's end
on.session_shutdown({}, ctx).then(() => console.log("shut down"));
setTimeout(() => on.agent_end({}, ctx), 200);
)js";

TEST_F(IntegrationTest, PiExtensionParsesRunsAndLeavesTheUsersFileAlone) {
    const HookTarget target = HookTarget::target(Source::pi, home);
    put(target.fileURL, "// my own extension\n");
    EXPECT_EQ(HI::status(target, hookPath),
              HI::Status::unreadable("pelmora.ts exists and is not Pelmora's"));
    EXPECT_EQ(errorOf([&] { HI::install(target, hookPath); }),
              target.fileURL.string() + " already exists and was not written by Pelmora.");
    HI::uninstall(target);
    EXPECT_EQ(get(target.fileURL), "// my own extension\n");
    fs::remove(target.fileURL);

    // A hook at an odd path that logs "<PELMORA_MANAGED> <source> <ppid> <stdin>", one line
    // per report in the order they came.
    const fs::path log = temp / "log";
    const fs::path logger = temp / "pi \"hook\\" / "pelmora-hook";
    put(logger,
        "#!/bin/sh\n{ printf '%s %s %s ' \"$PELMORA_MANAGED\" \"$2\" \"$4\"; cat; echo; } >> " +
            quoted(log) + "\n");
    fs::permissions(logger, fs::perms(0755));
    HI::install(target, logger.string());
    EXPECT_EQ(HI::status(target, logger.string()), HI::Status::installed());
    EXPECT_EQ(HI::status(target, hookPath), HI::Status::stale());

    shell("echo -n ${PELMORA_NPM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/pelmora/npm}");
    // The cache's own node: a system one may be missing or too old.
    const fs::path typescript = fs::path(output) / "node_modules/typescript";
    const std::string node = quoted(fs::path(output) / "node/bin/node");
    if (!fs::exists(typescript / "package.json") || shell(node + " --version") != 0) {
        GTEST_SKIP() << "no TypeScript at " << typescript << ": run scripts/npm-tools.sh";
    }
    put(temp / "harness.js", std::string(harness));
    EXPECT_EQ(shell("cd " + quoted(temp) + " && " + node + " harness.js " + quoted(typescript) +
                    " " + quoted(target.fileURL)),
              0);
    EXPECT_EQ(output, "shut down\n") << "TypeScript's syntax diagnostics, or no shutdown";
    std::string reports = get(log);
    const std::string pid = reports.substr(5, reports.find(' ', 5) - 5);
    for (std::size_t at; (at = reports.find(pid)) != std::string::npos;) {
        reports.replace(at, pid.size(), "PID");
    }
    auto report = [&](const std::string& event, const std::string& more = "") {
        return "1 pi PID {\"hook_event_name\":\"" + event +
               "\",\"session_id\":\"abc\",\"cwd\":\"/work/p\"" + more + "}\n";
    };
    EXPECT_EQ(reports,
              report("SessionStart") + report("UserPromptSubmit", ",\"prompt\":\"fix it\"") +
                  report("UserPromptSubmit") +
                  "1 pi PID {\"hook_event_name\":\"PreToolUse\",\"session_id\":\"pid-PID\","
                  "\"cwd\":\"" +
                  temp.string() +
                  "\",\"tool_name\":\"bash\",\"tool_input\":{\"command\":\"ls\"}}\n" +
                  report("PostToolUse", ",\"tool_name\":\"bash\"") + report("Stop") +
                  report("SessionEnd"));
    HI::uninstall(target);
    EXPECT_FALSE(fs::exists(target.fileURL));
}

} // namespace pelmora::testing
