#include "clipboard/ClipboardClassifier.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>

#include "json/OrderedJSON.h"
#include "session/Redactor.h"
#include "support/Ascii.h"
#include "support/Regex.h"
#include "support/Text.h"

namespace pelmora {

namespace {

constexpr std::array<std::string_view, 4> caseNames{"trace", "json", "color", "secret"};

// The share of neighbouring letters and digits that change between upper
// case, lower case and digit. Random keys change at about every other
// character (hexadecimal ones a little less); identifiers change only at
// word boundaries, and snake, kebab and dotted names hardly at all.
double classChanges(std::string_view token) {
    auto classOf = [](char c) { return Ascii::isUpper(c) ? 0 : Ascii::isLower(c) ? 1 : 2; };
    std::size_t pairs = 0;
    std::size_t changes = 0;
    for (std::size_t index = 1; index < token.size(); ++index) {
        if (Ascii::isAlnum(token[index - 1]) && Ascii::isAlnum(token[index])) {
            ++pairs;
            changes += classOf(token[index - 1]) != classOf(token[index]) ? 1 : 0;
        }
    }
    return pairs == 0 ? 0 : static_cast<double>(changes) / static_cast<double>(pairs);
}
constexpr double keyClassChanges = 0.3;

bool allHex(std::string_view text) {
    return std::all_of(text.begin(), text.end(), Ascii::isHexDigit);
}

bool isUUIDShaped(std::string_view text) {
    if (text.size() != 36) {
        return false;
    }
    for (std::size_t index = 0; index < text.size(); ++index) {
        const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
        if (dash ? text[index] != '-' : !Ascii::isHexDigit(text[index])) {
            return false;
        }
    }
    return true;
}

// The lines of a text, split at "\n".
std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (true) {
        const std::size_t newline = text.find('\n', start);
        lines.push_back(text.substr(start, newline - start));
        if (newline == std::string_view::npos) {
            return lines;
        }
        start = newline + 1;
    }
}

std::string_view trimEnd(std::string_view line) {
    while (!line.empty() && Ascii::isSpace(line.back())) {
        line.remove_suffix(1);
    }
    return line;
}

std::string_view leadingBlanks(std::string_view line) {
    return line.substr(0, line.find_first_not_of(" \t"));
}

bool startsException(std::string_view line) {
    return line.starts_with("During handling") || line.starts_with("The above exception") ||
           line.starts_with("Caused by:");
}

std::string unqualified(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    return std::string(dot == std::string_view::npos ? name : name.substr(dot + 1));
}

std::string_view groupText(std::string_view subject, const Regex::Match& match, std::size_t group) {
    const std::optional<Regex::Range>& range = match.groups[group];
    return range ? subject.substr(range->begin, range->end - range->begin) : std::string_view();
}

// A plain number, or one with "%" or "deg".
struct Component {
    double value = 0;
    std::string_view unit;
};

double clampUnit(double value) {
    return std::clamp(value, 0.0, 1.0);
}

std::optional<double> readDouble(std::string_view text) {
    // from_chars reads neither a leading "+" nor ".5" in every library, so
    // the digits before a leading point are supplied.
    const bool negative = text.starts_with('-');
    const std::string_view digits = text.substr(negative ? 1 : 0);
    std::string number;
    number.reserve(text.size() + 1);
    if (negative) {
        number.push_back('-');
    }
    if (digits.starts_with('.')) {
        number.push_back('0');
    }
    number.append(digits);
    double value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error != std::errc() || end != number.data() + number.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::vector<Component>> functionalComponents(std::string_view text,
                                                           std::size_t position) {
    static const Regex number(R"((-?\d*\.?\d+)(%|deg)?)");
    std::vector<Component> components;
    auto skipSpaces = [&] {
        const std::size_t start = position;
        while (position < text.size() && Ascii::isSpace(text[position])) {
            ++position;
        }
        return position > start;
    };
    while (true) {
        const std::optional<Regex::Match> match = number.firstMatch(text, position);
        if (!match || match->whole.begin != position) {
            return std::nullopt;
        }
        const std::optional<double> value = readDouble(groupText(text, *match, 0));
        if (!value) {
            return std::nullopt;
        }
        components.push_back({*value, groupText(text, *match, 1)});
        position = match->whole.end;
        const bool spaced = skipSpaces();
        if (position < text.size() && text[position] == ')') {
            ++position;
            break;
        }
        if (components.size() == 4 || position >= text.size()) {
            return std::nullopt;
        }
        if (text[position] == ',' || (text[position] == '/' && components.size() == 3)) {
            ++position;
            skipSpaces();
        } else if (!spaced) {
            return std::nullopt;
        }
    }
    if (position != text.size() || components.size() < 3) {
        return std::nullopt;
    }
    return components;
}

std::optional<ClipboardAction::Color> hexColor(std::string_view text) {
    const std::string_view digits = text.substr(1);
    const std::size_t size = digits.size();
    if (!text.starts_with('#') || (size != 3 && size != 4 && size != 6 && size != 8) ||
        !allHex(digits)) {
        return std::nullopt;
    }
    const std::size_t width = size <= 4 ? 1 : 2;
    std::array<double, 4> channels{0, 0, 0, 1};
    for (std::size_t index = 0; index * width < size; ++index) {
        int value = Ascii::hexValue(digits[index * width]);
        value = width == 1 ? value * 17 : value * 16 + Ascii::hexValue(digits[index * width + 1]);
        channels[index] = value / 255.0;
    }
    return ClipboardAction::Color{std::string(text), channels[0], channels[1], channels[2],
                                  channels[3]};
}

} // namespace

std::string_view rawValue(ClipboardAction::Case kind) {
    return caseNames[static_cast<std::size_t>(kind)];
}

template <>
std::optional<ClipboardAction::Case> fromRaw<ClipboardAction::Case>(std::string_view raw) {
    for (std::size_t index = 0; index < caseNames.size(); ++index) {
        if (caseNames[index] == raw) {
            return static_cast<ClipboardAction::Case>(index);
        }
    }
    return std::nullopt;
}

namespace ClipboardClassifier {

const std::vector<const Regex*>& secretPatterns() {
    static const std::vector<std::unique_ptr<const Regex>> owned = [] {
        std::vector<std::unique_ptr<const Regex>> compiled;
        for (std::string_view source : secretPatternSources) {
            if (auto regex = Regex::tryCompile(source)) {
                compiled.push_back(std::move(regex));
            }
        }
        return compiled;
    }();
    static const std::vector<const Regex*> patterns = [] {
        std::vector<const Regex*> pointers;
        for (const auto& regex : owned) {
            pointers.push_back(regex.get());
        }
        return pointers;
    }();
    return patterns;
}

bool matchesSecretPattern(std::string_view text) {
    for (const Regex* pattern : secretPatterns()) {
        if (pattern->matches(text)) {
            return true;
        }
    }
    return false;
}

bool isCardNumber(std::string_view text) {
    if (text.size() > 23) {
        return false;
    }
    std::vector<int> digits;
    for (char c : text) {
        if (Ascii::isDigit(c)) {
            digits.push_back(c - '0');
        } else if (c != ' ' && c != '-') {
            return false;
        }
    }
    if (digits.size() < 13 || digits.size() > 19) {
        return false;
    }
    int sum = 0;
    bool doubled = false;
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        int value = *digit;
        if (doubled) {
            value = value * 2 >= 10 ? value * 2 - 9 : value * 2;
        }
        sum += value;
        doubled = !doubled;
    }
    return sum % 10 == 0;
}

bool isLongToken(std::string_view text) {
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+/=.";
    if (text.size() < 24 || text.size() > 512 ||
        text.find_first_not_of(alphabet) != std::string_view::npos || text.starts_with("http")) {
        return false;
    }
    if ((text.size() == 40 || text.size() == 64) && allHex(text)) {
        return false;
    }
    if (isUUIDShaped(text)) {
        return false;
    }
    return classChanges(text) >= keyClassChanges && Redactor::looksSecret(text);
}

const Regex& framePattern() {
    static const Regex frame(R"(^\s+at\s+\S|^\s*File ".*", line \d+)");
    return frame;
}

std::string withoutHome(std::string_view text) {
    static const Regex mac(R"(/Users/[^/\s"')]+/)");
    static const Regex homeFolder(R"(/home/[^/\s"')]+/)");
    static const Regex windows(R"([A-Za-z]:\\Users\\[^\\\s"')]+\\)");
    std::string result = mac.replaceAll(text, "~/");
    result = homeFolder.replaceAll(result, "~/");
    return windows.replaceAll(result, R"(~\\)");
}

std::string exceptionName(std::string_view trace) {
    static const Regex pythonFinal(R"(^([A-Za-z_]\w*(?:\.[A-Za-z_]\w*)*)(?::|$))");
    static const Regex reported(
        R"(^\s*(?:Uncaught\s+|Caused by:\s+|Exception in thread "[^"]*"\s+)?([A-Za-z_$][\w$]*(?:\.[A-Za-z_$][\w$]*)*)(?::|$))");
    static const Regex anyName(R"(\b([A-Za-z_$][\w$]*(?:Error|Exception))\b)");

    const std::vector<std::string_view> lines = splitLines(trace);
    if (trace.find("Traceback (most recent call last)") != std::string_view::npos) {
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            const std::string_view text = trimEnd(*line);
            if (auto match = pythonFinal.firstMatch(text)) {
                return unqualified(groupText(text, *match, 0));
            }
        }
    }
    for (std::string_view line : lines) {
        const std::string_view text = trimEnd(line);
        if (auto match = reported.firstMatch(text)) {
            const std::string name = unqualified(groupText(text, *match, 0));
            if (name.ends_with("Error") || name.ends_with("Exception")) {
                return name;
            }
        }
    }
    if (auto match = anyName.firstMatch(trace)) {
        return unqualified(groupText(trace, *match, 0));
    }
    return "Error";
}

std::optional<ClipboardAction::Trace> tidyTrace(std::string_view text) {
    if (text.find("Error") == std::string_view::npos &&
        text.find("Exception") == std::string_view::npos &&
        text.find("Traceback") == std::string_view::npos) {
        return std::nullopt;
    }
    const std::vector<std::string_view> lines = splitLines(text);
    if (lines.size() < 3) {
        return std::nullopt;
    }
    const bool python = text.starts_with("Traceback (most recent call last)") ||
                        text.find("\nTraceback (most recent call last)") != std::string_view::npos;

    // Lines replaced by a note: [first, last] with the note's text.
    struct Cut {
        std::size_t first = 0;
        std::size_t last = 0;
        std::string note;
    };
    std::vector<Cut> cuts;
    std::int64_t omitted = 0;
    std::size_t frameCount = 0;
    std::vector<std::size_t> frames; // of the current exception
    auto closeException = [&] {
        if (frames.size() > keptFrames) {
            const std::size_t left = frames.size() - keptFrames;
            omitted += static_cast<std::int64_t>(left);
            // The innermost frames come last in Python, where the outer
            // ones go; elsewhere the innermost come first and stay.
            Cut cut = python ? Cut{frames.front(), frames[left] - 1, {}}
                             : Cut{frames[keptFrames - 1] + 1, frames.back(), {}};
            cut.note.append(leadingBlanks(lines[frames[python ? 0 : keptFrames]]));
            cut.note.append("(").append(std::to_string(left));
            cut.note.append(python ? " earlier frames left out)" : " more frames left out)");
            cuts.push_back(std::move(cut));
        }
        frames.clear();
    };
    for (std::size_t index = 0; index < lines.size(); ++index) {
        if (startsException(lines[index])) {
            closeException();
        }
        if (framePattern().matches(lines[index])) {
            frames.push_back(index);
            ++frameCount;
        }
    }
    closeException();
    if (frameCount == 0) {
        return std::nullopt;
    }

    // The kept lines, with one blank line at most between paragraphs.
    std::string kept;
    kept.reserve(text.size());
    auto cut = cuts.begin();
    bool blankPending = false;
    auto append = [&](std::string_view line) {
        if (line.empty()) {
            blankPending = !kept.empty();
            return;
        }
        if (!kept.empty()) {
            kept.append(blankPending ? "\n\n" : "\n");
        }
        kept.append(line);
        blankPending = false;
    };
    for (std::size_t index = 0; index < lines.size(); ++index) {
        if (cut != cuts.end() && index == cut->first) {
            append(cut->note);
            index = cut->last;
            ++cut;
            continue;
        }
        append(trimEnd(lines[index]));
    }

    std::string cleaned = withoutHome(kept);
    std::string exception = exceptionName(cleaned);
    return ClipboardAction::Trace{std::move(exception), std::move(cleaned), omitted};
}

std::optional<ClipboardAction::JSON> formatJSON(std::string_view text) {
    if (!(text.starts_with('{') || text.starts_with('[')) ||
        Text::prefixCharacters(text, 40).size() == text.size()) {
        return std::nullopt;
    }
    const std::optional<JSONValue> value = OrderedJSON::tryParse(text);
    if (!value || !(value->isObject() || value->isArray())) {
        return std::nullopt;
    }
    ClipboardAction::JSON json;
    json.isArray = value->isArray();
    json.count = static_cast<std::int64_t>(json.isArray ? value->arrayElements()->size()
                                                        : value->objectMembers()->size());
    json.formatted = OrderedJSON::serialize(*value, "  ");
    if (json.formatted.size() > jsonLimit) {
        const std::size_t full = json.formatted.size();
        json.formatted = Text::repairedUTF8(std::string_view(json.formatted).substr(0, jsonLimit));
        json.droppedBytes =
            static_cast<std::int64_t>(full) - static_cast<std::int64_t>(json.formatted.size());
    }
    return json;
}

RGB hslToRGB(double h, double s, double l) {
    h = std::fmod(std::fmod(h, 360) + 360, 360);
    if (s == 0) {
        return {l, l, l};
    }
    const double q = l < 0.5 ? l * (1 + s) : l + s - l * s;
    const double p = 2 * l - q;
    auto f = [p, q](double x) {
        if (x < 0) {
            x += 1;
        }
        if (x > 1) {
            x -= 1;
        }
        if (x < 1.0 / 6) {
            return p + (q - p) * 6 * x;
        }
        if (x < 1.0 / 2) {
            return q;
        }
        if (x < 2.0 / 3) {
            return p + (q - p) * (2.0 / 3 - x) * 6;
        }
        return p;
    };
    const double t = h / 360;
    return {f(t + 1.0 / 3), f(t), f(t - 1.0 / 3)};
}

std::optional<ClipboardAction::Color> parseColor(std::string_view text) {
    static const Regex functional(R"(^(rgba?|hsla?)\(\s*)");
    if (text.starts_with('#')) {
        return hexColor(text);
    }
    const std::optional<Regex::Match> opening = functional.firstMatch(text);
    if (!opening) {
        return std::nullopt;
    }
    const std::optional<std::vector<Component>> parts =
        functionalComponents(text, opening->whole.end);
    if (!parts) {
        return std::nullopt;
    }
    const bool hsl = groupText(text, *opening, 0).starts_with("hsl");
    // Percentages everywhere but the hue; degrees only there.
    for (std::size_t index = 0; index < parts->size(); ++index) {
        const std::string_view unit = (*parts)[index].unit;
        const bool hue = hsl && index == 0;
        if ((hue && unit == "%") || (!hue && unit == "deg")) {
            return std::nullopt;
        }
    }
    auto fraction = [](const Component& part, double scale) {
        return clampUnit(part.unit == "%" ? part.value / 100 : part.value / scale);
    };
    ClipboardAction::Color color;
    color.original = std::string(text);
    color.alpha = parts->size() == 4 ? fraction((*parts)[3], 1) : 1;
    if (hsl) {
        const RGB rgb =
            hslToRGB((*parts)[0].value, fraction((*parts)[1], 100), fraction((*parts)[2], 100));
        color.red = rgb.red;
        color.green = rgb.green;
        color.blue = rgb.blue;
    } else {
        color.red = fraction((*parts)[0], 255);
        color.green = fraction((*parts)[1], 255);
        color.blue = fraction((*parts)[2], 255);
    }
    return color;
}

std::optional<ClipboardAction> classify(std::string_view text) {
    if (text.size() > maxBytes) {
        return std::nullopt;
    }
    const std::string_view trimmed = Text::trimWhitespaceAndNewlines(text);
    if (trimmed.empty()) {
        return std::nullopt;
    }
    if (matchesSecretPattern(trimmed) || isCardNumber(trimmed) || isLongToken(trimmed)) {
        return ClipboardAction{ClipboardAction::Secret{}};
    }
    if (auto trace = tidyTrace(trimmed)) {
        return ClipboardAction{std::move(*trace)};
    }
    if (auto json = formatJSON(trimmed)) {
        return ClipboardAction{std::move(*json)};
    }
    if (auto color = parseColor(trimmed)) {
        return ClipboardAction{std::move(*color)};
    }
    return std::nullopt;
}

} // namespace ClipboardClassifier
} // namespace pelmora
