"""Codex: a custom provider speaking the Responses API. Codex runs only hooks its user trusted, so
the user's step comes first: its interactive interface asks to review new hooks, and "Trust all and
continue" records each hook's hash in config.toml. Then `codex exec --approve-for-me` (an approval
policy other than never), whose escalation request goes to the PermissionRequest hook first,
answered allow and then deny from outside."""

PACKAGES = ["@openai/codex"]
PROMPT = "Say hi in the shell"
# No app-server daemon: it would outlive the run, out of the process group.
CONFIG = """model = "e2e-model"
model_provider = "e2e"
check_for_update_on_startup = false
analytics = { enabled = false }
features = { plugins = false, apps = false, remote_plugin = false, unbounded_connection_retries = false, daemon_auto_start = false }
[model_providers.e2e]
name = "e2e"
base_url = "%s/v1"
wire_api = "responses"
env_key = "E2E_API_KEY"
request_max_retries = 0
stream_max_retries = 0
"""
TRUST_ADVICE = "Codex runs them only once you trust them"


def trusted(c):  # the review of new hooks comes up a moment after the start
    if "Trust all and continue" in c.screen():
        c.press("Down", "Enter")
    return "trusted_hash" in (c.home / ".codex/config.toml").read_text()


def exec_run(ctx, env, answer):
    ctx.forget()
    approvals = ctx.approve(answer)
    out = ctx.run([ctx.bin("codex"), "exec", "--skip-git-repo-check", "--approve-for-me", PROMPT], env=env)
    ctx.check(approvals.wait(5) == 0 and "codex asks:" in approvals.stdout.read(), "no permission request: " + out)
    after = ["working"] if answer == "allow" else []
    ctx.expect_session(["idle", "working", "awaiting", *after, "done", "ended"], title=PROMPT, tool="Bash")
    ctx.check(ctx.ran() == (answer == "allow"), "the agent did not obey %s: %s" % (answer, out))


def run(ctx):
    ctx.fresh()
    ctx.check(TRUST_ADVICE in ctx.installed, "install does not say how to trust: " + ctx.installed)
    (ctx.home / ".codex/config.toml").write_text(CONFIG % ctx.server.url)
    env, doctor = {"E2E_API_KEY": "dummy"}, ("doctor", "--test-home", str(ctx.home))
    ctx.check(TRUST_ADVICE in ctx.pelmora(*doctor, any_status=True), "doctor does not say how to trust")
    ctx.run_tmux([ctx.bin("codex")], trusted, timeout=30, env=env)
    ctx.check(TRUST_ADVICE not in ctx.pelmora(*doctor, any_status=True), "doctor asks to trust trusted hooks")
    # The command asks to leave the sandbox, which only a user may allow.
    ctx.server.extra = {"sandbox_permissions": "require_escalated", "justification": "Say hi?"}
    exec_run(ctx, env, "allow")
    exec_run(ctx, env, "deny")
