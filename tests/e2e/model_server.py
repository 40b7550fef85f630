"""A scripted model on 127.0.0.1 for the end-to-end suite (standard library only).

Speaks the Anthropic Messages API (/v1/messages), OpenAI Chat Completions (/v1/chat/completions) and
OpenAI Responses (/v1/responses), streaming (SSE) when the request asks. It keeps no conversation state:
- the request offers a shell tool and holds no tool result yet: call that tool with `Server.command`
  (which carries a secret); the arguments follow the tool's schema, and `Server.extra` adds to them;
- a tool result is there: the final answer FINAL;
- anything else (titles, summaries, a client without tools): a short plain answer.
Past `limit` requests (see reset()) every request gets an error, so a looping client ends.
`Server.log` holds "METHOD path model" per request, for failure messages.
"""
import itertools, json, threading, time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

FINAL = "All done."
SHELL_TOOLS = ("Bash", "shell", "shell_command", "exec_command", "run_shell_command", "bash")  # preferred first
ids = itertools.count(1)


def shell_tool(tools):
    """(name, schema) of the request's shell tool, whichever API shaped it."""
    found = {f["name"]: f.get("parameters") or f.get("input_schema") or {}
             for f in (t.get("function", t) for t in tools or []) if "name" in f}
    names = [n for n in SHELL_TOOLS if n in found] + [n for n in found if "shell" in n.lower() or "bash" in n.lower()]
    return (names[0], found[names[0]]) if names else None


def has_tool_result(body):
    items = body.get("messages") or body.get("input") or []
    for m in items if isinstance(items, list) else []:
        content = m.get("content")
        if m.get("role") == "tool" or str(m.get("type", "")).endswith("call_output") or (
                isinstance(content, list) and any(c.get("type") == "tool_result" for c in content)):
            return True
    return False


class Server:
    def __init__(self, command):
        self.command, self.extra = command, {}
        self.reset()
        self.http = ThreadingHTTPServer(("127.0.0.1", 0), handler(self))
        self.url = "http://127.0.0.1:%d" % self.http.server_address[1]
        threading.Thread(target=self.http.serve_forever, daemon=True).start()

    def reset(self, limit=12):
        self.log, self.limit = [], limit

    def plan(self, body):
        """("tool", name, arguments) or ("text", words)."""
        tool = shell_tool(body.get("tools"))
        if has_tool_result(body) or not tool:
            return ("text", FINAL if has_tool_result(body) else "Hello.")
        props = tool[1].get("properties", {})
        key = "cmd" if "cmd" in props and "command" not in props else "command"
        args = {key: ["bash", "-lc", self.command] if props.get(key, {}).get("type") == "array" else self.command}
        args.update({"description": "Say hi"} if "description" in props else {}, **self.extra)
        return ("tool", tool[0], args)


def anthropic(body, plan, sse):
    tool = plan[0] == "tool"
    block = {"type": "tool_use", "id": "toolu_%d" % next(ids), "name": plan[1], "input": plan[2]} if tool \
        else {"type": "text", "text": plan[1]}
    stop = "tool_use" if tool else "end_turn"
    message = {"id": "msg_%d" % next(ids), "type": "message", "role": "assistant", "model": body.get("model"),
               "content": [block], "stop_reason": stop, "stop_sequence": None,
               "usage": {"input_tokens": 10, "output_tokens": 5}}
    if not sse:
        return message
    sse("message_start", {"message": dict(message, content=[], stop_reason=None)})
    sse("content_block_start", {"index": 0, "content_block": dict(block, input={}) if tool else dict(block, text="")})
    delta = {"type": "input_json_delta", "partial_json": json.dumps(plan[2])} if tool \
        else {"type": "text_delta", "text": plan[1]}
    sse("content_block_delta", {"index": 0, "delta": delta})
    sse("content_block_stop", {"index": 0})
    sse("message_delta", {"delta": {"stop_reason": stop, "stop_sequence": None}, "usage": {"output_tokens": 5}})
    sse("message_stop", {})


def chat(body, plan, sse):
    base = {"id": "chatcmpl-%d" % next(ids), "created": int(time.time()), "model": body.get("model")}
    usage = {"prompt_tokens": 10, "completion_tokens": 5, "total_tokens": 15}
    message, finish = {"role": "assistant", "content": plan[1]}, "stop"
    if plan[0] == "tool":
        call = {"index": 0, "id": "call_%d" % next(ids), "type": "function",
                "function": {"name": plan[1], "arguments": json.dumps(plan[2])}}
        message, finish = {"role": "assistant", "content": None, "tool_calls": [call]}, "tool_calls"
    if not sse:
        return dict(base, object="chat.completion", usage=usage,
                    choices=[{"index": 0, "message": message, "finish_reason": finish}])
    chunk = dict(base, object="chat.completion.chunk")
    sse(None, dict(chunk, choices=[{"index": 0, "delta": message, "finish_reason": None}]))
    sse(None, dict(chunk, choices=[{"index": 0, "delta": {}, "finish_reason": finish}], usage=usage))
    sse(None, "[DONE]")


def responses(body, plan, sse):
    item = {"type": "message", "id": "msg_%d" % next(ids), "role": "assistant", "status": "completed",
            "content": [{"type": "output_text", "text": plan[1], "annotations": []}]}
    if plan[0] == "tool":
        item = {"type": "function_call", "id": "fc_%d" % next(ids), "call_id": "call_%d" % next(ids),
                "name": plan[1], "arguments": json.dumps(plan[2]), "status": "completed"}
    usage = {"input_tokens": 10, "input_tokens_details": {"cached_tokens": 0}, "output_tokens": 5,
             "output_tokens_details": {"reasoning_tokens": 0}, "total_tokens": 15}
    response = {"id": "resp_%d" % next(ids), "object": "response", "created_at": int(time.time()),
                "model": body.get("model"), "status": "completed", "output": [item], "usage": usage}
    if not sse:
        return response
    sse("response.created", {"response": dict(response, status="in_progress", output=[])})
    sse("response.output_item.added", {"output_index": 0, "item": item})
    if plan[0] == "text":
        sse("response.output_text.delta", {"item_id": item["id"], "output_index": 0, "content_index": 0,
                                           "delta": plan[1]})
    sse("response.output_item.done", {"output_index": 0, "item": item})
    sse("response.completed", {"response": response})


APIS = {"/messages": anthropic, "/chat/completions": chat, "/responses": responses}


def handler(server):
    class Handler(BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def log_message(self, *args):
            pass

        def reply(self, status, payload, kind="application/json", data=None):
            data = data or json.dumps(payload).encode()
            self.send_response(status)
            self.send_header("Content-Type", kind)
            self.send_header("Content-Length" if payload else "Connection", str(len(data)) if payload else "close")
            self.end_headers()
            self.wfile.write(data)

        def do_GET(self):
            server.log.append("GET " + self.path)
            self.reply(200, {"object": "list", "data": [], "models": []})

        def do_POST(self):
            try:
                body = json.loads(self.rfile.read(int(self.headers.get("Content-Length") or 0)) or b"{}")
            except ValueError:
                body = {}
            path = self.path.split("?")[0]
            server.log.append("POST %s %s" % (path, body.get("model")))
            api = next((f for suffix, f in APIS.items() if path.endswith(suffix)), None)
            if api is None or len(server.log) > server.limit:
                why = "no such API" if api is None else "the scripted session is over"
                return self.reply(400, {"type": "error", "error": {"type": "invalid_request_error", "message": why}})
            if not body.get("stream"):
                return self.reply(200, api(body, server.plan(body), None))
            events = []

            def sse(event, data):  # Anthropic and Responses name each event, and repeat it as "type"
                data = data if isinstance(data, str) else json.dumps(dict(type=event, **data) if event else data)
                events.append(("event: %s\n" % event if event else "") + "data: %s\n\n" % data)
            api(body, server.plan(body), sse)
            self.reply(200, None, "text/event-stream", "".join(events).encode())
            self.close_connection = True

    return Handler
