#include "session/SessionRecord.h"

#include <limits>
#include <utility>

#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

constexpr std::string_view stateNames[] = {"idle",   "working", "awaiting", "compacting",
                                           "failed", "done",    "ended"};

// Builds an object member by member, leaving absent optionals out.
class ObjectWriter {
public:
    void put(std::string_view key, JSONValue value) {
        members_.push_back({std::string(key), std::move(value)});
    }
    void put(std::string_view key, const std::optional<std::string>& text) {
        if (text) {
            put(key, JSONValue::string(*text));
        }
    }
    void putTime(std::string_view key, std::optional<double> seconds) {
        if (seconds) {
            put(key, JSONValue::number(*seconds));
        }
    }
    template <class Integer> void putInteger(std::string_view key, std::optional<Integer> value) {
        if (value) {
            put(key, JSONValue::integer(static_cast<std::int64_t>(*value)));
        }
    }
    JSONValue finish() { return JSONValue::object(std::move(members_)); }

private:
    JSONValue::Members members_;
};

// Reads members the way a strict keyed decoder does: a required member must
// be present with the right type; an optional one may be absent or null, but
// a present value of the wrong type fails the whole object.
class ObjectReader {
public:
    explicit ObjectReader(const JSONValue& object) : object_(object) {}

    bool failed() const { return failed_; }

    const JSONValue* required(std::string_view key) {
        const JSONValue* value = object_.find(key);
        if (value == nullptr || value->isNull()) {
            failed_ = true;
            return nullptr;
        }
        return value;
    }

    std::string requiredString(std::string_view key) {
        const JSONValue* value = required(key);
        const std::string* text = value ? value->stringValue() : nullptr;
        if (text == nullptr) {
            failed_ = true;
            return {};
        }
        return *text;
    }

    double requiredDouble(std::string_view key) {
        const JSONValue* value = required(key);
        std::optional<double> number = value ? value->doubleValue() : std::nullopt;
        if (!number) {
            failed_ = true;
            return 0;
        }
        return *number;
    }

    bool requiredBool(std::string_view key) {
        const JSONValue* value = required(key);
        std::optional<bool> flag = value ? value->boolValue() : std::nullopt;
        if (!flag) {
            failed_ = true;
            return false;
        }
        return *flag;
    }

    template <class Integer> Integer requiredInteger(std::string_view key) {
        const JSONValue* value = required(key);
        auto number = value ? fitting<Integer>(*value) : std::nullopt;
        if (!number) {
            failed_ = true;
            return 0;
        }
        return *number;
    }

    template <class E> E requiredRaw(std::string_view key) {
        auto known = fromRaw<E>(requiredString(key));
        if (!known) {
            failed_ = true;
            return E{};
        }
        return *known;
    }

    std::optional<std::string> optionalString(std::string_view key) {
        const JSONValue* value = optional(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        const std::string* text = value->stringValue();
        if (text == nullptr) {
            failed_ = true;
            return std::nullopt;
        }
        return *text;
    }

    std::optional<double> optionalDouble(std::string_view key) {
        const JSONValue* value = optional(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        auto number = value->doubleValue();
        failed_ = failed_ || !number;
        return number;
    }

    template <class Integer> std::optional<Integer> optionalInteger(std::string_view key) {
        const JSONValue* value = optional(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        auto number = fitting<Integer>(*value);
        failed_ = failed_ || !number;
        return number;
    }

private:
    const JSONValue* optional(std::string_view key) const {
        const JSONValue* value = object_.find(key);
        return value == nullptr || value->isNull() ? nullptr : value;
    }

    template <class Integer> static std::optional<Integer> fitting(const JSONValue& value) {
        auto number = value.integerValue();
        if (!number || *number < std::numeric_limits<Integer>::min() ||
            *number > std::numeric_limits<Integer>::max()) {
            return std::nullopt;
        }
        return static_cast<Integer>(*number);
    }

    const JSONValue& object_;
    bool failed_ = false;
};

JSONValue hostJSON(const HostInfo& host) {
    ObjectWriter out;
    out.put("termProgram", host.termProgram);
    out.put("termSessionID", host.termSessionID);
    out.put("itermSessionID", host.itermSessionID);
    out.put("tmux", JSONValue::boolean(host.tmux));
    out.put("tty", host.tty);
    out.put("bundleID", host.bundleID);
    return out.finish();
}

std::optional<HostInfo> hostFromJSON(const JSONValue& json) {
    if (!json.isObject()) {
        return std::nullopt;
    }
    ObjectReader in(json);
    HostInfo host;
    host.termProgram = in.optionalString("termProgram");
    host.termSessionID = in.optionalString("termSessionID");
    host.itermSessionID = in.optionalString("itermSessionID");
    host.tmux = in.requiredBool("tmux");
    host.tty = in.optionalString("tty");
    host.bundleID = in.optionalString("bundleID");
    if (in.failed()) {
        return std::nullopt;
    }
    return host;
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
    ObjectWriter out;
    out.put("schemaVersion", JSONValue::integer(schemaVersion));
    out.put("source", JSONValue::string(std::string(rawValue(source))));
    out.put("sessionID", JSONValue::string(sessionID));
    out.put("cwd", JSONValue::string(cwd));
    out.put("state", JSONValue::string(std::string(rawValue(state))));
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

std::optional<SessionRecord> SessionRecord::fromJSON(const JSONValue& json) {
    if (!json.isObject()) {
        return std::nullopt;
    }
    ObjectReader in(json);
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
    const JSONValue* host = in.required("host");
    if (auto decoded = host ? hostFromJSON(*host) : std::nullopt) {
        record.host = std::move(*decoded);
    } else {
        return std::nullopt;
    }
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
    if (in.failed()) {
        return std::nullopt;
    }
    return record;
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
