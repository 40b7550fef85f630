#include "activity/ErrorScanner.h"

#include <algorithm>
#include <vector>

#include "support/Text.h"

namespace pelmora {

namespace {

constexpr char escape = 27;
constexpr std::string_view ellipsis = "…";

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The characters of a line, as a terminal groups them: single bytes for
// ASCII (with "\r\n" kept together), grapheme clusters otherwise, so that a
// combining mark never splits from the character it sits on.
class Characters {
public:
    explicit Characters(std::string_view line) : line_(line) {
        if (!isAscii(line)) {
            clusters_ = Text::characters(line);
            clustered_ = true;
        }
    }

    bool next(std::string_view& character) {
        if (clustered_) {
            if (index_ >= clusters_.size()) {
                return false;
            }
            character = clusters_[index_++];
            return true;
        }
        if (index_ >= line_.size()) {
            return false;
        }
        const std::size_t length = line_.substr(index_, 2) == "\r\n" ? 2 : 1;
        character = line_.substr(index_, length);
        index_ += length;
        return true;
    }

private:
    std::string_view line_;
    std::vector<std::string_view> clusters_;
    bool clustered_ = false;
    std::size_t index_ = 0;
};

// The code of a character's first scalar, which is all that the control
// rules look at.
char32_t leadScalar(std::string_view character) {
    std::size_t offset = 0;
    return Text::decodeScalar(character, offset);
}

// The last `count` characters of `text`, dropping what comes before.
void keepLastCharacters(std::string& text, std::size_t count) {
    if (text.size() <= count) {
        return;
    }
    const std::vector<std::string_view> characters = Text::characters(text);
    if (characters.size() <= count) {
        return;
    }
    const std::size_t from =
        static_cast<std::size_t>(characters[characters.size() - count].data() - text.data());
    text.erase(0, from);
}

} // namespace

std::string ErrorScanner::clean(std::string_view line) {
    std::string out;
    out.reserve(line.size());
    Characters characters(line);
    std::string_view character;
    while (characters.next(character)) {
        const char32_t code = leadScalar(character);
        if (character.size() == 1 && code == escape) {
            if (!characters.next(character)) {
                break;
            }
            if (character == "[") {
                // A control sequence runs to its final byte, "@" to "~".
                while (characters.next(character)) {
                    const char32_t part = leadScalar(character);
                    if (part >= 64 && part <= 126) {
                        break;
                    }
                }
            }
        } else if (character == "\r") {
            // What a terminal would write over.
            out.clear();
        } else if (character == "\r\n") {
        } else if (character.size() == 1 && code < 32 && code != '\t') {
        } else {
            out.append(character);
        }
    }

    const std::string_view trimmed = Text::trimSpacesAndTabs(out);
    if (trimmed.size() > maxLineLength) {
        const std::string_view kept = Text::prefixCharacters(trimmed, maxLineLength);
        if (kept.size() < trimmed.size()) {
            return std::string(kept) + std::string(ellipsis);
        }
    }
    return std::string(trimmed);
}

bool ErrorScanner::looksLikeError(std::string_view cleanedLine) {
    const std::string lower = Text::lowercased(cleanedLine);
    for (std::string_view word : {"error", "failed", "fatal", "✖", "✗", "assertion"}) {
        if (lower.find(word) != std::string::npos) {
            return true;
        }
    }
    return lower.starts_with("fail ");
}

void ErrorScanner::consume(std::string_view cleanedLine, bool isStderr) {
    if (cleanedLine.empty()) {
        return;
    }
    lastLine = std::string(cleanedLine);
    if (isStderr && !firstStderr) {
        firstStderr = lastLine;
    }
    if (!firstError && looksLikeError(cleanedLine)) {
        firstError = lastLine;
    }
}

void ErrorScanner::feed(std::string_view data, bool isStderr) {
    std::string& text = pending[isStderr];
    if (Text::isValidUTF8(data)) {
        text.append(data);
    } else {
        text.append(Text::repairedUTF8(data));
    }

    std::size_t start = 0;
    for (std::size_t newline = text.find('\n'); newline != std::string::npos;
         newline = text.find('\n', start)) {
        std::string_view line(text.data() + start, newline - start);
        // "\r\n" ends a line as "\n" does; only a lone "\r" overwrites.
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        consume(clean(line), isStderr);
        start = newline + 1;
    }
    text.erase(0, start);
    keepLastCharacters(text, maxPending);
}

void ErrorScanner::finish() {
    for (bool isStderr : {false, true}) {
        auto entry = pending.find(isStderr);
        if (entry != pending.end() && !entry->second.empty()) {
            consume(clean(entry->second), isStderr);
        }
    }
    pending.clear();
}

std::optional<std::string> ErrorScanner::best() const {
    if (firstError) {
        return firstError;
    }
    if (firstStderr) {
        return firstStderr;
    }
    return lastLine;
}

} // namespace pelmora
