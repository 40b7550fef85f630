#include "alert/AlertRecords.h"

#include <iterator>

#include "json/KeyedJSON.h"

namespace pelmora {
namespace {

constexpr std::string_view levelNames[] = {"info", "action", "fail"};

} // namespace

std::string_view rawValue(AlertLevel level) {
    return levelNames[static_cast<std::size_t>(level)];
}

template <> std::optional<AlertLevel> fromRaw<AlertLevel>(std::string_view raw) {
    for (std::size_t i = 0; i < std::size(levelNames); ++i) {
        if (levelNames[i] == raw) {
            return static_cast<AlertLevel>(i);
        }
    }
    return std::nullopt;
}

int defaultTTL(AlertLevel level) {
    switch (level) {
    case AlertLevel::info:
        return 4;
    case AlertLevel::action:
        return 30;
    case AlertLevel::fail:
        return 0;
    }
    return 0;
}

JSONValue AlertRequest::toJSON() const {
    JSONObjectWriter out;
    out.put("title", title);
    out.put("body", body);
    out.putRaw("level", level);
    out.put("open", open);
    out.put("id", id);
    out.put("ttl", JSONValue::integer(ttl));
    return out.finish();
}

std::optional<AlertRequest> AlertRequest::fromJSON(const JSONValue& json) {
    JSONObjectReader in(json);
    AlertRequest request;
    request.title = in.requiredString("title");
    request.body = in.requiredString("body");
    request.level = in.requiredRaw<AlertLevel>("level");
    request.open = in.optionalString("open");
    request.id = in.optionalString("id");
    request.ttl = in.requiredInteger<int>("ttl");
    if (in.failed()) {
        return std::nullopt;
    }
    return request;
}

std::string AlertOutcome::message() const {
    switch (tag) {
    case Case::rejected:
        return "refused: " + text;
    case Case::failed:
        return text;
    case Case::shown:
        return {};
    case Case::notRunning:
        return "Pelmora is not running";
    case Case::disabled:
        return "External alerts are switched off in Pelmora's settings";
    }
    return {};
}

std::int32_t AlertOutcome::exitCode() const {
    switch (tag) {
    case Case::rejected:
        return 3;
    case Case::failed:
        return 4;
    case Case::shown:
        return 0;
    case Case::notRunning:
        return 1;
    case Case::disabled:
        return 2;
    }
    return 4;
}

AlertReply AlertReply::of(const AlertOutcome& outcome) {
    switch (outcome.tag) {
    case AlertOutcome::Case::rejected:
        return {"rejected", outcome.text};
    case AlertOutcome::Case::failed:
        return {"failed", outcome.text};
    case AlertOutcome::Case::shown:
        return {"ok", std::nullopt};
    case AlertOutcome::Case::notRunning:
        return {"notRunning", std::nullopt};
    case AlertOutcome::Case::disabled:
        return {"disabled", std::nullopt};
    }
    return {"failed", outcome.text};
}

AlertOutcome AlertReply::outcome() const {
    if (status == "ok") {
        return AlertOutcome::shown();
    }
    if (status == "disabled") {
        return AlertOutcome::disabled();
    }
    if (status == "rejected") {
        return AlertOutcome::rejected(message.value_or(""));
    }
    // A status this client does not know, even one that names a case, is
    // the app failing in a way the caller can only report.
    return AlertOutcome::failed(message.value_or("unexpected reply"));
}

JSONValue AlertReply::toJSON() const {
    JSONObjectWriter out;
    out.put("status", status);
    out.put("message", message);
    return out.finish();
}

std::optional<AlertReply> AlertReply::fromJSON(const JSONValue& json) {
    JSONObjectReader in(json);
    AlertReply reply;
    reply.status = in.requiredString("status");
    reply.message = in.optionalString("message");
    if (in.failed()) {
        return std::nullopt;
    }
    return reply;
}

} // namespace pelmora
