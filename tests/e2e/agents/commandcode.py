"""Command Code: a keyless BYOK provider in its providers.json, local-only mode (nothing goes to
Command Code's servers; a dummy COMMAND_CODE_API_KEY passes print mode's login check). Its hooks
are SessionStart, PreToolUse, PostToolUse and Stop only: no prompt event (so no title), no
SessionEnd (so no ended) and no permission event. Its interactive interface asks permission in its
own dialog before PreToolUse fires, so Pelmora never sees the wait and cannot answer it; the dialog
is answered in the terminal here, and what the session shows is checked."""
import json, time

PACKAGES = ["command-code"]
PROMPT = "Say hi in the shell"


def run(ctx):
    ctx.fresh()
    (ctx.home / ".commandcode/providers.json").write_text(json.dumps({"provider": {"e2e": {
        "baseURL": ctx.server.url + "/v1", "apiKey": False, "models": {"e2e-model": {"contextWindow": 100000}}}}}))
    (ctx.home / ".commandcode/updates.json").write_text(json.dumps({"autoUpdate": False,
                                                                  "lastCheckedAt": int(time.time() * 1000)}))
    env = {"CMD_LOCAL_ONLY": "1", "COMMAND_CODE_API_KEY": "dummy"}
    argv = [ctx.bin("cmd"), "--model", "e2e/e2e-model"]
    out = ctx.run([*argv, "--yolo", "-p", PROMPT], env=env)
    ctx.check(ctx.ran() and "All done." in out, "the command did not run: " + out)
    ctx.expect_session(["working", "done"], tool="shell_command")

    ctx.forget()

    def answered(c):  # its own permission dialog, answered "Yes" in the terminal
        if "Command Code needs to execute" in c.screen():
            c.press("Enter")
        return c.states[-1:] == ["done"]
    ctx.run_tmux([*argv, PROMPT], answered, env=env)
    ctx.expect_session(["idle", "working", "done"], tool="shell_command")
    ctx.check(ctx.ran() and "awaiting" not in ctx.states, "states %s" % ctx.states)
