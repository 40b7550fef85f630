"""pi: a provider in its models.json, `pi -p` offline. pi loads Pelmora's extension itself; the
extension only reports (pi has no permission prompt of its own, and Pelmora answers none for it).
Print mode shuts the session down while pi's queue may still hold the turn's end, so a few runs
check that done and ended both arrive, in that order."""
import json

PACKAGES = ["@mariozechner/pi-coding-agent"]
PROMPT = "Say hi in the shell"


def run(ctx):
    ctx.fresh()
    (ctx.home / ".pi/agent/models.json").write_text(json.dumps({"providers": {"e2e": {
        "baseUrl": ctx.server.url + "/v1", "api": "openai-completions", "apiKey": "dummy",
        "compat": {"supportsDeveloperRole": False, "supportsReasoningEffort": False},
        "models": [{"id": "e2e-model"}]}}}))
    argv = [ctx.bin("pi"), "--provider", "e2e", "--model", "e2e-model", "--offline", "-p", PROMPT]
    for _ in range(3):
        ctx.forget()
        out = ctx.run(argv, env={"PI_OFFLINE": "1", "PI_TELEMETRY": "0"})
        ctx.check(ctx.ran() and "All done." in out and "Extension error" not in out, "pi said: " + out)
        ctx.expect_session(["idle", "working", "done", "ended"], title=PROMPT, tool="bash")
        ctx.check(ctx.states[-1] == "ended", "states %s: the last events were lost" % ctx.states)
