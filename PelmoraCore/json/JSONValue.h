#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace pelmora {

struct JSONMember;

// An order-preserving JSON value: objects keep their members in input (or
// insertion) order, duplicates included, and numbers keep their source text,
// so a file read and written back keeps the user's order and spelling.
class JSONValue {
public:
    enum class Kind { object, array, string, number, boolean, null };
    using Members = std::vector<JSONMember>;
    using Elements = std::vector<JSONValue>;

    JSONValue() = default; // null

    // Overloads rather than default arguments, and null() defined below the
    // class: JSONMember is still incomplete here, and clang would build the
    // variant's members at once.
    static JSONValue object();
    static JSONValue object(Members members);
    static JSONValue array();
    static JSONValue array(Elements elements);
    static JSONValue string(std::string text);
    // `text` must already be a JSON number; it is kept as it is.
    static JSONValue number(std::string text);
    // The shortest text that reads back to `value` (1700000000, 0.25).
    static JSONValue number(double value);
    static JSONValue integer(std::int64_t value);
    static JSONValue boolean(bool value);
    static JSONValue null();

    Kind kind() const { return kind_; }
    bool isObject() const { return kind_ == Kind::object; }
    bool isArray() const { return kind_ == Kind::array; }
    bool isString() const { return kind_ == Kind::string; }
    bool isNumber() const { return kind_ == Kind::number; }
    bool isBool() const { return kind_ == Kind::boolean; }
    bool isNull() const { return kind_ == Kind::null; }

    // Each accessor gives nullptr / std::nullopt when the value is of another kind.
    const Members* objectMembers() const;
    Members* objectMembers();
    const Elements* arrayElements() const;
    Elements* arrayElements();
    const std::string* stringValue() const;
    const std::string* numberText() const;
    std::optional<bool> boolValue() const;
    // A number as a double (std::nullopt for other kinds or out of range).
    std::optional<double> doubleValue() const;
    // A number with a whole value that fits: 3, 3.0 and 3e0 all give 3.
    std::optional<std::int64_t> integerValue() const;

    // The first member with this key, for an object.
    const JSONValue* find(std::string_view key) const;
    // Walks objects by key from the first matching member; never enters arrays.
    // An empty path gives this value.
    const JSONValue* value(std::initializer_list<std::string_view> path) const;
    const JSONValue* value(const std::vector<std::string>& path) const;

    // Objects only (no effect on other kinds): replaces the first member with
    // `key` in place, removes it when `newValue` is empty, or appends it.
    void set(std::string_view key, std::optional<JSONValue> newValue);
    // The same along a path; a missing or non-object step becomes an empty
    // object when a value is being set.
    void set(const std::vector<std::string>& path, std::optional<JSONValue> newValue);
    // Lets a braced path literal pick the path form: set({"hooks", "Stop"}, v).
    void set(std::initializer_list<std::string_view> path, std::optional<JSONValue> newValue);

    friend bool operator==(const JSONValue& a, const JSONValue& b);

private:
    Kind kind_ = Kind::null;
    // string and number text share the std::string alternative.
    std::variant<std::monostate, bool, std::string, Elements, Members> payload_;
};

struct JSONMember {
    std::string key;
    JSONValue value;
    friend bool operator==(const JSONMember&, const JSONMember&) = default;
};

inline JSONValue JSONValue::null() {
    return {};
}

} // namespace pelmora
