#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hook/HostInfo.h"
#include "hook/Source.h"
#include "json/JSONValue.h"
#include "support/Enum.h"

namespace pelmora {

struct JSONDecodeFailure;

enum class SessionState { idle, working, awaiting, compacting, failed, done, ended };

std::string_view rawValue(SessionState state);
template <> std::optional<SessionState> fromRaw<SessionState>(std::string_view raw);

// The persisted state of one session: the unit of the session files.
struct SessionRecord {
    static constexpr int currentSchema = 1;

    int schemaVersion = currentSchema;
    Source source = Source::claude;
    std::string sessionID;
    std::string cwd;
    SessionState state = SessionState::idle;
    std::optional<std::string> tool;
    std::optional<std::string> summary;
    std::optional<std::string> title;
    std::optional<double> turnStartedAt;
    double stateSince = 0;
    double updatedAt = 0;
    std::optional<std::string> lastEvent;
    HostInfo host;
    std::optional<std::int32_t> pid;
    std::optional<double> pidStartTime;
    std::optional<std::string> detail;
    std::optional<std::string> logPath;
    std::optional<std::string> openURL;
    std::optional<std::int32_t> exitCode;
    std::optional<std::string> container;
    std::optional<std::string> composeProject;
    std::optional<std::int64_t> port;
    std::optional<std::string> webURL;

    bool operator==(const SessionRecord&) const = default;

    // A fresh record: idle since `now`, every optional absent.
    static SessionRecord make(Source source, std::string sessionID, std::string cwd, double now);

    // "<source raw value>-<session id>"
    std::string key() const;
    // The last path component of cwd, or cwd itself when that is empty.
    std::string projectName() const;

    // The JSON form: keys are the field names, absent optionals left out,
    // timestamps as seconds since 1970.
    JSONValue toJSON() const;
    // Absent and null both read as none; a missing required field, a wrong
    // type, or an unknown state or source gives std::nullopt, and the first
    // such member in `*failure` when that is given ("host.tmux: expected a
    // boolean").
    static std::optional<SessionRecord> fromJSON(const JSONValue& json,
                                                 JSONDecodeFailure* failure = nullptr);

    // The file bytes: compact JSON with sorted keys.
    std::string encode() const;
    static std::optional<SessionRecord> decode(std::string_view bytes);
};

} // namespace pelmora
