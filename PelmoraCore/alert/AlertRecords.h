#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "json/JSONValue.h"
#include "support/Enum.h"

// What travels over the alert socket: one AlertRequest line to the app, one
// AlertReply line back. The caller sees only the AlertOutcome, whose message
// and exit code a command reports as they are.
namespace pelmora {

enum class AlertLevel { info, action, fail };

std::string_view rawValue(AlertLevel level);
template <> std::optional<AlertLevel> fromRaw<AlertLevel>(std::string_view raw);

// Seconds an alert of this level stays when no ttl is given: info 4,
// action 30, fail 0 (until dismissed).
int defaultTTL(AlertLevel level);

// Made by AlertValidation, which holds its limits.
struct AlertRequest {
    std::string title;
    std::string body;
    AlertLevel level = AlertLevel::info;
    std::optional<std::string> open; // an absolute path
    std::optional<std::string> id;   // an alert with the same id replaces the shown one
    int ttl = 0;                     // seconds; 0 stays until the user dismisses it

    bool operator==(const AlertRequest&) const = default;

    // Keys are the field names, level as its word, absent optionals left out.
    JSONValue toJSON() const;
    // None when a field is missing, of the wrong type, or the level unknown.
    static std::optional<AlertRequest> fromJSON(const JSONValue& json);
};

struct AlertOutcome {
    enum class Case { rejected, failed, shown, notRunning, disabled };
    Case tag = Case::shown;
    std::string text; // what was refused or what failed; empty for the others

    static AlertOutcome rejected(std::string why) { return {Case::rejected, std::move(why)}; }
    static AlertOutcome failed(std::string what) { return {Case::failed, std::move(what)}; }
    static AlertOutcome shown() { return {Case::shown, {}}; }
    static AlertOutcome notRunning() { return {Case::notRunning, {}}; }
    static AlertOutcome disabled() { return {Case::disabled, {}}; }

    bool operator==(const AlertOutcome&) const = default;

    // "refused: <text>", <text>, "", "Pelmora is not running", or
    // "External alerts are switched off in Pelmora's settings".
    std::string message() const;
    // 3, 4, 0, 1, 2, in the order of the cases.
    std::int32_t exitCode() const;
};

struct AlertReply {
    std::string status; // "ok", "disabled", "rejected", or any other word
    std::optional<std::string> message;

    bool operator==(const AlertReply&) const = default;

    // The reply an app gives for an outcome: status "rejected", "failed",
    // "ok", "notRunning" or "disabled", the text as the message.
    static AlertReply of(const AlertOutcome& outcome);
    // Not the inverse of `of`: "ok" is shown, "disabled" disabled,
    // "rejected" rejected with the message (or ""), and every other status,
    // "failed" and "notRunning" included, failed with the message (or
    // "unexpected reply").
    AlertOutcome outcome() const;

    JSONValue toJSON() const;
    static std::optional<AlertReply> fromJSON(const JSONValue& json);
};

} // namespace pelmora
