#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

// Whole JSON records are rarely spelled by mutating bytes, so a decoder fed
// only raw bytes spends its run refusing them. These build a record's text
// from a valid one whose member values the input replaces one at a time:
// most inputs then decode, and each mutation tries one member's text.
namespace pelmora::fuzz {

struct Member {
    std::string_view key;
    std::string_view value; // JSON text; empty for a member that is absent
};

// `input` cut at every `separator`; n separators give n + 1 pieces.
inline std::vector<std::string_view> split(std::string_view input, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0;;) {
        const std::size_t end = input.find(separator, start);
        pieces.push_back(input.substr(start, end - start));
        if (end == std::string_view::npos) {
            return pieces;
        }
        start = end + 1;
    }
}

// The object of `members`, where the input's NUL-separated pieces replace
// their values in order: an empty piece keeps the value, "-" drops the
// member, anything else is put in as it is, valid JSON or not.
inline std::string objectText(std::initializer_list<Member> members, std::string_view input) {
    const std::vector<std::string_view> pieces = split(input, '\0');
    std::string text = "{";
    std::size_t index = 0;
    for (const Member& member : members) {
        const std::string_view piece = index < pieces.size() ? pieces[index] : std::string_view();
        ++index;
        const std::string_view value = piece.empty() ? member.value : piece;
        if (value.empty() || value == "-") {
            continue;
        }
        if (text.size() > 1) {
            text += ',';
        }
        text += '"';
        text += member.key;
        text += "\":";
        text += value;
    }
    return text + "}";
}

// A list of such objects, one per piece of `input` cut at byte 1.
inline std::string listText(std::initializer_list<Member> members, std::string_view input) {
    std::string text = "[";
    for (const std::string_view object : split(input, '\x01')) {
        if (text.size() > 1) {
            text += ',';
        }
        text += objectText(members, object);
    }
    return text + "]";
}

} // namespace pelmora::fuzz
