#include "usage/UsageJSON.h"

#include <cmath>
#include <limits>

#include "json/OrderedJSON.h"
#include "support/Time.h"

namespace pelmora::UsageJSON {

std::optional<JSONValue> parseObject(std::string_view bytes) {
    std::optional<JSONValue> parsed = OrderedJSON::tryParse(bytes);
    if (!parsed || !parsed->isObject()) {
        return std::nullopt;
    }
    return parsed;
}

const JSONValue* object(const JSONValue* parent, std::string_view key) {
    if (!parent || !parent->isObject()) {
        return nullptr;
    }
    const JSONValue* member = parent->find(key);
    return member && member->isObject() ? member : nullptr;
}

std::optional<double> number(const JSONValue* parent, std::string_view key) {
    if (!parent || !parent->isObject()) {
        return std::nullopt;
    }
    const JSONValue* member = parent->find(key);
    return member ? member->doubleValue() : std::nullopt;
}

std::optional<double> date(const JSONValue* parent, std::string_view key) {
    const std::string* value = text(parent, key);
    return value ? Time::parseISO8601(*value) : std::nullopt;
}

const std::string* text(const JSONValue* parent, std::string_view key) {
    if (!parent || !parent->isObject()) {
        return nullptr;
    }
    const JSONValue* member = parent->find(key);
    const std::string* value = member ? member->stringValue() : nullptr;
    return value && !value->empty() ? value : nullptr;
}

std::optional<int> wholeMinutes(double minutes) {
    const double rounded = std::round(minutes);
    if (!std::isfinite(rounded) || rounded < std::numeric_limits<int>::min() ||
        rounded > std::numeric_limits<int>::max()) {
        return std::nullopt;
    }
    return static_cast<int>(rounded);
}

std::optional<std::string> liveToken(const std::string* token, std::optional<double> expiresAt,
                                     double now) {
    if (!token || !expiresAt || !(*expiresAt > now + tokenLeeway)) {
        return std::nullopt;
    }
    return *token;
}

} // namespace pelmora::UsageJSON
