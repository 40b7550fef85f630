// Any bytes at all: the parser either refuses them with an offset inside the
// input, which the diagnosing form places on a line and column of the input
// and explains, or gives a value that both writers can write and that reads
// back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "json/OrderedJSON.h"

namespace {

using pelmora::JSONValue;
namespace OrderedJSON = pelmora::OrderedJSON;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// The two numeric readings of a number's text must agree where both exist.
void checkNumbers(const JSONValue& value) {
    if (const auto integer = value.integerValue()) {
        constexpr std::int64_t exactLimit = std::int64_t{1} << 53;
        const auto asDouble = value.doubleValue();
        check(asDouble.has_value());
        if (*integer > -exactLimit && *integer < exactLimit) {
            check(*asDouble == static_cast<double>(*integer));
        }
    }
    if (const auto* elements = value.arrayElements()) {
        for (const JSONValue& element : *elements) {
            checkNumbers(element);
        }
    }
    if (const auto* members = value.objectMembers()) {
        for (const auto& member : *members) {
            check(value.find(member.key) != nullptr);
            checkNumbers(member.value);
        }
    }
}

void checkRefusal(std::string_view text) {
    std::int64_t offset = -1;
    try {
        OrderedJSON::parse(text);
        std::abort(); // the entry points disagree
    } catch (const pelmora::JSONParseError& error) {
        offset = error.offset;
        check(offset >= 0 && static_cast<std::size_t>(offset) <= text.size());
    }
    try {
        OrderedJSON::parseDiagnosed(text);
        std::abort();
    } catch (const pelmora::JSONParseError& error) {
        check(error.offset == offset && !error.message.empty());
        const std::string_view before = text.substr(0, static_cast<std::size_t>(offset));
        check(error.line == std::count(before.begin(), before.end(), '\n') + 1);
        check(error.column >= 1 && static_cast<std::size_t>(error.column) <= before.size() + 1);
        check(error.located().starts_with(error.message));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::optional<JSONValue> value = OrderedJSON::tryParse(text);
    if (!value) {
        checkRefusal(text);
        return 0;
    }
    check(OrderedJSON::parseDiagnosed(text) == *value);

    const std::string indented = OrderedJSON::serialize(*value, "  ");
    const std::optional<JSONValue> indentedBack = OrderedJSON::tryParse(indented);
    check(indentedBack.has_value() && *indentedBack == *value);
    check(OrderedJSON::serialize(*indentedBack, "  ") == indented);

    // The compact form sorts keys, so it reads back as the same text only.
    const std::string compact = OrderedJSON::serializeCompact(*value);
    const std::optional<JSONValue> compactBack = OrderedJSON::tryParse(compact);
    check(compactBack.has_value() && OrderedJSON::serializeCompact(*compactBack) == compact);

    checkNumbers(*value);
    return 0;
}
