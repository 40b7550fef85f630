#include "json/JSONValue.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <utility>

#include "support/NumberText.h"

namespace pelmora {

JSONValue JSONValue::object() {
    return object(Members{});
}

JSONValue JSONValue::object(Members members) {
    JSONValue value;
    value.kind_ = Kind::object;
    value.payload_ = std::move(members);
    return value;
}

JSONValue JSONValue::array() {
    return array(Elements{});
}

JSONValue JSONValue::array(Elements elements) {
    JSONValue value;
    value.kind_ = Kind::array;
    value.payload_ = std::move(elements);
    return value;
}

JSONValue JSONValue::string(std::string text) {
    JSONValue value;
    value.kind_ = Kind::string;
    value.payload_ = std::move(text);
    return value;
}

JSONValue JSONValue::number(std::string text) {
    JSONValue value;
    value.kind_ = Kind::number;
    value.payload_ = std::move(text);
    return value;
}

JSONValue JSONValue::number(double value) {
    return number(NumberText::shortest(value));
}

JSONValue JSONValue::integer(std::int64_t value) {
    return number(std::to_string(value));
}

JSONValue JSONValue::boolean(bool flag) {
    JSONValue value;
    value.kind_ = Kind::boolean;
    value.payload_ = flag;
    return value;
}

const JSONValue::Members* JSONValue::objectMembers() const {
    return std::get_if<Members>(&payload_);
}

JSONValue::Members* JSONValue::objectMembers() {
    return std::get_if<Members>(&payload_);
}

const JSONValue::Elements* JSONValue::arrayElements() const {
    return std::get_if<Elements>(&payload_);
}

JSONValue::Elements* JSONValue::arrayElements() {
    return std::get_if<Elements>(&payload_);
}

const std::string* JSONValue::stringValue() const {
    return kind_ == Kind::string ? std::get_if<std::string>(&payload_) : nullptr;
}

const std::string* JSONValue::numberText() const {
    return kind_ == Kind::number ? std::get_if<std::string>(&payload_) : nullptr;
}

std::optional<bool> JSONValue::boolValue() const {
    if (const bool* flag = std::get_if<bool>(&payload_)) {
        return *flag;
    }
    return std::nullopt;
}

std::optional<double> JSONValue::doubleValue() const {
    const std::string* text = numberText();
    if (!text || text->empty()) {
        return std::nullopt;
    }
    double result = 0;
    const char* const end = text->data() + text->size();
    auto [stop, error] = std::from_chars(text->data(), end, result);
    if (error != std::errc{} || stop != end || !std::isfinite(result)) {
        return std::nullopt;
    }
    return result;
}

namespace {

// The exact integer that a JSON number text denotes, when it is whole and
// fits: worked on the decimal digits, so that 9007199254740993 and
// 1.5e1 come out exact where a double would round.
std::optional<std::int64_t> exactInteger(std::string_view text) {
    std::size_t at = 0;
    const bool negative = at < text.size() && text[at] == '-';
    if (negative) {
        ++at;
    }
    auto isDigit = [&](std::size_t i) {
        return i < text.size() && text[i] >= '0' && text[i] <= '9';
    };

    // Significant digits of the integer and fraction parts, in one run.
    std::string_view integerPart;
    std::string_view fractionPart;
    const std::size_t integerStart = at;
    while (isDigit(at)) {
        ++at;
    }
    integerPart = text.substr(integerStart, at - integerStart);
    if (at < text.size() && text[at] == '.') {
        const std::size_t fractionStart = ++at;
        while (isDigit(at)) {
            ++at;
        }
        fractionPart = text.substr(fractionStart, at - fractionStart);
    }
    if (integerPart.empty() && fractionPart.empty()) {
        return std::nullopt;
    }

    // The exponent saturates far beyond any int64 so that it cannot overflow.
    constexpr std::int64_t exponentCap = 100000;
    std::int64_t exponent = 0;
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        bool negativeExponent = false;
        if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
            negativeExponent = text[at++] == '-';
        }
        if (!isDigit(at)) {
            return std::nullopt;
        }
        while (isDigit(at)) {
            exponent = std::min(exponentCap, exponent * 10 + (text[at] - '0'));
            ++at;
        }
        if (negativeExponent) {
            exponent = -exponent;
        }
    }
    if (at != text.size()) {
        return std::nullopt;
    }

    // digits × 10^scale, with leading and trailing zeros dropped.
    std::string digits;
    digits.reserve(integerPart.size() + fractionPart.size());
    digits.append(integerPart);
    digits.append(fractionPart);
    std::int64_t scale = exponent - static_cast<std::int64_t>(fractionPart.size());
    const std::size_t firstNonZero = digits.find_first_not_of('0');
    if (firstNonZero == std::string::npos) {
        return 0;
    }
    digits.erase(0, firstNonZero);
    const std::size_t lastNonZero = digits.find_last_not_of('0');
    scale += static_cast<std::int64_t>(digits.size() - 1 - lastNonZero);
    digits.erase(lastNonZero + 1);
    if (scale < 0) {
        return std::nullopt; // a nonzero fraction remains
    }
    if (static_cast<std::int64_t>(digits.size()) + scale > 19) {
        return std::nullopt;
    }

    std::uint64_t magnitude = 0;
    for (char digit : digits) {
        magnitude = magnitude * 10 + static_cast<std::uint64_t>(digit - '0');
    }
    constexpr std::uint64_t limit = std::uint64_t{1} << 63; // |INT64_MIN|
    for (std::int64_t i = 0; i < scale; ++i) {
        if (magnitude > limit / 10) {
            return std::nullopt;
        }
        magnitude *= 10;
    }
    if (magnitude > limit || (!negative && magnitude == limit)) {
        return std::nullopt;
    }
    if (negative) {
        return magnitude == limit ? std::numeric_limits<std::int64_t>::min()
                                  : -static_cast<std::int64_t>(magnitude);
    }
    return static_cast<std::int64_t>(magnitude);
}

} // namespace

std::optional<std::int64_t> JSONValue::integerValue() const {
    const std::string* text = numberText();
    if (!text) {
        return std::nullopt;
    }
    std::int64_t result = 0;
    const char* const end = text->data() + text->size();
    auto [stop, error] = std::from_chars(text->data(), end, result);
    if (error == std::errc{} && stop == end) {
        return result;
    }
    return exactInteger(*text);
}

const JSONValue* JSONValue::find(std::string_view key) const {
    const Members* members = objectMembers();
    if (!members) {
        return nullptr;
    }
    for (const JSONMember& member : *members) {
        if (member.key == key) {
            return &member.value;
        }
    }
    return nullptr;
}

namespace {

template <class Path> const JSONValue* walk(const JSONValue& start, const Path& path) {
    const JSONValue* current = &start;
    for (const auto& key : path) {
        current = current->find(key);
        if (!current) {
            return nullptr;
        }
    }
    return current;
}

} // namespace

const JSONValue* JSONValue::value(std::initializer_list<std::string_view> path) const {
    return walk(*this, path);
}

const JSONValue* JSONValue::value(const std::vector<std::string>& path) const {
    return walk(*this, path);
}

void JSONValue::set(std::string_view key, std::optional<JSONValue> newValue) {
    Members* members = objectMembers();
    if (!members) {
        return;
    }
    for (auto member = members->begin(); member != members->end(); ++member) {
        if (member->key != key) {
            continue;
        }
        if (newValue) {
            member->value = std::move(*newValue);
        } else {
            members->erase(member);
        }
        return;
    }
    if (newValue) {
        members->push_back(JSONMember{std::string(key), std::move(*newValue)});
    }
}

namespace {

JSONValue* firstMember(JSONValue::Members& members, std::string_view key) {
    for (JSONMember& member : members) {
        if (member.key == key) {
            return &member.value;
        }
    }
    return nullptr;
}

template <class Key>
void setAlong(JSONValue& target, const Key* first, const Key* last,
              std::optional<JSONValue>& newValue) {
    JSONValue::Members* members = target.objectMembers();
    if (first == last || !members) {
        return;
    }
    if (last - first == 1) {
        target.set(*first, std::move(newValue));
        return;
    }
    // The child is changed where it stands, which is where setting it back
    // under its key would put it.
    JSONValue* child = firstMember(*members, *first);
    if (!child || !child->isObject()) {
        if (!newValue) {
            return;
        }
        if (child) {
            *child = JSONValue::object();
        } else {
            members->push_back(JSONMember{std::string(*first), JSONValue::object()});
            child = &members->back().value;
        }
    }
    setAlong(*child, first + 1, last, newValue);
}

} // namespace

void JSONValue::set(const std::vector<std::string>& path, std::optional<JSONValue> newValue) {
    setAlong(*this, path.data(), path.data() + path.size(), newValue);
}

void JSONValue::set(std::initializer_list<std::string_view> path,
                    std::optional<JSONValue> newValue) {
    setAlong(*this, path.begin(), path.end(), newValue);
}

bool operator==(const JSONValue& a, const JSONValue& b) {
    return a.kind_ == b.kind_ && a.payload_ == b.payload_;
}

} // namespace pelmora
