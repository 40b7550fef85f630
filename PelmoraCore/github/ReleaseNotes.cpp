#include "github/ReleaseNotes.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "support/Ascii.h"
#include "support/Integers.h"
#include "support/Text.h"

namespace pelmora::ReleaseNotes {

namespace {

constexpr std::size_t npos = std::string_view::npos;
// Deeper lists are drawn at this depth: indenting each level further would
// let a page of nested lists grow the output with the square of its size.
constexpr std::size_t maxListIndent = 8;

bool isHTMLSpace(char c) {
    return Ascii::isSpace(c);
}

// Finds `needle` (lower case) in the lower-cased page from `from`, and
// remembers the answer: the search starts afresh only once the reader has
// passed the last place found, so each needle costs one walk over the page.
class Finder {
public:
    Finder(std::string_view text, std::string_view needle) : text_(text), needle_(needle) {}

    std::size_t find(std::size_t from) {
        if (!searched_ || (found_ != npos && found_ < from)) {
            found_ = text_.find(needle_, from);
            searched_ = true;
        }
        return found_;
    }

private:
    std::string_view text_;
    std::string_view needle_;
    std::size_t found_ = npos;
    bool searched_ = false;
};

class Writer {
public:
    // Where the next text starts: on the next line (1) or after a blank line (2).
    void lineBreak() { breaks_ = std::min(breaks_ + 1, 2); }
    void atLeast(int breaks) { breaks_ = std::max(breaks_, breaks); }
    void space() { space_ = true; }

    void text(std::string_view decoded, bool preformatted) {
        for (char c : decoded) {
            if (preformatted && c == '\n') {
                lineBreak();
            } else if (preformatted && c == '\r') {
            } else if (!preformatted && isHTMLSpace(c)) {
                space_ = true;
            } else {
                put(c);
            }
        }
    }

    void marker(std::size_t depth, std::string_view bullet) {
        atLeast(1);
        flush();
        out_.append(2 * std::min(depth, maxListIndent), ' ');
        out_.append(bullet);
        space_ = true;
    }

    std::string finish() {
        // Blanks that preformatted text left at line ends, and blank lines
        // beyond one.
        std::string result;
        result.reserve(out_.size());
        std::size_t blankLines = 0;
        for (std::size_t start = 0; start <= out_.size();) {
            const std::size_t end = std::min(out_.find('\n', start), out_.size());
            std::string_view line(out_.data() + start, end - start);
            while (!line.empty() && Ascii::isBlank(line.back())) {
                line.remove_suffix(1);
            }
            if (line.empty()) {
                ++blankLines;
            } else {
                if (!result.empty()) {
                    result.append(blankLines > 0 ? "\n\n" : "\n");
                }
                result.append(line);
                blankLines = 0;
            }
            start = end + 1;
        }
        return result;
    }

private:
    void put(char c) {
        flush();
        out_.push_back(c);
    }
    void flush() {
        if (!out_.empty()) {
            if (breaks_ > 0) {
                out_.append(static_cast<std::size_t>(breaks_), '\n');
            } else if (space_ && out_.back() != '\n') {
                out_.push_back(' ');
            }
        }
        breaks_ = 0;
        space_ = false;
    }

    std::string out_;
    int breaks_ = 0;
    bool space_ = false;
};

// "&...;" at `at`: appends what it stands for and gives its length, or 0
// when it is not one of the references decoded here.
std::size_t decodeReference(std::string_view html, std::size_t at, std::string& out) {
    static constexpr std::pair<std::string_view, std::string_view> named[] = {
        {"&nbsp;", " "}, {"&lt;", "<"},   {"&gt;", ">"},  {"&quot;", "\""},
        {"&#39;", "'"},  {"&apos;", "'"}, {"&amp;", "&"},
    };
    const std::string_view rest = html.substr(at);
    for (const auto& [reference, text] : named) {
        if (rest.starts_with(reference)) {
            out.append(text);
            return reference.size();
        }
    }
    if (!rest.starts_with("&#")) {
        return 0;
    }
    const bool hex = rest.size() > 2 && (rest[2] == 'x' || rest[2] == 'X');
    const std::size_t digitsStart = hex ? 3 : 2;
    std::size_t end = digitsStart;
    while (end < rest.size() && end - digitsStart < 8 &&
           (hex ? Ascii::isHexDigit(rest[end]) : Ascii::isDigit(rest[end]))) {
        ++end;
    }
    if (end == digitsStart || end >= rest.size() || rest[end] != ';') {
        return 0;
    }
    std::uint32_t scalar = 0;
    for (std::size_t index = digitsStart; index < end; ++index) {
        scalar =
            scalar * (hex ? 16 : 10) + static_cast<std::uint32_t>(Ascii::hexValue(rest[index]));
    }
    if (scalar == 0 || scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF)) {
        return 0;
    }
    Text::appendUTF8(out, scalar);
    return end + 1;
}

std::string decodeReferences(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '&') {
            if (const std::size_t length = decodeReference(text, at, out)) {
                at += length - 1;
                continue;
            }
        }
        out.push_back(text[at]);
    }
    return out;
}

bool isHeading(std::string_view name) {
    return name.size() == 2 && name[0] == 'h' && name[1] >= '1' && name[1] <= '6';
}

} // namespace

std::string plainText(std::string_view html) {
    std::string lower(html);
    std::transform(lower.begin(), lower.end(), lower.begin(), Ascii::toLower);
    Finder tagEnd(lower, ">");
    Finder commentEnd(lower, "-->");
    Finder scriptEnd(lower, "</script");
    Finder styleEnd(lower, "</style");

    Writer writer;
    std::vector<int> lists; // per open list: the next item number, or -1 for bullets
    int preformatted = 0;
    std::size_t at = 0;
    while (at < html.size()) {
        const std::size_t open = html.find('<', at);
        const std::size_t textEnd = open == npos ? html.size() : open;
        if (textEnd > at) {
            writer.text(decodeReferences(html.substr(at, textEnd - at)), preformatted > 0);
        }
        if (open == npos) {
            break;
        }
        const char next = open + 1 < html.size() ? html[open + 1] : '\0';
        if (lower.compare(open, 4, "<!--") == 0) {
            const std::size_t end = commentEnd.find(open + 4);
            at = end == npos ? html.size() : end + 3;
            continue;
        }
        const std::size_t close = tagEnd.find(open + 1);
        if ((next != '/' && next != '!' && !Ascii::isAlpha(next)) || close == npos) {
            writer.text("<", preformatted > 0);
            at = open + 1;
            continue;
        }
        at = close + 1;
        const bool closing = next == '/';
        std::size_t nameStart = open + (closing ? 2 : 1);
        std::size_t nameEnd = nameStart;
        while (nameEnd < close && Ascii::isAlnum(lower[nameEnd])) {
            ++nameEnd;
        }
        const std::string_view name(lower.data() + nameStart, nameEnd - nameStart);

        if (!closing && (name == "script" || name == "style")) {
            Finder& end = name == "script" ? scriptEnd : styleEnd;
            const std::size_t endTag = end.find(at);
            const std::size_t endClose = endTag == npos ? npos : tagEnd.find(endTag);
            at = endClose == npos ? html.size() : endClose + 1;
        } else if (name == "br") {
            writer.lineBreak();
        } else if (name == "p" || name == "hr" || name == "table" ||
                   (!closing && isHeading(name))) {
            writer.atLeast(2);
        } else if (closing && (isHeading(name) || name == "blockquote")) {
            writer.atLeast(2);
        } else if (name == "ul" || name == "ol") {
            writer.atLeast(1);
            if (!closing) {
                lists.push_back(name == "ol" ? 1 : -1);
            } else if (!lists.empty()) {
                lists.pop_back();
            }
        } else if (name == "li" && !closing) {
            const std::size_t depth = lists.empty() ? 0 : lists.size() - 1;
            if (!lists.empty() && lists.back() > 0) {
                writer.marker(depth, std::to_string(lists.back()++) + ".");
            } else {
                writer.marker(depth, "•");
            }
        } else if (name == "pre") {
            writer.atLeast(1);
            preformatted = closing ? std::max(preformatted - 1, 0) : preformatted + 1;
        } else if (name == "div" || name == "li" || name == "tr" || name == "blockquote" ||
                   name == "dt" || name == "dd") {
            writer.atLeast(1);
        } else if ((name == "td" || name == "th") && !closing) {
            writer.space();
        }
    }
    return writer.finish();
}

} // namespace pelmora::ReleaseNotes
