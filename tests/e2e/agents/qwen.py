"""Qwen Code: a model provider in its settings.json. Headless (`-p`) it never asks permission and
sends no SessionEnd, so the permission flow runs in its interactive interface under tmux, which asks
PermissionRequest before PreToolUse; answered allow and then deny from outside."""
import json

PACKAGES = ["@qwen-code/qwen-code"]
PROMPT = "Say hi in the shell"


def setup(ctx):
    ctx.fresh()
    path = ctx.home / ".qwen/settings.json"
    settings = json.loads(path.read_text())
    # Qwen reads 1000 and above as milliseconds (older versions read every value so).
    timeouts = {e: g[0]["hooks"][0]["timeout"] for e, g in settings["hooks"].items()}
    ctx.check(timeouts["PermissionRequest"] == 130000 and timeouts["Stop"] == 5000, "timeouts %s" % timeouts)
    settings.update({
        "modelProviders": {"openai": [{"id": "e2e-model", "baseUrl": ctx.server.url + "/v1",
                                       "envKey": "E2E_API_KEY"}]},
        "security": {"auth": {"selectedType": "openai"}}, "model": {"name": "e2e-model"},
        "general": {"enableAutoUpdate": False}, "privacy": {"usageStatisticsEnabled": False},
        "telemetry": {"enabled": False}, "ui": {"enableFollowupSuggestions": False}})
    path.write_text(json.dumps(settings))
    return {"E2E_API_KEY": "dummy", "QWEN_CODE_SUPPRESS_YOLO_WARNING": "1"}


def one_turn(ctx):  # Qwen goes on after a tool with an empty prompt, which must not restart the turn
    starts = {r["turnStartedAt"] for r in ctx.records if "turnStartedAt" in r}
    ctx.check(len(starts) == 1, "the turn restarted: %s" % starts)


def interactive(ctx, answer):
    env, approvals = setup(ctx), ctx.approve(answer)

    def ended(c):  # /quit once the turn is done, for SessionEnd
        if c.states[-1:] == ["done"]:
            c.press("/quit")
        return c.states[-1:] == ["ended"]
    # Auto mode would ask the model to classify the call first; default mode asks the user.
    ctx.run_tmux([ctx.bin("qwen"), "--approval-mode", "default", "-i", PROMPT], ended, timeout=90, env=env)
    ctx.check(approvals.wait(5) == 0 and "qwen asks: run_shell_command" in approvals.stdout.read(),
              "no permission request")
    # After the answer Qwen goes on with an empty UserPromptSubmit, allowed or not.
    ctx.expect_session(["working", "awaiting", "working", "done", "ended"], title=PROMPT, tool="run_shell_command")
    ctx.check(ctx.ran() == (answer == "allow"), "the agent did not obey " + answer)
    one_turn(ctx)


def run(ctx):
    env = setup(ctx)
    out = ctx.run([ctx.bin("qwen"), "-p", PROMPT, "--yolo"], env=env)
    ctx.check(ctx.ran() and "All done." in out, "the command did not run: " + out)
    ctx.expect_session(["working", "done"], title=PROMPT, tool="run_shell_command")
    one_turn(ctx)
    interactive(ctx, "allow")
    interactive(ctx, "deny")
