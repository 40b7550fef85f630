#include "json/OrderedJSON.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <utility>

#include "support/Ascii.h"
#include "support/JsonText.h"
#include "support/Text.h"

namespace pelmora {

JSONParseError::JSONParseError(std::int64_t byteOffset)
    : offset(byteOffset), text_("Invalid JSON near byte " + std::to_string(byteOffset)) {}

std::string JSONParseError::description() const {
    return text_;
}

const char* JSONParseError::what() const noexcept {
    return text_.c_str();
}

std::string JSONParseError::located() const {
    return message + " at line " + std::to_string(line) + ", column " + std::to_string(column);
}

namespace OrderedJSON {

namespace {

using Byte = unsigned char;

// Bytes that may be copied as they are inside a string: printable ASCII
// other than quote and backslash.
constexpr std::array<bool, 256> plainStringBytes = [] {
    std::array<bool, 256> table{};
    for (int byte = 0x20; byte < 0x80; ++byte) {
        table[static_cast<std::size_t>(byte)] = byte != '"' && byte != '\\';
    }
    return table;
}();

// What stopped the parser. Only parseDiagnosed turns it into words, so the
// other entry points pay for no more than storing it.
enum class Problem {
    expectedValue,
    expectedTrue,
    expectedFalse,
    expectedNull,
    expectedDigit,
    leadingZero,
    expectedKey,
    expectedColon,
    expectedObjectSeparator,
    expectedArraySeparator,
    unterminatedString,
    controlCharacter,
    invalidEscape,
    invalidUnicodeEscape,
    unpairedSurrogate,
    invalidUTF8,
    trailingCharacters,
    tooDeep,
};

std::string describe(Problem problem) {
    switch (problem) {
    case Problem::expectedValue:
        return "expected a value";
    case Problem::expectedTrue:
        return "expected 'true'";
    case Problem::expectedFalse:
        return "expected 'false'";
    case Problem::expectedNull:
        return "expected 'null'";
    case Problem::expectedDigit:
        return "expected a digit in the number";
    case Problem::leadingZero:
        return "a number cannot start with 0 followed by another digit";
    case Problem::expectedKey:
        return "expected a key in double quotes";
    case Problem::expectedColon:
        return "expected ':' after an object key";
    case Problem::expectedObjectSeparator:
        return "expected ',' or '}' after an object member";
    case Problem::expectedArraySeparator:
        return "expected ',' or ']' after an array element";
    case Problem::unterminatedString:
        return "unterminated string";
    case Problem::controlCharacter:
        return "unescaped control character in a string";
    case Problem::invalidEscape:
        return "invalid escape";
    case Problem::invalidUnicodeEscape:
        return "expected four hexadecimal digits after \\u";
    case Problem::unpairedSurrogate:
        return "unpaired surrogate in a \\u escape";
    case Problem::invalidUTF8:
        return "invalid UTF-8";
    case Problem::trailingCharacters:
        return "trailing characters after the document";
    case Problem::tooDeep:
        return "nesting deeper than " + std::to_string(maxDepth);
    }
    return {};
}

// A single pass over the bytes that reports the offset of the first byte
// that does not fit the grammar, and why. Containers are built without
// recursion: open ones are frames, and the members and elements of all open
// containers share two stacks, so each finished container is allocated once
// at its exact size and hostile nesting costs a bounded amount of memory.
class Parser {
public:
    explicit Parser(std::string_view text)
        : begin_(reinterpret_cast<const Byte*>(text.data())), cursor_(begin_),
          end_(begin_ + text.size()) {}

    bool parseDocument(JSONValue& root);
    std::int64_t failureOffset() const { return failureOffset_; }
    Problem problem() const { return problem_; }

private:
    struct Frame {
        bool isObject;
        std::size_t firstItem; // index into the members or elements stack
    };

    bool fail(const Byte* at, Problem problem) {
        failureOffset_ = at - begin_;
        problem_ = problem;
        return false;
    }
    bool atEnd() const { return cursor_ == end_; }
    bool at(Byte expected) const { return cursor_ != end_ && *cursor_ == expected; }
    bool atDigit() const { return cursor_ != end_ && Ascii::isDigit(static_cast<char>(*cursor_)); }
    void skipDigits() {
        while (atDigit()) {
            ++cursor_;
        }
    }
    void skipWhitespace() {
        while (cursor_ != end_ &&
               (*cursor_ == ' ' || *cursor_ == '\n' || *cursor_ == '\r' || *cursor_ == '\t')) {
            ++cursor_;
        }
    }

    bool parseScalar(JSONValue& out);
    bool parseMemberKey();
    bool parseString(std::string& out);
    bool parseEscape();
    bool parseHexQuad(std::uint32_t& unit);
    bool skipUtf8Sequence();
    bool parseNumber(JSONValue& out);
    bool parseLiteral(std::string_view word, Problem problem);
    void skipPlainAscii();

    const Byte* const begin_;
    const Byte* cursor_;
    const Byte* const end_;
    std::int64_t failureOffset_ = 0;
    Problem problem_ = Problem::expectedValue;
    std::string scratch_;
    std::vector<Frame> frames_;
    JSONValue::Members members_;
    JSONValue::Elements elements_;
};

bool Parser::parseDocument(JSONValue& root) {
    skipWhitespace();
    for (;;) {
        // A value starts at the cursor.
        JSONValue value;
        if (cursor_ != end_ && (*cursor_ == '[' || *cursor_ == '{')) {
            const bool isObject = *cursor_ == '{';
            if (frames_.size() >= static_cast<std::size_t>(maxDepth)) {
                return fail(cursor_, Problem::tooDeep);
            }
            ++cursor_;
            skipWhitespace();
            if (cursor_ != end_ && *cursor_ == (isObject ? '}' : ']')) {
                ++cursor_;
                value = isObject ? JSONValue::object() : JSONValue::array();
            } else {
                frames_.push_back({isObject, isObject ? members_.size() : elements_.size()});
                if (isObject && !parseMemberKey()) {
                    return false;
                }
                continue;
            }
        } else if (!parseScalar(value)) {
            return false;
        }

        // The value is complete: hand it to its container, and close every
        // container that ends after it.
        for (;;) {
            if (frames_.empty()) {
                skipWhitespace();
                if (!atEnd()) {
                    return fail(cursor_, Problem::trailingCharacters);
                }
                root = std::move(value);
                return true;
            }
            const Frame frame = frames_.back();
            if (frame.isObject) {
                members_.back().value = std::move(value);
            } else {
                elements_.push_back(std::move(value));
            }
            skipWhitespace();
            if (cursor_ == end_) {
                return fail(cursor_, frame.isObject ? Problem::expectedObjectSeparator
                                                    : Problem::expectedArraySeparator);
            }
            if (*cursor_ == ',') {
                ++cursor_;
                skipWhitespace();
                if (frame.isObject && !parseMemberKey()) {
                    return false;
                }
                break;
            }
            if (*cursor_ != (frame.isObject ? '}' : ']')) {
                return fail(cursor_, frame.isObject ? Problem::expectedObjectSeparator
                                                    : Problem::expectedArraySeparator);
            }
            ++cursor_;
            if (frame.isObject) {
                const auto first = members_.begin() + static_cast<std::ptrdiff_t>(frame.firstItem);
                value = JSONValue::object(JSONValue::Members(
                    std::make_move_iterator(first), std::make_move_iterator(members_.end())));
                members_.erase(first, members_.end());
            } else {
                const auto first = elements_.begin() + static_cast<std::ptrdiff_t>(frame.firstItem);
                value = JSONValue::array(JSONValue::Elements(
                    std::make_move_iterator(first), std::make_move_iterator(elements_.end())));
                elements_.erase(first, elements_.end());
            }
            frames_.pop_back();
        }
    }
}

// A key, its colon and the whitespace up to the value; the member waits on
// the stack for its value.
bool Parser::parseMemberKey() {
    if (!at('"')) {
        return fail(cursor_, Problem::expectedKey);
    }
    members_.emplace_back();
    if (!parseString(members_.back().key)) {
        return false;
    }
    skipWhitespace();
    if (!at(':')) {
        return fail(cursor_, Problem::expectedColon);
    }
    ++cursor_;
    skipWhitespace();
    return true;
}

bool Parser::parseScalar(JSONValue& out) {
    if (atEnd()) {
        return fail(cursor_, Problem::expectedValue);
    }
    switch (*cursor_) {
    case '"': {
        std::string text;
        if (!parseString(text)) {
            return false;
        }
        out = JSONValue::string(std::move(text));
        return true;
    }
    case 't':
        out = JSONValue::boolean(true);
        return parseLiteral("true", Problem::expectedTrue);
    case 'f':
        out = JSONValue::boolean(false);
        return parseLiteral("false", Problem::expectedFalse);
    case 'n':
        return parseLiteral("null", Problem::expectedNull);
    default:
        if (at('-') || atDigit()) {
            return parseNumber(out);
        }
        return fail(cursor_, Problem::expectedValue);
    }
}

bool Parser::parseLiteral(std::string_view word, Problem problem) {
    for (char expected : word) {
        if (!at(static_cast<Byte>(expected))) {
            return fail(cursor_, problem);
        }
        ++cursor_;
    }
    return true;
}

bool Parser::parseNumber(JSONValue& out) {
    const Byte* const start = cursor_;
    if (at('-')) {
        ++cursor_;
    }
    if (!atDigit()) {
        return fail(cursor_, Problem::expectedDigit);
    }
    if (*cursor_++ == '0') {
        if (atDigit()) {
            return fail(cursor_, Problem::leadingZero);
        }
    } else {
        skipDigits();
    }
    if (at('.')) {
        ++cursor_;
        if (!atDigit()) {
            return fail(cursor_, Problem::expectedDigit);
        }
        skipDigits();
    }
    if (at('e') || at('E')) {
        ++cursor_;
        if (at('+') || at('-')) {
            ++cursor_;
        }
        if (!atDigit()) {
            return fail(cursor_, Problem::expectedDigit);
        }
        skipDigits();
    }
    out = JSONValue::number(std::string(reinterpret_cast<const char*>(start),
                                        static_cast<std::size_t>(cursor_ - start)));
    return true;
}

// Advances over printable ASCII other than quote and backslash, eight bytes
// at a time while it can. Each word test flags quote, backslash, bytes below
// 0x20 and bytes from 0x80; a flagged word is finished byte by byte.
void Parser::skipPlainAscii() {
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t highBits = 0x8080808080808080;
    auto hasZeroByte = [](std::uint64_t word) { return (word - ones) & ~word & highBits; };
    while (end_ - cursor_ >= 8) {
        std::uint64_t word;
        std::memcpy(&word, cursor_, sizeof word);
        const std::uint64_t special = hasZeroByte(word ^ (ones * '"')) |
                                      hasZeroByte(word ^ (ones * '\\')) |
                                      ((word - ones * 0x20) & ~word) | word;
        if (special & highBits) {
            break;
        }
        cursor_ += 8;
    }
    while (cursor_ != end_ && plainStringBytes[*cursor_]) {
        ++cursor_;
    }
}

// One well-formed UTF-8 sequence of two to four bytes: no overlong forms, no
// surrogates, nothing above U+10FFFF. A sequence cut short by the end of the
// text leaves the string unterminated.
bool Parser::skipUtf8Sequence() {
    const Byte lead = *cursor_;
    int continuation = 0;
    Byte low = 0x80;
    Byte high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        continuation = 1;
    } else if (lead == 0xE0) {
        continuation = 2;
        low = 0xA0;
    } else if (lead == 0xED) {
        continuation = 2;
        high = 0x9F;
    } else if (lead >= 0xE1 && lead <= 0xEF) {
        continuation = 2;
    } else if (lead == 0xF0) {
        continuation = 3;
        low = 0x90;
    } else if (lead >= 0xF1 && lead <= 0xF3) {
        continuation = 3;
    } else if (lead == 0xF4) {
        continuation = 3;
        high = 0x8F;
    } else {
        return fail(cursor_, Problem::invalidUTF8);
    }
    ++cursor_;
    for (int i = 0; i < continuation; ++i, ++cursor_) {
        if (atEnd()) {
            return fail(cursor_, Problem::unterminatedString);
        }
        if (*cursor_ < low || *cursor_ > high) {
            return fail(cursor_, Problem::invalidUTF8);
        }
        low = 0x80;
        high = 0xBF;
    }
    return true;
}

bool Parser::parseHexQuad(std::uint32_t& unit) {
    unit = 0;
    for (int i = 0; i < 4; ++i, ++cursor_) {
        const int digit = atEnd() ? -1 : Ascii::hexValue(static_cast<char>(*cursor_));
        if (digit < 0) {
            return fail(cursor_, Problem::invalidUnicodeEscape);
        }
        unit = (unit << 4) | static_cast<std::uint32_t>(digit);
    }
    return true;
}

// The escape at the cursor (a backslash), decoded into the scratch buffer.
bool Parser::parseEscape() {
    const Byte* const escapeStart = cursor_++;
    if (atEnd()) {
        return fail(cursor_, Problem::unterminatedString);
    }
    char decoded = 0;
    switch (*cursor_) {
    case '"':
    case '\\':
    case '/':
        decoded = static_cast<char>(*cursor_);
        break;
    case 'b':
        decoded = '\b';
        break;
    case 'f':
        decoded = '\f';
        break;
    case 'n':
        decoded = '\n';
        break;
    case 'r':
        decoded = '\r';
        break;
    case 't':
        decoded = '\t';
        break;
    case 'u': {
        ++cursor_;
        std::uint32_t unit = 0;
        if (!parseHexQuad(unit)) {
            return false;
        }
        if (unit >= 0xDC00 && unit <= 0xDFFF) {
            // A low surrogate with no high one before it.
            return fail(escapeStart, Problem::unpairedSurrogate);
        }
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            const Byte* const lowStart = cursor_;
            if (end_ - cursor_ < 2 || cursor_[0] != '\\' || cursor_[1] != 'u') {
                return fail(cursor_, Problem::unpairedSurrogate);
            }
            cursor_ += 2;
            std::uint32_t lowUnit = 0;
            if (!parseHexQuad(lowUnit)) {
                return false;
            }
            if (lowUnit < 0xDC00 || lowUnit > 0xDFFF) {
                return fail(lowStart, Problem::unpairedSurrogate);
            }
            unit = 0x10000 + ((unit - 0xD800) << 10) + (lowUnit - 0xDC00);
        }
        Text::appendUTF8(scratch_, unit);
        return true;
    }
    default:
        return fail(cursor_, Problem::invalidEscape);
    }
    scratch_ += decoded;
    ++cursor_;
    return true;
}

bool Parser::parseString(std::string& out) {
    ++cursor_; // the opening quote
    const Byte* const start = cursor_;
    // Most strings hold no escape: they are validated in place and copied
    // once. The first escape moves the work to the scratch buffer.
    bool escaped = false;
    const Byte* run = start;
    for (;;) {
        skipPlainAscii();
        if (atEnd()) {
            return fail(cursor_, Problem::unterminatedString);
        }
        const Byte byte = *cursor_;
        if (byte == '"') {
            break;
        }
        if (byte >= 0x80) {
            if (!skipUtf8Sequence()) {
                return false;
            }
            continue;
        }
        if (byte != '\\') {
            return fail(cursor_, Problem::controlCharacter);
        }
        if (!escaped) {
            scratch_.clear();
            escaped = true;
        }
        scratch_.append(reinterpret_cast<const char*>(run),
                        static_cast<std::size_t>(cursor_ - run));
        if (!parseEscape()) {
            return false;
        }
        run = cursor_;
    }
    if (escaped) {
        scratch_.append(reinterpret_cast<const char*>(run),
                        static_cast<std::size_t>(cursor_ - run));
        out.assign(scratch_);
    } else {
        out.assign(reinterpret_cast<const char*>(start), static_cast<std::size_t>(cursor_ - start));
    }
    ++cursor_; // the closing quote
    return true;
}

// Writers. Both recurse over the value; parsed values are at most maxDepth
// deep.

void appendRepeated(std::string& out, std::string_view unit, int count) {
    for (int i = 0; i < count; ++i) {
        out.append(unit);
    }
}

void writeIndented(std::string& out, const JSONValue& value, std::string_view indent, int depth) {
    switch (value.kind()) {
    case JSONValue::Kind::null:
        out += "null";
        return;
    case JSONValue::Kind::boolean:
        out += *value.boolValue() ? "true" : "false";
        return;
    case JSONValue::Kind::number:
        out += *value.numberText();
        return;
    case JSONValue::Kind::string:
        JsonText::appendQuoted(out, *value.stringValue(), JsonText::Style::plain);
        return;
    case JSONValue::Kind::array: {
        const auto& elements = *value.arrayElements();
        if (elements.empty()) {
            out += "[]";
            return;
        }
        out += "[\n";
        for (std::size_t i = 0; i < elements.size(); ++i) {
            appendRepeated(out, indent, depth + 1);
            writeIndented(out, elements[i], indent, depth + 1);
            out += i + 1 < elements.size() ? ",\n" : "\n";
        }
        appendRepeated(out, indent, depth);
        out += ']';
        return;
    }
    case JSONValue::Kind::object: {
        const auto& members = *value.objectMembers();
        if (members.empty()) {
            out += "{}";
            return;
        }
        out += "{\n";
        for (std::size_t i = 0; i < members.size(); ++i) {
            appendRepeated(out, indent, depth + 1);
            JsonText::appendQuoted(out, members[i].key, JsonText::Style::plain);
            out += ": ";
            writeIndented(out, members[i].value, indent, depth + 1);
            out += i + 1 < members.size() ? ",\n" : "\n";
        }
        appendRepeated(out, indent, depth);
        out += '}';
        return;
    }
    }
}

// Sorting goes through one shared list of member pointers: each object sorts
// its own slice at the end of it, so nested objects allocate nothing more.
void writeCompact(std::string& out, const JSONValue& value, std::vector<const JSONMember*>& order) {
    switch (value.kind()) {
    case JSONValue::Kind::null:
    case JSONValue::Kind::boolean:
    case JSONValue::Kind::number:
        writeIndented(out, value, {}, 0);
        return;
    case JSONValue::Kind::string:
        JsonText::appendQuoted(out, *value.stringValue(), JsonText::Style::platform);
        return;
    case JSONValue::Kind::array: {
        out += '[';
        bool first = true;
        for (const JSONValue& element : *value.arrayElements()) {
            if (!first) {
                out += ',';
            }
            first = false;
            writeCompact(out, element, order);
        }
        out += ']';
        return;
    }
    case JSONValue::Kind::object: {
        const auto& members = *value.objectMembers();
        const std::size_t start = order.size();
        for (const JSONMember& member : members) {
            order.push_back(&member);
        }
        std::stable_sort(order.begin() + static_cast<std::ptrdiff_t>(start), order.end(),
                         [](const JSONMember* a, const JSONMember* b) {
                             return JsonText::keyLess(a->key, b->key);
                         });
        out += '{';
        for (std::size_t i = start; i < start + members.size(); ++i) {
            if (i != start) {
                out += ',';
            }
            const JSONMember& member = *order[i];
            JsonText::appendQuoted(out, member.key, JsonText::Style::platform);
            out += ':';
            writeCompact(out, member.value, order);
        }
        out += '}';
        order.resize(start);
        return;
    }
    }
}

} // namespace

std::optional<JSONValue> tryParse(std::string_view text) {
    Parser parser(text);
    JSONValue root;
    if (!parser.parseDocument(root)) {
        return std::nullopt;
    }
    return root;
}

JSONValue parse(std::string_view text) {
    Parser parser(text);
    JSONValue root;
    if (!parser.parseDocument(root)) {
        throw JSONParseError(parser.failureOffset());
    }
    return root;
}

JSONValue parseDiagnosed(std::string_view text) {
    Parser parser(text);
    JSONValue root;
    if (parser.parseDocument(root)) {
        return root;
    }
    JSONParseError error(parser.failureOffset());
    const std::string_view before = text.substr(0, static_cast<std::size_t>(error.offset));
    const std::size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0
    error.line = static_cast<int>(std::count(before.begin(), before.end(), '\n')) + 1;
    error.column = static_cast<int>(Text::characterCount(before.substr(lineStart))) + 1;

    // An editor's invisible marks and a file cut short are said in words of
    // their own; everything else is what the parser expected.
    const Problem problem = parser.problem();
    if (text.starts_with("\xEF\xBB\xBF") && error.offset == 0) {
        error.message = "byte-order mark before the document";
    } else if (problem == Problem::expectedValue && before.size() == text.size() &&
               before.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        error.message = "empty document";
    } else if (before.size() == text.size() && problem != Problem::unterminatedString) {
        error.message = "unexpected end of the document: " + describe(problem);
    } else {
        error.message = describe(problem);
    }
    throw error;
}

std::string serialize(const JSONValue& value, std::string_view indent) {
    std::string out;
    writeIndented(out, value, indent, 0);
    return out;
}

std::string serializeCompact(const JSONValue& value) {
    std::string out;
    std::vector<const JSONMember*> order;
    writeCompact(out, value, order);
    return out;
}

} // namespace OrderedJSON
} // namespace pelmora
