#include "json/JSONValue.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <utility>

#include "support/Ascii.h"
#include "support/Integers.h"
#include "support/NumberText.h"
#include "support/Scanner.h"

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
    Scanner in(text);
    const bool negative = in.consume('-');
    // Significant digits of the integer and fraction parts, in one run.
    const std::string_view integerPart = in.takeWhile(Ascii::isDigit);
    std::string_view fractionPart;
    if (in.consume('.')) {
        fractionPart = in.takeWhile(Ascii::isDigit);
    }
    if (integerPart.empty() && fractionPart.empty()) {
        return std::nullopt;
    }

    // The exponent saturates far beyond any int64 so that it cannot overflow.
    constexpr std::int64_t exponentCap = 100000;
    std::int64_t exponent = 0;
    if (in.consume('e') || in.consume('E')) {
        const bool negativeExponent = in.consume('-');
        if (!negativeExponent) {
            in.consume('+');
        }
        const std::string_view exponentDigits = in.takeWhile(Ascii::isDigit);
        if (exponentDigits.empty()) {
            return std::nullopt;
        }
        exponent =
            std::min(exponentCap, parseInteger<std::int64_t>(exponentDigits).value_or(exponentCap));
        if (negativeExponent) {
            exponent = -exponent;
        }
    }
    if (!in.atEnd()) {
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

    // At most 19 digits: always within uint64.
    std::uint64_t magnitude = parseInteger<std::uint64_t>(digits).value_or(0);
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
    if (std::optional<std::int64_t> plain = parseInteger<std::int64_t>(*text)) {
        return plain;
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
