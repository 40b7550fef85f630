#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "json/JSONValue.h"

namespace pelmora {

// Where parsing stopped, as a byte offset into the UTF-8 input.
class JSONParseError : public std::exception {
public:
    explicit JSONParseError(std::int64_t offset);
    std::int64_t offset;
    // "Invalid JSON near byte <offset>"
    std::string description() const;
    const char* what() const noexcept override;

    // Filled only by parseDiagnosed, for files that people edit by hand: what
    // was wrong ("expected ',' or '}' after an object member", "unterminated
    // string", "nesting deeper than 512", ...) and where: the line (1-based)
    // and the column, which counts characters of the line, not bytes.
    std::string message;
    int line = 0;
    int column = 0;
    // "<message> at line <line>, column <column>"
    std::string located() const;

private:
    std::string text_;
};

namespace OrderedJSON {

// Deep enough for any real settings file, shallow enough that hostile input
// can never exhaust the stack.
inline constexpr int maxDepth = 512;

// Strict JSON (RFC 8259): invalid UTF-8, lone surrogate escapes, leading
// zeros and trailing bytes are errors. Throws JSONParseError.
JSONValue parse(std::string_view text);
// The same without throwing, for decoders of outside input.
std::optional<JSONValue> tryParse(std::string_view text);

// parse() that, on failure, also says what was wrong and at which line and
// column (JSONParseError::located), for files that people edit by hand. It
// costs more than parse only on failure.
//
//     try { OrderedJSON::parseDiagnosed("{\"a\": 1,\n}"); }
//     catch (const JSONParseError& e) { e.located(); }
//     // "expected a key in double quotes at line 2, column 1"
JSONValue parseDiagnosed(std::string_view text);

// The installers' fixed indented style, starting at depth 0, with no line
// feed after the outermost value.
std::string serialize(const JSONValue& value, std::string_view indent);

// One line, no spaces, object keys sorted as the platform serialiser sorts
// them, "/" written as "\/": the form of session files, wire lines and
// re-serialised agent JSON.
std::string serializeCompact(const JSONValue& value);

} // namespace OrderedJSON
} // namespace pelmora
