#include "integration/HookInstaller.h"
#include "integration/InstallerFiles.h"
#include "support/Text.h"

namespace pelmora::HookInstaller {
namespace {

// Up to and including the opening quote of HOOK's value.
constexpr std::string_view head =
    "// pelmora-managed \xE2\x80\x94 written by Pelmora; \"Remove\" in Pelmora's settings "
    "deletes this file.\n"
    "// Reports pi's lifecycle to the Pelmora notch. It only reports state and never blocks a "
    "tool call.\n"
    "import { spawn } from \"node:child_process\";\n"
    "import { basename } from \"node:path\";\n"
    "\n"
    "const HOOK = \"";

// From HOOK's closing quote to the end. Handlers return at once, all but the
// shutdown's, and catch everything: a report must never delay, block or fail
// what pi is doing. Reports go out one at a time, in the order pi raised them, so the notch
// never sees a session end before the turn's end. In print mode pi shuts the
// session down while its own queue may still hold agent_end, and quits as
// soon as nothing holds node's event loop: so the shutdown handler, which pi
// awaits, first waits (briefly) for the open run to end and then for every
// pending report, and the hook processes stay referenced until they exit.
constexpr std::string_view tail = R"ts(";

const REPORT_LIMIT_MS = 5000;
const RUN_END_WAIT_MS = 2000;

let pending: Promise<void> = Promise.resolve();
let openRuns = 0;
let runEnded: (() => void) | undefined;

function sessionId(ctx: any): string {
  try {
    const file = ctx?.sessionManager?.getSessionFile?.();
    if (typeof file === "string" && file.length > 0) {
      return basename(file).replace(/\.jsonl$/, "");
    }
  } catch {
    // no session file: fall back to the process
  }
  return `pid-${process.pid}`;
}

function send(payload: string): Promise<void> {
  return new Promise((resolve) => {
    try {
      const child = spawn(HOOK, ["--source", "pi", "--ppid", String(process.pid)], {
        stdio: ["pipe", "ignore", "ignore"],
        detached: true,
        env: { ...process.env, PELMORA_MANAGED: "1" },
      });
      const limit = setTimeout(() => {
        try {
          child.kill();
        } catch {
          // already gone
        }
      }, REPORT_LIMIT_MS);
      const finished = () => {
        clearTimeout(limit);
        resolve();
      };
      child.on("error", finished);
      child.on("close", finished);
      child.stdin?.on("error", () => {});
      child.stdin?.end(payload);
    } catch {
      resolve();
    }
  });
}

function report(name: string, ctx: any, extra: Record<string, unknown> = {}): Promise<void> {
  try {
    const payload = JSON.stringify({
      hook_event_name: name,
      session_id: sessionId(ctx),
      cwd: typeof ctx?.cwd === "string" ? ctx.cwd : process.cwd(),
      ...extra,
    });
    pending = pending.then(() => send(payload));
  } catch {
    // reporting is best effort
  }
  return pending;
}

function runsEnded(): Promise<void> {
  if (openRuns === 0) {
    return Promise.resolve();
  }
  return new Promise((resolve) => {
    const limit = setTimeout(resolve, RUN_END_WAIT_MS);
    runEnded = () => {
      clearTimeout(limit);
      resolve();
    };
  });
}

export default function (pi: any): void {
  pi.on("session_start", (_event: any, ctx: any) => {
    report("SessionStart", ctx);
  });
  pi.on("agent_start", (_event: any, ctx: any) => {
    openRuns += 1;
    report("UserPromptSubmit", ctx);
  });
  pi.on("before_agent_start", (event: any, ctx: any) => {
    if (event?.prompt) {
      report("UserPromptSubmit", ctx, { prompt: String(event.prompt) });
    }
  });
  pi.on("tool_call", (event: any, ctx: any) => {
    report("PreToolUse", ctx, { tool_name: event?.toolName, tool_input: event?.input ?? {} });
  });
  pi.on("tool_result", (event: any, ctx: any) => {
    report("PostToolUse", ctx, { tool_name: event?.toolName });
  });
  pi.on("agent_end", (_event: any, ctx: any) => {
    openRuns = Math.max(0, openRuns - 1);
    report("Stop", ctx);
    if (openRuns === 0) {
      runEnded?.();
    }
  });
  pi.on("session_shutdown", async (_event: any, ctx: any) => {
    try {
      await runsEnded();
      await report("SessionEnd", ctx);
    } catch {
      // reporting is best effort
    }
  });
}
)ts";

// The body of a TypeScript string literal.
std::string literalBody(std::string_view text) {
    std::string body;
    for (char c : text) {
        if (c == '\\' || c == '"') {
            body += '\\';
            body += c;
        } else if (c == '\n') {
            body += "\\n";
        } else if (c == '\r') {
            body += "\\r";
        } else {
            body += c;
        }
    }
    return body;
}

} // namespace

std::string piExtension(std::string_view hookPath) {
    std::string text(head);
    text += literalBody(hookPath);
    text += tail;
    return text;
}

Status piStatus(const HookTarget& target, std::string_view hookPath) {
    const std::optional<std::string> text = InstallerFiles::readText(target.fileURL);
    if (!text) {
        return Status::notInstalled();
    }
    if (!Text::isValidUTF8(*text)) {
        return Status::unreadable("not UTF-8");
    }
    if (text->find(piMarker) == std::string::npos) {
        return Status::unreadable(target.fileURL.filename().string() +
                                  " exists and is not Pelmora's");
    }
    if (*text != piExtension(hookPath)) {
        return Status::stale();
    }
    return InstallerFiles::isExecutableFile(hookPath) ? Status::installed() : Status::stale();
}

} // namespace pelmora::HookInstaller
