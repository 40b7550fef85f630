#include "session/SessionRecord.h"

#include <utility>

#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

constexpr std::string_view stateNames[] = {"idle",   "working", "awaiting", "compacting",
                                           "failed", "done",    "ended"};

JSONValue hostJSON(const HostInfo& host) {
    JSONObjectWriter out;
    out.put("termProgram", host.termProgram);
    out.put("termSessionID", host.termSessionID);
    out.put("itermSessionID", host.itermSessionID);
    out.put("tmux", JSONValue::boolean(host.tmux));
    out.put("tty", host.tty);
    out.put("bundleID", host.bundleID);
    return out.finish();
}

std::optional<HostInfo> hostFromJSON(const JSONValue& json, JSONDecodeFailure* failure) {
    JSONObjectReader in(json);
    HostInfo host;
    host.termProgram = in.optionalString("termProgram");
    host.termSessionID = in.optionalString("termSessionID");
    host.itermSessionID = in.optionalString("itermSessionID");
    host.tmux = in.requiredBool("tmux");
    host.tty = in.optionalString("tty");
    host.bundleID = in.optionalString("bundleID");
    return in.finish(std::move(host), failure);
}

} // namespace

std::string_view rawValue(SessionState state) {
    return stateNames[static_cast<std::size_t>(state)];
}

template <> std::optional<SessionState> fromRaw<SessionState>(std::string_view raw) {
    for (std::size_t i = 0; i < std::size(stateNames); ++i) {
        if (stateNames[i] == raw) {
            return static_cast<SessionState>(i);
        }
    }
    return std::nullopt;
}

SessionRecord SessionRecord::make(Source source, std::string sessionID, std::string cwd,
                                  double now) {
    SessionRecord record;
    record.source = source;
    record.sessionID = std::move(sessionID);
    record.cwd = std::move(cwd);
    record.stateSince = now;
    record.updatedAt = now;
    return record;
}

std::string SessionRecord::key() const {
    std::string text(rawValue(source));
    text += '-';
    text += sessionID;
    return text;
}

std::string SessionRecord::projectName() const {
    std::string_view path = cwd;
    auto end = path.find_last_not_of('/');
    if (end == std::string_view::npos) {
        // Only slashes (the root) or nothing at all.
        return path.empty() ? cwd : "/";
    }
    path = path.substr(0, end + 1);
    auto slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

JSONValue SessionRecord::toJSON() const {
    JSONObjectWriter out;
    out.put("schemaVersion", JSONValue::integer(schemaVersion));
    out.putRaw("source", source);
    out.put("sessionID", sessionID);
    out.put("cwd", cwd);
    out.putRaw("state", state);
    out.put("tool", tool);
    out.put("summary", summary);
    out.put("title", title);
    out.putTime("turnStartedAt", turnStartedAt);
    out.put("stateSince", JSONValue::number(stateSince));
    out.put("updatedAt", JSONValue::number(updatedAt));
    out.put("lastEvent", lastEvent);
    out.put("host", hostJSON(host));
    out.putInteger("pid", pid);
    out.putTime("pidStartTime", pidStartTime);
    out.put("detail", detail);
    out.put("logPath", logPath);
    out.put("openURL", openURL);
    out.putInteger("exitCode", exitCode);
    out.put("container", container);
    out.put("composeProject", composeProject);
    out.putInteger("port", port);
    out.put("webURL", webURL);
    return out.finish();
}

std::optional<SessionRecord> SessionRecord::fromJSON(const JSONValue& json,
                                                     JSONDecodeFailure* failure) {
    JSONObjectReader in(json);
    SessionRecord record;
    record.schemaVersion = in.requiredInteger<int>("schemaVersion");
    record.source = in.requiredRaw<Source>("source");
    record.sessionID = in.requiredString("sessionID");
    record.cwd = in.requiredString("cwd");
    record.state = in.requiredRaw<SessionState>("state");
    record.tool = in.optionalString("tool");
    record.summary = in.optionalString("summary");
    record.title = in.optionalString("title");
    record.turnStartedAt = in.optionalDouble("turnStartedAt");
    record.stateSince = in.requiredDouble("stateSince");
    record.updatedAt = in.requiredDouble("updatedAt");
    record.lastEvent = in.optionalString("lastEvent");
    record.host = in.requiredDecoded<HostInfo>("host", hostFromJSON);
    record.pid = in.optionalInteger<std::int32_t>("pid");
    record.pidStartTime = in.optionalDouble("pidStartTime");
    record.detail = in.optionalString("detail");
    record.logPath = in.optionalString("logPath");
    record.openURL = in.optionalString("openURL");
    record.exitCode = in.optionalInteger<std::int32_t>("exitCode");
    record.container = in.optionalString("container");
    record.composeProject = in.optionalString("composeProject");
    record.port = in.optionalInteger<std::int64_t>("port");
    record.webURL = in.optionalString("webURL");
    return in.finish(std::move(record), failure);
}

std::string SessionRecord::encode() const {
    return OrderedJSON::serializeCompact(toJSON());
}

std::optional<SessionRecord> SessionRecord::decode(std::string_view bytes) {
    auto json = OrderedJSON::tryParse(bytes);
    if (!json) {
        return std::nullopt;
    }
    return fromJSON(*json);
}

} // namespace pelmora
