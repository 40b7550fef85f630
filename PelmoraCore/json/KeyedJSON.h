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
#include "support/JsonText.h"
#include "support/Text.h"

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

// Why an object did not decode: the path of the first member that failed,
// from the object being read ("host.tmux", "questions[1].options"), and
// what was wrong with it.
struct JSONDecodeFailure {
    std::string path;
    std::string problem;

    // "<path>: <problem>", or the problem alone for the object itself:
    // "host.tmux: expected a boolean", "state: unknown value \"wrking\"",
    // "sessionID: missing", "expected an object".
    std::string text() const { return path.empty() ? problem : path + ": " + problem; }
    bool operator==(const JSONDecodeFailure&) const = default;
};

// Reads one object's members in turn. The first failure is kept, with its
// key path; the reader carries on so that the caller can finish the record,
// and `finish` then gives none and, when asked, the failure.
//
//     JSONObjectReader in(json);
//     HostInfo host;
//     host.tmux = in.requiredBool("tmux");
//     return in.finish(std::move(host), failure);
//
// Decoders given to requiredDecoded, optionalDecoded and decodeList take the
// value, and may take a JSONDecodeFailure* too: their failures then join the
// path ("host" and "tmux: ..." give "host.tmux: ..."); a decoder without one
// fails its member as "invalid value".
class JSONObjectReader {
public:
    // `object` must outlive the reader; a value that is not an object fails.
    explicit JSONObjectReader(const JSONValue& object) : object_(object) {
        if (!object.isObject()) {
            fail({}, {{}, "expected an object"});
        }
    }

    bool failed() const { return failed_; }
    const JSONDecodeFailure& failure() const { return failure_; }

    // `value` when every member read so far decoded; otherwise none, and the
    // first failure in `*failure` when that is given.
    template <class T> std::optional<T> finish(T value, JSONDecodeFailure* failure) const {
        if (!failed_) {
            return value;
        }
        if (failure != nullptr) {
            *failure = failure_;
        }
        return std::nullopt;
    }

    // A member that must be present and not null; nullptr (and the object
    // failed) otherwise.
    const JSONValue* required(std::string_view key) {
        const JSONValue* value = object_.find(key);
        if (value == nullptr || value->isNull()) {
            fail(key, {{}, value == nullptr ? "missing" : "must not be null"});
            return nullptr;
        }
        return value;
    }

    std::string requiredString(std::string_view key) {
        return requiredWith<std::string>(key, stringOf);
    }
    double requiredDouble(std::string_view key) { return requiredWith<double>(key, doubleOf); }
    bool requiredBool(std::string_view key) { return requiredWith<bool>(key, boolOf); }
    template <class Integer> Integer requiredInteger(std::string_view key) {
        return requiredWith<Integer>(key, integerOf<Integer>);
    }
    template <class E> E requiredRaw(std::string_view key) {
        return requiredWith<E>(key, rawOf<E>);
    }
    template <class T, class Decode> T requiredDecoded(std::string_view key, Decode decode) {
        return requiredWith<T>(key, [&decode](const JSONValue& value, JSONDecodeFailure& why) {
            return call<T>(decode, value, why);
        });
    }

    std::optional<std::string> optionalString(std::string_view key) {
        return optionalWith<std::string>(key, stringOf);
    }
    std::optional<double> optionalDouble(std::string_view key) {
        return optionalWith<double>(key, doubleOf);
    }
    template <class Integer> std::optional<Integer> optionalInteger(std::string_view key) {
        return optionalWith<Integer>(key, integerOf<Integer>);
    }
    template <class T, class Decode>
    std::optional<T> optionalDecoded(std::string_view key, Decode decode) {
        return optionalWith<T>(key, [&decode](const JSONValue& value, JSONDecodeFailure& why) {
            return call<T>(decode, value, why);
        });
    }

    // A list whose every element decodes, else none (the failing element's
    // index leads the path: "[2].label: missing").
    template <class T, class Decode>
    static std::optional<std::vector<T>> decodeList(const JSONValue& value, Decode decode,
                                                    JSONDecodeFailure* failure = nullptr) {
        const JSONValue::Elements* elements = value.arrayElements();
        if (elements == nullptr) {
            if (failure != nullptr) {
                *failure = {{}, "expected an array"};
            }
            return std::nullopt;
        }
        std::vector<T> list;
        list.reserve(elements->size());
        for (std::size_t index = 0; index < elements->size(); ++index) {
            JSONDecodeFailure why;
            std::optional<T> decoded = call<T>(decode, (*elements)[index], why);
            if (!decoded) {
                if (failure != nullptr) {
                    *failure = joined("[" + std::to_string(index) + "]", std::move(why));
                }
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
    // The member decoders: a value, or none with the problem in `why`.
    static std::optional<std::string> stringOf(const JSONValue& value, JSONDecodeFailure& why) {
        return expected(decodeString(value), "a string", why);
    }
    static std::optional<double> doubleOf(const JSONValue& value, JSONDecodeFailure& why) {
        return expected(value.doubleValue(), value.isNumber() ? "a finite number" : "a number",
                        why);
    }
    static std::optional<bool> boolOf(const JSONValue& value, JSONDecodeFailure& why) {
        return expected(value.boolValue(), "a boolean", why);
    }
    template <class Integer>
    static std::optional<Integer> integerOf(const JSONValue& value, JSONDecodeFailure& why) {
        using Limits = std::numeric_limits<Integer>;
        const std::optional<std::int64_t> number = value.integerValue();
        if (!number || *number < Limits::min() || *number > Limits::max()) {
            why.problem = "expected an integer from " + std::to_string(Limits::min()) + " to " +
                          std::to_string(Limits::max());
            return std::nullopt;
        }
        return static_cast<Integer>(*number);
    }
    template <class E>
    static std::optional<E> rawOf(const JSONValue& value, JSONDecodeFailure& why) {
        const std::string* word = value.stringValue();
        if (word == nullptr) {
            why.problem = "expected a string";
            return std::nullopt;
        }
        std::optional<E> decoded = fromRaw<E>(*word);
        if (!decoded) {
            why.problem = "unknown value " + quoted(*word);
        }
        return decoded;
    }
    template <class T>
    static std::optional<T> expected(std::optional<T> decoded, std::string_view what,
                                     JSONDecodeFailure& why) {
        if (!decoded) {
            why.problem = "expected ";
            why.problem += what;
        }
        return decoded;
    }
    // A caller's decoder, with or without a failure of its own.
    template <class T, class Decode>
    static std::optional<T> call(const Decode& decode, const JSONValue& value,
                                 JSONDecodeFailure& why) {
        if constexpr (std::is_invocable_v<const Decode&, const JSONValue&, JSONDecodeFailure*>) {
            return decode(value, &why);
        } else {
            std::optional<T> decoded = decode(value);
            if (!decoded) {
                why.problem = "invalid value";
            }
            return decoded;
        }
    }
    // A value from the file, quoted, and cut short enough for a message.
    static std::string quoted(std::string_view text) {
        const std::string_view shown = Text::prefixCharacters(text, 40);
        std::string out;
        JsonText::appendQuoted(out, shown, JsonText::Style::plain);
        return shown.size() < text.size() ? out + "…" : out;
    }
    static JSONDecodeFailure joined(std::string head, JSONDecodeFailure inner) {
        if (!head.empty() && !inner.path.empty() && inner.path.front() != '[') {
            head += '.';
        }
        head += inner.path;
        return {std::move(head), std::move(inner.problem)};
    }

    template <class T, class Decode> T requiredWith(std::string_view key, Decode decode) {
        const JSONValue* value = required(key);
        if (value == nullptr) {
            return T{};
        }
        JSONDecodeFailure why;
        std::optional<T> decoded = decode(*value, why);
        if (!decoded) {
            fail(key, std::move(why));
            return T{};
        }
        return std::move(*decoded);
    }
    // Absent and null are none; a present value that does not decode fails.
    template <class T, class Decode>
    std::optional<T> optionalWith(std::string_view key, Decode decode) {
        const JSONValue* value = object_.find(key);
        if (value == nullptr || value->isNull()) {
            return std::nullopt;
        }
        JSONDecodeFailure why;
        std::optional<T> decoded = decode(*value, why);
        if (!decoded) {
            fail(key, std::move(why));
        }
        return decoded;
    }
    void fail(std::string_view key, JSONDecodeFailure why) {
        if (!failed_) {
            failed_ = true;
            failure_ = joined(std::string(key), std::move(why));
        }
    }

    const JSONValue& object_;
    bool failed_ = false;
    JSONDecodeFailure failure_;
};

} // namespace pelmora
