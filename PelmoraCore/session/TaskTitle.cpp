#include "session/TaskTitle.h"

#include <string_view>
#include <unordered_set>

#include "session/Redactor.h"
#include "support/Text.h"

namespace pelmora::TaskTitle {

namespace {

// Replies that carry no task of their own: "ok", "go on", "继续" and the like.
// Compared after punctuation is trimmed and the text lower-cased.
const std::unordered_set<std::string_view>& fillerWords() {
    static const std::unordered_set<std::string_view> words{
        "y",      "n",         "yes",        "no",        "ok",       "okay", "k",     "sure",
        "go",     "go on",     "go ahead",   "continue",  "proceed",  "next", "retry", "again",
        "thanks", "thank you", "thx",        "done",      "stop",     "good", "great", "nice",
        "lgtm",   "do it",     "yes please", "try again", "好",       "好的", "好吧",  "可以",
        "行",     "是",        "是的",       "对",        "嗯",       "嗯嗯", "继续",  "继续吧",
        "确认",   "开始",      "开始吧",     "重试",      "再试一次", "谢谢", "多谢",  "下一个",
        "没问题", "不用",      "不要",       "停",        "停止",
    };
    return words;
}

bool isLineBreak(char32_t scalar) {
    return scalar == U'\n' || scalar == U'\v' || scalar == U'\f' || scalar == U'\r' ||
           scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
}

// The first line, split at any line break, that still has text once its
// spaces and tabs are trimmed. Later lines never matter.
std::string_view firstMeaningfulLine(std::string_view prompt) {
    std::size_t lineStart = 0;
    std::size_t offset = 0;
    while (lineStart <= prompt.size()) {
        std::size_t lineEnd = prompt.size();
        std::size_t next = prompt.size() + 1;
        while (offset < prompt.size()) {
            const std::size_t scalarStart = offset;
            if (isLineBreak(Text::decodeScalar(prompt, offset))) {
                lineEnd = scalarStart;
                next = offset;
                break;
            }
        }
        const std::string_view line =
            Text::trimSpacesAndTabs(prompt.substr(lineStart, lineEnd - lineStart));
        if (!line.empty()) {
            return line;
        }
        lineStart = next;
        offset = next;
    }
    return {};
}

std::string collapsingWhitespace(std::string_view line) {
    std::string collapsed;
    collapsed.reserve(line.size());
    bool inRun = false;
    std::size_t offset = 0;
    while (offset < line.size()) {
        const std::size_t scalarStart = offset;
        if (Text::isWhitespace(Text::decodeScalar(line, offset))) {
            if (!inRun) {
                collapsed.push_back(' ');
            }
            inRun = true;
        } else {
            collapsed.append(line.substr(scalarStart, offset - scalarStart));
            inRun = false;
        }
    }
    return collapsed;
}

// Markdown headings, quotes, bullets: one marker at a time, so emphasis
// such as "**Refactor**" only loses its leading asterisks.
std::string_view droppingMarkers(std::string_view line) {
    static constexpr std::string_view bullet = "•";
    while (!line.empty()) {
        if (line.front() == '#' || line.front() == '>' || line.front() == '*' ||
            line.front() == '-') {
            line.remove_prefix(1);
        } else if (line.starts_with(bullet)) {
            line.remove_prefix(bullet.size());
        } else {
            break;
        }
        line = Text::trimSpacesAndTabs(line);
    }
    return line;
}

bool isPunctuationOrWhitespace(char32_t scalar) {
    return Text::isPunctuation(scalar) || Text::isWhitespace(scalar);
}

// Too little to name a task: fewer than three letters or digits, or two
// when East Asian script carries more meaning per character.
bool hasEnoughSubstance(std::string_view key) {
    constexpr char32_t eastAsianStart = 0x2E80;
    std::size_t meaningful = 0;
    bool eastAsian = false;
    std::size_t offset = 0;
    while (offset < key.size()) {
        const char32_t scalar = Text::decodeScalar(key, offset);
        if (Text::isLetter(scalar) || Text::isNumber(scalar)) {
            ++meaningful;
        }
        if (scalar >= eastAsianStart) {
            eastAsian = true;
        }
    }
    return meaningful >= (eastAsian ? 2U : 3U);
}

} // namespace

std::optional<std::string> make(std::optional<std::string_view> prompt,
                                std::optional<std::string_view> source,
                                std::optional<std::string_view> projectDir) {
    if (!prompt || source == "slash_command_expansion") {
        return std::nullopt;
    }
    const std::string_view firstLine = firstMeaningfulLine(*prompt);
    if (firstLine.empty()) {
        return std::nullopt;
    }
    // A command name alone says nothing; with arguments it reads as a task.
    if (firstLine.front() == '/' && firstLine.find(' ') == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string collapsed = collapsingWhitespace(firstLine);
    const std::string_view line = droppingMarkers(collapsed);
    const std::string key = Text::lowercased(Text::trimScalars(line, isPunctuationOrWhitespace));
    if (fillerWords().contains(key) || !hasEnoughSubstance(key)) {
        return std::nullopt;
    }
    std::string title = Redactor::redact(line, projectDir);
    if (title.empty()) {
        return std::nullopt;
    }
    return title;
}

} // namespace pelmora::TaskTitle
