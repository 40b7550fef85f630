"""A scripted model on 127.0.0.1 for the end-to-end suite (standard library only).

It speaks the Anthropic Messages API (/v1/messages), OpenAI Chat Completions
(/v1/chat/completions) and OpenAI Responses (/v1/responses), streaming when the
request asks for it, and plays one short session per conversation, without state
of its own: it reads where the conversation is from the request.
- The request offers a shell tool and holds no tool result yet: call that tool
  with `Server.command` (which carries a secret). The arguments follow the tool's
  schema; `Server.extra` adds or overrides arguments (Codex's escalation request).
- A tool result is there: a final text answer, FINAL.
- Anything else (titles, summaries, token counts, a client without tools): a
  short plain answer.
Past `limit` requests every request gets an error, so a looping client ends.
`Server.log` keeps "METHOD path model" per request for the failure messages.
"""
import itertools
import json
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

FINAL = "All done."
# Names the agents give their shell tool, in the order they are preferred.
SHELL_TOOLS = ("Bash", "shell", "shell_command", "exec_command", "run_shell_command", "bash")
ids = itertools.count(1)


def shell_tool(tools):
    """(name, schema) of the request's shell tool, whichever API shaped it."""
    found = {}
    for t in tools or []:
        f = t.get("function", t)
        if "name" in f:
            found[f["name"]] = f.get("parameters") or f.get("input_schema") or {}
    for name in SHELL_TOOLS:
        if name in found:
            return name, found[name]
    return next(((n, s) for n, s in found.items() if "shell" in n.lower() or "bash" in n.lower()), None)


def has_tool_result(body):
    items = body.get("messages") or body.get("input") or []
    for m in items if isinstance(items, list) else []:
        if m.get("role") == "tool" or str(m.get("type", "")).endswith("call_output"):
            return True
        content = m.get("content")
        if isinstance(content, list) and any(c.get("type") == "tool_result" for c in content):
            return True
    return False


class Server:
    def __init__(self, command, limit=12):
        self.command, self.limit, self.extra, self.log = command, limit, {}, []
        self.http = ThreadingHTTPServer(("127.0.0.1", 0), handler(self))
        self.url = "http://127.0.0.1:%d" % self.http.server_address[1]
        threading.Thread(target=self.http.serve_forever, daemon=True).start()

    def reset(self, limit=12):
        self.log, self.limit = [], limit

    def arguments(self, schema):
        props = schema.get("properties", {})
        args = {}
        for key in ("command", "cmd"):
            if key in props:
                array = props[key].get("type") == "array"
                args[key] = ["bash", "-lc", self.command] if array else self.command
                break
        else:
            args["command"] = self.command
        if "description" in props:
            args["description"] = "Say hi"
        args.update(self.extra)
        return args

    def plan(self, body):
        """("tool", name, args) or ("text", words)."""
        tool = shell_tool(body.get("tools"))
        if has_tool_result(body):
            return ("text", FINAL)
        if tool:
            return ("tool", tool[0], self.arguments(tool[1]))
        return ("text", "Hello.")


def sse(write, event, data):
    write(("event: %s\n" % event if event else "") + "data: %s\n\n" % json.dumps(data))


def anthropic(body, plan, write):
    mid, model = "msg_%d" % next(ids), body.get("model", "model")
    if plan[0] == "tool":
        block = {"type": "tool_use", "id": "toolu_%d" % next(ids), "name": plan[1], "input": plan[2]}
    else:
        block = {"type": "text", "text": plan[1]}
    stop = "tool_use" if plan[0] == "tool" else "end_turn"
    usage = {"input_tokens": 10, "output_tokens": 5}
    message = {"id": mid, "type": "message", "role": "assistant", "model": model, "content": [block],
               "stop_reason": stop, "stop_sequence": None, "usage": usage}
    if not body.get("stream"):
        return message
    sse(write, "message_start", {"type": "message_start", "message": dict(message, content=[], stop_reason=None)})
    start = dict(block, input={}) if plan[0] == "tool" else dict(block, text="")
    sse(write, "content_block_start", {"type": "content_block_start", "index": 0, "content_block": start})
    delta = ({"type": "input_json_delta", "partial_json": json.dumps(plan[2])} if plan[0] == "tool"
             else {"type": "text_delta", "text": plan[1]})
    sse(write, "content_block_delta", {"type": "content_block_delta", "index": 0, "delta": delta})
    sse(write, "content_block_stop", {"type": "content_block_stop", "index": 0})
    sse(write, "message_delta", {"type": "message_delta", "delta": {"stop_reason": stop, "stop_sequence": None},
                                 "usage": {"output_tokens": 5}})
    sse(write, "message_stop", {"type": "message_stop"})


def chat(body, plan, write):
    base = {"id": "chatcmpl-%d" % next(ids), "created": int(time.time()), "model": body.get("model", "model")}
    if plan[0] == "tool":
        call = {"id": "call_%d" % next(ids), "type": "function",
                "function": {"name": plan[1], "arguments": json.dumps(plan[2])}}
        message, finish = {"role": "assistant", "content": None, "tool_calls": [call]}, "tool_calls"
    else:
        message, finish = {"role": "assistant", "content": plan[1]}, "stop"
    usage = {"prompt_tokens": 10, "completion_tokens": 5, "total_tokens": 15}
    if not body.get("stream"):
        return dict(base, object="chat.completion", usage=usage,
                    choices=[{"index": 0, "message": message, "finish_reason": finish}])
    if plan[0] == "tool":
        message["tool_calls"] = [dict(call, index=0)]
    chunk = dict(base, object="chat.completion.chunk")
    sse(write, None, dict(chunk, choices=[{"index": 0, "delta": message, "finish_reason": None}]))
    sse(write, None, dict(chunk, choices=[{"index": 0, "delta": {}, "finish_reason": finish}], usage=usage))
    write("data: [DONE]\n\n")


def responses(body, plan, write):
    rid = "resp_%d" % next(ids)
    if plan[0] == "tool":
        item = {"type": "function_call", "id": "fc_%d" % next(ids), "call_id": "call_%d" % next(ids),
                "name": plan[1], "arguments": json.dumps(plan[2]), "status": "completed"}
    else:
        item = {"type": "message", "id": "msg_%d" % next(ids), "role": "assistant", "status": "completed",
                "content": [{"type": "output_text", "text": plan[1], "annotations": []}]}
    usage = {"input_tokens": 10, "input_tokens_details": {"cached_tokens": 0}, "output_tokens": 5,
             "output_tokens_details": {"reasoning_tokens": 0}, "total_tokens": 15}
    response = {"id": rid, "object": "response", "created_at": int(time.time()), "model": body.get("model"),
                "status": "completed", "output": [item], "usage": usage}
    if not body.get("stream"):
        return response
    sse(write, "response.created", {"type": "response.created", "response": dict(response, status="in_progress",
                                                                                  output=[])})
    sse(write, "response.output_item.added", {"type": "response.output_item.added", "output_index": 0, "item": item})
    if plan[0] == "text":
        sse(write, "response.output_text.delta", {"type": "response.output_text.delta", "item_id": item["id"],
                                                  "output_index": 0, "content_index": 0, "delta": plan[1]})
    sse(write, "response.output_item.done", {"type": "response.output_item.done", "output_index": 0, "item": item})
    sse(write, "response.completed", {"type": "response.completed", "response": response})


APIS = {"/messages": anthropic, "/chat/completions": chat, "/responses": responses}


def handler(server):
    class Handler(BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def log_message(self, *args):
            pass

        def reply(self, status, payload, kind="application/json"):
            data = payload if isinstance(payload, bytes) else json.dumps(payload).encode()
            self.send_response(status)
            self.send_header("Content-Type", kind)
            self.send_header("Content-Length", str(len(data)))
            self.end_headers()
            self.wfile.write(data)

        def do_GET(self):
            server.log.append("GET " + self.path)
            self.reply(200, {"object": "list", "data": [], "models": []})

        def do_HEAD(self):
            self.reply(200, b"")

        def do_POST(self):
            raw = self.rfile.read(int(self.headers.get("Content-Length") or 0))
            try:
                body = json.loads(raw or b"{}")
            except ValueError:
                body = {}
            path = self.path.split("?")[0]
            server.log.append("POST %s %s" % (path, body.get("model")))
            if path.endswith("/count_tokens"):
                return self.reply(200, {"input_tokens": 10})
            api = next((f for suffix, f in APIS.items() if path.endswith(suffix)), None)
            if api is None or len(server.log) > server.limit:
                why = "no such API" if api is None else "the scripted session is over"
                return self.reply(400, {"type": "error", "error": {"type": "invalid_request_error", "message": why}})
            plan = server.plan(body)
            if not body.get("stream"):
                return self.reply(200, api(body, plan, None))
            self.send_response(200)
            self.send_header("Content-Type", "text/event-stream")
            self.send_header("Cache-Control", "no-cache")
            self.send_header("Connection", "close")
            self.end_headers()
            api(body, plan, lambda text: self.wfile.write(text.encode()))
            self.wfile.flush()
            self.close_connection = True

    return Handler
