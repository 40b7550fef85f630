#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "json/JSONValue.h"
#include "support/Enum.h"

// The records' JSON form, as the platform's keyed coders give it: keys are
// the field names, absent optionals are left out on writing; on reading, a
// required member must be present (not null) with the right type, an optional
// one may be absent or null, and a present value of the wrong type fails the
// whole object rather than being dropped.
namespace pelmora {

class JSONObjectWriter {
public:
    void put(std::string_view key, JSONValue value) {
        members_.push_back({std::string(key), std::move(value)});
    }
    void put(std::string_view key, const std::string& text) { put(key, JSONValue::string(text)); }
    void put(std::string_view key, const std::optional<std::string>& text) {
        if (text) {
            put(key, *text);
        }
    }
    template <class E> void putRaw(std::string_view key, E value) {
        put(key, JSONValue::string(std::string(rawValue(value))));
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
    // Records with toJSON(), or strings.
    template <class T>
    void putList(std::string_view key, const std::optional<std::vector<T>>& list) {
        if (!list) {
            return;
        }
        JSONValue::Elements elements;
        elements.reserve(list->size());
        for (const T& element : *list) {
            if constexpr (std::is_same_v<T, std::string>) {
                elements.push_back(JSONValue::string(element));
            } else {
                elements.push_back(element.toJSON());
            }
        }
        put(key, JSONValue::array(std::move(elements)));
    }
    JSONValue finish() { return JSONValue::object(std::move(members_)); }

private:
    JSONValue::Members members_;
};

class JSONObjectReader {
public:
    // `object` must outlive the reader; a value that is not an object fails.
    explicit JSONObjectReader(const JSONValue& object)
        : object_(object), failed_(!object.isObject()) {}

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
        return valueOr(decodeString(required(key)), std::string());
    }
    double requiredDouble(std::string_view key) {
        return valueOr(decodeDouble(required(key)), 0.0);
    }
    bool requiredBool(std::string_view key) { return valueOr(decodeBool(required(key)), false); }
    template <class Integer> Integer requiredInteger(std::string_view key) {
        return valueOr(decodeInteger<Integer>(required(key)), Integer{});
    }
    template <class E> E requiredRaw(std::string_view key) {
        const std::string* word = textOf(required(key));
        return valueOr(word ? fromRaw<E>(*word) : std::nullopt, E{});
    }
    // `decode` takes a `const JSONValue&` and gives std::optional<T>.
    template <class T, class Decode> T requiredDecoded(std::string_view key, Decode decode) {
        const JSONValue* value = required(key);
        return valueOr(value ? std::optional<T>(decode(*value)) : std::nullopt, T{});
    }

    std::optional<std::string> optionalString(std::string_view key) {
        const JSONValue* value = optional(key);
        return checked(value, decodeString(value));
    }
    std::optional<double> optionalDouble(std::string_view key) {
        const JSONValue* value = optional(key);
        return checked(value, decodeDouble(value));
    }
    template <class Integer> std::optional<Integer> optionalInteger(std::string_view key) {
        const JSONValue* value = optional(key);
        return checked(value, decodeInteger<Integer>(value));
    }
    template <class T, class Decode>
    std::optional<T> optionalDecoded(std::string_view key, Decode decode) {
        const JSONValue* value = optional(key);
        return checked(value, value ? std::optional<T>(decode(*value)) : std::nullopt);
    }

    // A list whose every element decodes, else none.
    template <class T, class Decode>
    static std::optional<std::vector<T>> decodeList(const JSONValue& value, Decode decode) {
        const JSONValue::Elements* elements = value.arrayElements();
        if (elements == nullptr) {
            return std::nullopt;
        }
        std::vector<T> list;
        list.reserve(elements->size());
        for (const JSONValue& element : *elements) {
            std::optional<T> decoded = decode(element);
            if (!decoded) {
                return std::nullopt;
            }
            list.push_back(std::move(*decoded));
        }
        return list;
    }
    static std::optional<std::string> decodeString(const JSONValue& value) {
        const std::string* text = value.stringValue();
        return text ? std::optional<std::string>(*text) : std::nullopt;
    }

private:
    const JSONValue* optional(std::string_view key) const {
        const JSONValue* value = object_.find(key);
        return value == nullptr || value->isNull() ? nullptr : value;
    }

    static const std::string* textOf(const JSONValue* value) {
        return value ? value->stringValue() : nullptr;
    }
    static std::optional<std::string> decodeString(const JSONValue* value) {
        return value ? decodeString(*value) : std::nullopt;
    }
    static std::optional<double> decodeDouble(const JSONValue* value) {
        return value ? value->doubleValue() : std::nullopt;
    }
    static std::optional<bool> decodeBool(const JSONValue* value) {
        return value ? value->boolValue() : std::nullopt;
    }
    template <class Integer> static std::optional<Integer> decodeInteger(const JSONValue* value) {
        std::optional<std::int64_t> number = value ? value->integerValue() : std::nullopt;
        if (!number || *number < std::numeric_limits<Integer>::min() ||
            *number > std::numeric_limits<Integer>::max()) {
            return std::nullopt;
        }
        return static_cast<Integer>(*number);
    }

    // A required member: its value, or `fallback` with the object failed.
    template <class T> T valueOr(std::optional<T> decoded, T fallback) {
        if (!decoded) {
            failed_ = true;
            return fallback;
        }
        return std::move(*decoded);
    }
    // An optional member: absent is fine, present but undecodable fails.
    template <class T>
    std::optional<T> checked(const JSONValue* present, std::optional<T> decoded) {
        failed_ = failed_ || (present != nullptr && !decoded);
        return decoded;
    }

    const JSONValue& object_;
    bool failed_;
};

} // namespace pelmora
