#include "session/Redactor.h"

#include <array>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "hook/PelmoraPaths.h"
#include "support/Ascii.h"
#include "support/Regex.h"
#include "support/Text.h"

// How the masking stays linear.
//
// Replacing every match of a rule over the whole text is what the rules mean,
// but a backtracking engine pays for it in two places: the option rule
// retries its option-name run from every dash (quadratic on long runs of name
// characters unless the JIT happens to cut it short), and without the JIT
// every search re-validates the UTF-8 of the subject from its starting
// offset, so a text with many matches costs the square of its length.
//
// So each rule here has a scanner that names the places where a match can
// begin, in order and without missing one, and says how much of the text the
// pattern can read from there. The pattern then runs only on that window and
// still decides every match and every replacement. Scanners read ASCII
// themselves and put any other character to the engine (is it a blank, a
// word character, a caseless letter of an option name?). Where that cannot
// settle it (broken UTF-8, a caseless letter inside an option name) they
// hand the pattern the whole rest of the text and take its answer.
// Tests compare the result with whole-text replacement on generated inputs.

namespace pelmora::Redactor {

namespace {

const Regex& ruleRegex(std::size_t index) {
    switch (index) {
    case 0: {
        static const Regex authorization(rules[0].pattern);
        return authorization;
    }
    case 1: {
        static const Regex bearer(rules[1].pattern);
        return bearer;
    }
    case 2: {
        static const Regex secretOption(rules[2].pattern);
        return secretOption;
    }
    case 3: {
        static const Regex assignment(rules[3].pattern);
        return assignment;
    }
    default: {
        static const Regex keyShape(rules[4].pattern);
        return keyShape;
    }
    }
}

const Regex& tokenRegex() {
    static const Regex token(tokenPattern);
    return token;
}

constexpr std::size_t npos = std::string_view::npos;
constexpr std::size_t minimumTokenLength = 21;
constexpr double secretEntropy = 3.5;

bool isAscii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}
// The ASCII members of \w and \s as the patterns read them.
bool isWordChar(char c) {
    return Ascii::isAlnum(c) || c == '_';
}
bool isQuote(char c) {
    return c == '"' || c == '\'';
}
std::size_t skipSpaces(std::string_view text, std::size_t at) {
    while (at < text.size() && Ascii::isSpace(text[at])) {
        ++at;
    }
    return at;
}

std::size_t wordEnd(std::string_view text, std::size_t at) {
    while (at < text.size() && !Ascii::isSpace(text[at])) {
        ++at;
    }
    return at;
}

// Where the `count`-th blank-separated word from `at` ends. Splitting at ASCII
// blanks only can merge two of the patterns' words, never cut one, so this is
// never short of the end of the `count`-th word as \s would split them.
std::size_t endOfWords(std::string_view text, std::size_t at, int count) {
    for (int word = 0; word < count; ++word) {
        at = wordEnd(text, word == 0 ? at : skipSpaces(text, at));
    }
    return at;
}

// After a quoted value: its closing quote, or the end when it has none (the
// pattern then reads to the end looking for one).
std::size_t quotedEnd(std::string_view text, std::size_t openingQuote) {
    const std::size_t closing = text.find(text[openingQuote], openingQuote + 1);
    return closing == npos ? text.size() : closing + 1;
}

// After an option or assignment value: quoted ("..." or '...') or up to a blank.
std::size_t valueEnd(std::string_view text, std::size_t at) {
    return isQuote(text[at]) ? quotedEnd(text, at) : wordEnd(text, at);
}

bool startsWithCaseless(std::string_view text, std::size_t at, std::string_view lowerNeedle) {
    if (text.size() - at < lowerNeedle.size()) {
        return false;
    }
    for (std::size_t index = 0; index < lowerNeedle.size(); ++index) {
        if (Ascii::toLower(text[at + index]) != lowerNeedle[index]) {
            return false;
        }
    }
    return true;
}

std::size_t findCaseless(std::string_view text, std::string_view lowerNeedle, std::size_t from) {
    for (std::size_t at = from; at + lowerNeedle.size() <= text.size(); ++at) {
        if (Ascii::toLower(text[at]) == lowerNeedle.front() &&
            startsWithCaseless(text, at, lowerNeedle)) {
            return at;
        }
    }
    return npos;
}

// A place where a rule's match may begin, and the part of the text that the
// pattern's attempt there can read: from `contextBegin` (one character back
// where the pattern starts with \b) up to `windowEnd`. A window that reaches
// the end of the text leaves the whole rest of it to the pattern.
struct Candidate {
    std::size_t start = 0;
    std::size_t contextBegin = 0;
    std::size_t windowEnd = 0;
};

std::size_t characterBefore(std::string_view text, std::size_t at) {
    std::size_t begin = at;
    if (begin > 0) {
        Text::decodeScalarBefore(text, begin);
    }
    return begin;
}

Candidate window(std::string_view text, std::size_t start, std::size_t end, bool looksBack) {
    return {start, looksBack ? characterBefore(text, start) : start, end};
}

Candidate restOfText(std::string_view text, std::size_t start, bool looksBack) {
    return window(text, start, text.size(), looksBack);
}

// What the patterns make of one character. ASCII is answered from the
// tables above; any other character is put to the same engine, so the
// scanners never disagree with the patterns about Unicode blanks, letters or
// caseless forms. Broken UTF-8 is left to the pattern in context.
enum class Verdict { yes, no, unknown };

const Regex& blankProbe() {
    static const Regex blank(R"(\s)");
    return blank;
}
const Regex& wordProbe() {
    static const Regex word(R"(\w)");
    return word;
}
// The option rule's name class, which caselessly takes in a few letters
// beyond ASCII (the Kelvin sign, the long s).
const Regex& optionNameProbe() {
    static const Regex optionName(R"((?i)[a-z0-9_-])");
    return optionName;
}

Verdict probed(const Regex& probe, std::string_view text, std::size_t begin, std::size_t end) {
    // A valid non-ASCII character is two bytes or more; one byte is broken UTF-8.
    if (end - begin < 2) {
        return Verdict::unknown;
    }
    return probe.matches(text.substr(begin, end - begin)) ? Verdict::yes : Verdict::no;
}

Verdict verdictAt(const Regex& probe, bool (*isAsciiMember)(char), std::string_view text,
                  std::size_t at) {
    if (isAscii(text[at])) {
        return isAsciiMember(text[at]) ? Verdict::yes : Verdict::no;
    }
    std::size_t end = at;
    Text::decodeScalar(text, end);
    return probed(probe, text, at, end);
}

Verdict blankAt(std::string_view text, std::size_t at) {
    return verdictAt(blankProbe(), Ascii::isSpace, text, at);
}

// Whether the character before `at` is a word character, which denies a \b
// before a word character at `at`.
Verdict wordCharBefore(std::string_view text, std::size_t at) {
    if (at == 0) {
        return Verdict::no;
    }
    if (isAscii(text[at - 1])) {
        return isWordChar(text[at - 1]) ? Verdict::yes : Verdict::no;
    }
    return probed(wordProbe(), text, characterBefore(text, at), at);
}

// Skips blanks as \s reads them; std::nullopt when broken UTF-8 is met.
std::optional<std::size_t> skipBlanks(std::string_view text, std::size_t at) {
    while (at < text.size()) {
        const Verdict blank = blankAt(text, at);
        if (blank == Verdict::unknown) {
            return std::nullopt;
        }
        if (blank == Verdict::no) {
            break;
        }
        Text::decodeScalar(text, at);
    }
    return at;
}

// The authorization rule: "authorization", blanks, ":" or "=", blanks, then a credential
// (after an optional scheme word): at most four words.
std::optional<Candidate> nextAuthorization(std::string_view text, std::size_t from) {
    static constexpr std::string_view label = "authorization";
    for (std::size_t at = findCaseless(text, label, from); at != npos;
         at = findCaseless(text, label, at + 1)) {
        const std::optional<std::size_t> separator = skipBlanks(text, at + label.size());
        if (!separator) {
            return restOfText(text, at, false);
        }
        if (*separator == text.size() || (text[*separator] != ':' && text[*separator] != '=')) {
            continue;
        }
        const std::optional<std::size_t> value = skipBlanks(text, *separator + 1);
        if (!value) {
            return restOfText(text, at, false);
        }
        // A scheme word starts with a letter, a credential with anything but
        // a quote: a quote or the end here leaves neither.
        if (*value == text.size() || isQuote(text[*value])) {
            continue;
        }
        return window(text, at, endOfWords(text, at, 4), false);
    }
    return std::nullopt;
}

// The bearer rule: "bearer" at a word start, blanks, a token: two words.
std::optional<Candidate> nextBearer(std::string_view text, std::size_t from) {
    static constexpr std::string_view word = "bearer";
    for (std::size_t at = findCaseless(text, word, from); at != npos;
         at = findCaseless(text, word, at + 1)) {
        const std::size_t gap = at + word.size();
        const Verdict joined = wordCharBefore(text, at);
        const Verdict blank = gap < text.size() ? blankAt(text, gap) : Verdict::no;
        if (joined == Verdict::yes || blank == Verdict::no) {
            continue;
        }
        const std::optional<std::size_t> value =
            blank == Verdict::yes ? skipBlanks(text, gap) : std::nullopt;
        if (joined == Verdict::unknown || !value) {
            return restOfText(text, at, true);
        }
        if (*value == text.size() || isQuote(text[*value])) {
            continue;
        }
        return window(text, at, endOfWords(text, at, 2), true);
    }
    return std::nullopt;
}

bool isOptionNameChar(char c) {
    return isWordChar(c) || c == '-';
}

// Whether the option name [begin, end) ends in one of the secret words.
bool endsWithSecretName(std::string_view text, std::size_t begin, std::size_t end) {
    static constexpr std::array<std::string_view, 10> names{
        "token",   "password", "passwd",    "secret",     "apikey",
        "api-key", "api_key",  "accesskey", "access-key", "access_key"};
    for (std::string_view name : names) {
        if (end - begin >= name.size() && startsWithCaseless(text, end - name.size(), name)) {
            return true;
        }
    }
    return false;
}

// The option rule: a dash, option-name characters ending in a secret word, "=" or
// blanks, a value. The name cannot contain "=" or a blank, so a match from
// any dash of a run of name characters ends its name where the run ends;
// whether it matches then depends only on that end and on the room left for
// the name, so the first dash of a run decides for the whole run.
std::optional<Candidate> nextSecretOption(std::string_view text, std::size_t from) {
    std::size_t at = from;
    while ((at = text.find('-', at)) != npos) {
        std::size_t nameEnd = at;
        while (nameEnd < text.size() && isOptionNameChar(text[nameEnd])) {
            ++nameEnd;
        }
        // A caseless letter beyond ASCII would carry the name on.
        if (nameEnd < text.size() &&
            verdictAt(optionNameProbe(), isOptionNameChar, text, nameEnd) != Verdict::no) {
            return restOfText(text, at, false);
        }
        if (nameEnd == text.size() || !endsWithSecretName(text, at + 1, nameEnd)) {
            at = nameEnd;
            continue;
        }
        // "=" and blanks, then the value.
        std::size_t value = nameEnd;
        Verdict separator = Verdict::yes;
        while (value < text.size()) {
            separator = text[value] == '=' ? Verdict::yes : blankAt(text, value);
            if (separator != Verdict::yes) {
                break;
            }
            Text::decodeScalar(text, value);
        }
        if (separator == Verdict::unknown) {
            return restOfText(text, at, false);
        }
        if (value == nameEnd) {
            at = nameEnd;
            continue;
        }
        if (value == text.size()) {
            // Only an "=" after the first separator can stand for the value.
            if (text.find('=', nameEnd + 1) == npos) {
                return std::nullopt;
            }
            return restOfText(text, at, false);
        }
        return window(text, at, valueEnd(text, value), false);
    }
    return std::nullopt;
}

bool isNameStart(char c) {
    return Ascii::isAlpha(c) || c == '_';
}

// The assignment rule: a name that is a whole run of word characters (inside a run there
// is no \b), "=", a value that does not start with a blank.
std::optional<Candidate> nextAssignment(std::string_view text, std::size_t from) {
    for (std::size_t equals = text.find('=', from); equals != npos;
         equals = text.find('=', equals + 1)) {
        std::size_t name = equals;
        while (name > 0 && isWordChar(text[name - 1])) {
            --name;
        }
        if (name < from || name == equals || !isNameStart(text[name])) {
            continue;
        }
        const std::size_t value = equals + 1;
        const Verdict joined = wordCharBefore(text, name);
        const Verdict blank = value < text.size() ? blankAt(text, value) : Verdict::yes;
        if (joined == Verdict::yes || blank == Verdict::yes) {
            continue;
        }
        if (joined == Verdict::unknown || blank == Verdict::unknown) {
            return restOfText(text, name, true);
        }
        return window(text, name, valueEnd(text, value), true);
    }
    return std::nullopt;
}

bool isUpperOrDigit(char c) {
    return Ascii::isUpper(c) || Ascii::isDigit(c);
}
bool isWordOrDash(char c) {
    return isWordChar(c) || c == '-';
}
bool isAlnumOrDash(char c) {
    return Ascii::isAlnum(c) || c == '-';
}

struct KeyShape {
    std::size_t prefixLength;
    bool (*isBodyChar)(char);
    std::size_t minimumBody;
};

// The key-shape rule's alternatives; their prefixes differ early enough that at most one
// applies at any place.
std::optional<KeyShape> keyShapeAt(std::string_view rest) {
    static constexpr std::string_view githubKinds = "pousr";
    static constexpr std::string_view slackKinds = "abprs";
    if (rest.starts_with("sk-")) {
        return KeyShape{3, isWordOrDash, 6};
    }
    if (rest.starts_with("sk_live_") || rest.starts_with("sk_test_")) {
        return KeyShape{8, Ascii::isAlnum, 6};
    }
    if (rest.size() >= 4 && rest.starts_with("gh") && githubKinds.find(rest[2]) != npos &&
        rest[3] == '_') {
        return KeyShape{4, Ascii::isAlnum, 10};
    }
    if (rest.starts_with("github_pat_")) {
        return KeyShape{11, isWordChar, 10};
    }
    if (rest.size() >= 5 && rest.starts_with("xox") && slackKinds.find(rest[3]) != npos &&
        rest[4] == '-') {
        return KeyShape{5, isAlnumOrDash, 6};
    }
    if (rest.starts_with("AKIA")) {
        return KeyShape{4, isUpperOrDigit, 12};
    }
    if (rest.starts_with("AIza")) {
        return KeyShape{4, isWordOrDash, 20};
    }
    return std::nullopt;
}

// The key-shape rule: a known key prefix at a word start and a long enough body.
std::optional<Candidate> nextKeyShape(std::string_view text, std::size_t from) {
    for (std::size_t at = from; at < text.size(); ++at) {
        const char c = text[at];
        if (c != 's' && c != 'g' && c != 'x' && c != 'A') {
            continue;
        }
        const std::optional<KeyShape> shape = keyShapeAt(text.substr(at));
        if (!shape) {
            continue;
        }
        const std::size_t bodyBegin = at + shape->prefixLength;
        std::size_t end = bodyBegin;
        while (end < text.size() && shape->isBodyChar(text[end])) {
            ++end;
        }
        const Verdict joined = wordCharBefore(text, at);
        if (end - bodyBegin < shape->minimumBody || joined == Verdict::yes) {
            continue;
        }
        if (joined == Verdict::unknown) {
            return restOfText(text, at, true);
        }
        return window(text, at, end, true);
    }
    return std::nullopt;
}

bool isTokenChar(char c) {
    return Ascii::isAlnum(c) || c == '+' || c == '/' || c == '_' || c == '=' || c == '.' ||
           c == '-';
}

// A whole run of key-like characters of the minimum length or more.
std::optional<Candidate> nextToken(std::string_view text, std::size_t from) {
    std::size_t at = from;
    while (at < text.size()) {
        if (!isTokenChar(text[at])) {
            ++at;
            continue;
        }
        std::size_t end = at;
        while (end < text.size() && isTokenChar(text[end])) {
            ++end;
        }
        if (end - at >= minimumTokenLength) {
            return window(text, at, end, false);
        }
        at = end;
    }
    return std::nullopt;
}

Regex::Match shifted(Regex::Match match, std::size_t by) {
    match.whole.begin += by;
    match.whole.end += by;
    for (std::optional<Regex::Range>& group : match.groups) {
        if (group) {
            group->begin += by;
            group->end += by;
        }
    }
    return match;
}

// The leftmost match at or after the candidate's start. The window suffices
// when the match begins right at the start; anything else is asked again of
// the whole rest of the text, whose answer holds for every later place too.
std::optional<Regex::Match> matchAt(const Regex& regex, std::string_view text,
                                    const Candidate& candidate) {
    const std::size_t offset = candidate.start - candidate.contextBegin;
    std::optional<Regex::Match> match = regex.firstMatch(
        text.substr(candidate.contextBegin, candidate.windowEnd - candidate.contextBegin), offset);
    if (candidate.windowEnd < text.size() && !(match && match->whole.begin == offset)) {
        match = regex.firstMatch(text.substr(candidate.contextBegin), offset);
    }
    if (!match) {
        return std::nullopt;
    }
    return shifted(std::move(*match), candidate.contextBegin);
}

using NextCandidate = std::optional<Candidate> (*)(std::string_view, std::size_t);

// Every match of the pattern from the left, as replacing all of them over the
// whole text would find them, each handed to `replace` for its new text. The
// pattern is fetched (and so compiled) only once a candidate turns up: most
// texts give most rules none, and compiling costs more than redacting.
template <class GetRegex, class Replace>
std::string rewriting(std::string_view text, GetRegex regex, NextCandidate next, Replace replace) {
    std::string result;
    std::size_t copied = 0;
    std::size_t from = 0;
    bool changed = false;
    while (from <= text.size()) {
        const std::optional<Candidate> candidate = next(text, from);
        if (!candidate) {
            break;
        }
        const std::optional<Regex::Match> match = matchAt(regex(), text, *candidate);
        if (!match) {
            break;
        }
        result.append(text.substr(copied, match->whole.begin - copied));
        replace(result, text, *match);
        copied = match->whole.end;
        changed = true;
        // None of the patterns matches empty text; stepping on keeps this finite if one did.
        from = match->whole.end > match->whole.begin ? match->whole.end : match->whole.end + 1;
    }
    if (!changed) {
        return std::string(text);
    }
    result.append(text.substr(copied));
    return result;
}

NextCandidate ruleScanner(std::size_t index) {
    static constexpr std::array<NextCandidate, 5> scanners{
        nextAuthorization, nextBearer, nextSecretOption, nextAssignment, nextKeyShape};
    return scanners[index];
}

void replaceEvery(std::string& text, std::string_view target, std::string_view replacement) {
    if (target.empty() || text.find(target) == std::string::npos) {
        return;
    }
    std::string result;
    result.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t at = text.find(target); at != std::string::npos;
         at = text.find(target, copied)) {
        result.append(text, copied, at - copied);
        result.append(replacement);
        copied = at + target.size();
    }
    result.append(text, copied);
    text = std::move(result);
}

// A home of "/" would turn every "/" into "~/": no usable home, then.
std::string homeWithoutTrailingSlash(std::string_view home) {
    while (!home.empty() && home.back() == '/') {
        home.remove_suffix(1);
    }
    return std::string(home);
}

const std::string& userHome() {
    static const std::string home = homeWithoutTrailingSlash(PelmoraPaths::home().string());
    return home;
}

double entropyOf(const std::vector<std::size_t>& counts, std::size_t total) {
    double entropy = 0;
    for (std::size_t count : counts) {
        if (count > 0) {
            const double share = static_cast<double>(count) / static_cast<double>(total);
            entropy -= share * std::log2(share);
        }
    }
    return entropy;
}

// Tokens from the text are ASCII, where every byte is a character unless a
// carriage return and line feed pair up.
bool isPlainAscii(std::string_view token) {
    for (char c : token) {
        if (!isAscii(c) || c == '\r') {
            return false;
        }
    }
    return true;
}

bool looksSecretAscii(std::string_view token) {
    std::vector<std::size_t> counts(128, 0);
    bool digit = false;
    bool letter = false;
    for (char c : token) {
        ++counts[static_cast<unsigned char>(c)];
        digit = digit || Ascii::isDigit(c);
        letter = letter || Ascii::isAlpha(c);
    }
    return digit && letter && entropyOf(counts, token.size()) >= secretEntropy;
}

} // namespace

std::string applyRule(std::size_t index, std::string_view text) {
    if (index >= rules.size()) {
        return std::string(text);
    }
    const std::string_view replacement = rules[index].replacement;
    return rewriting(
        text, [index]() -> const Regex& { return ruleRegex(index); }, ruleScanner(index),
        [replacement](std::string& out, std::string_view subject, const Regex::Match& match) {
            Regex::appendExpansion(out, replacement, subject, match);
        });
}

std::string maskTokens(std::string_view text) {
    // The matches never overlap, so rewriting them from the left gives what
    // replacing them from the last to the first does.
    return rewriting(text, tokenRegex, nextToken,
                     [](std::string& out, std::string_view subject, const Regex::Match& match) {
                         const std::string_view token =
                             subject.substr(match.whole.begin, match.whole.end - match.whole.begin);
                         const bool isPath = token.find('/') != std::string_view::npos &&
                                             token.find('+') == std::string_view::npos;
                         if (!isPath && looksSecret(token)) {
                             out.append(mask);
                         } else {
                             out.append(token);
                         }
                     });
}

bool looksSecret(std::string_view token) {
    if (isPlainAscii(token)) {
        return looksSecretAscii(token);
    }
    std::unordered_map<std::string_view, std::size_t> indexOf;
    std::vector<std::size_t> counts;
    std::size_t total = 0;
    bool digit = false;
    bool letter = false;
    for (std::string_view character : Text::characters(token)) {
        ++total;
        const auto [entry, inserted] = indexOf.try_emplace(character, counts.size());
        if (inserted) {
            counts.push_back(0);
        }
        ++counts[entry->second];
        std::size_t offset = 0;
        const char32_t first = Text::decodeScalar(character, offset);
        digit = digit || Text::isNumber(first);
        letter = letter ||
                 (Text::isLetter(first) && (Text::isUppercase(first) || Text::isLowercase(first)));
    }
    return digit && letter && entropyOf(counts, total) >= secretEntropy;
}

std::string redact(std::string_view text, std::optional<std::string_view> projectDir) {
    return redact(text, projectDir, userHome());
}

std::string redact(std::string_view text, std::optional<std::string_view> projectDir,
                   std::string_view homeFolder) {
    std::string line(text);
    for (char& c : line) {
        if (c == '\n' || c == '\t') {
            c = ' ';
        }
    }
    line = std::string(Text::trimSpacesAndTabs(line));

    if (projectDir && !projectDir->empty() && *projectDir != "/") {
        std::string prefix(*projectDir);
        if (prefix.back() != '/') {
            prefix.push_back('/');
        }
        replaceEvery(line, prefix, "");
    }
    const std::string home = homeWithoutTrailingSlash(homeFolder);
    if (!home.empty()) {
        replaceEvery(line, home + "/", "~/");
    }

    for (std::size_t index = 0; index < rules.size(); ++index) {
        line = applyRule(index, line);
    }
    line = maskTokens(line);

    if (Text::prefixCharacters(line, maxLength).size() < line.size()) {
        line = std::string(Text::prefixCharacters(line, maxLength - 1)) + "…";
    }
    return line;
}

} // namespace pelmora::Redactor
