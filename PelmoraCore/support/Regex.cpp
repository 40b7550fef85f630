#include "support/Regex.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <pcre2.h>

#include "support/Ascii.h"
#include "support/Integers.h"
#include "support/Scanner.h"
#include "support/Text.h"

namespace pelmora {

namespace {

// Bounds on one search. The match limit stops catastrophic backtracking within
// a fraction of a second; the depth and heap limits cap the interpreter's
// memory. The JIT stack is reserved up front but only touched as a search
// backtracks; at its maximum, a repeated group still matches across a
// megabyte subject.
constexpr std::uint32_t matchLimit = 10'000'000;
constexpr std::uint32_t depthLimit = 1'000'000;
constexpr std::uint32_t heapLimitKiB = 64 * 1024;
constexpr std::size_t jitStackStart = 32 * 1024;
constexpr std::size_t jitStackMax = 16 * 1024 * 1024;

// JIT compilation costs far more than the interpreter spends on a short
// subject, and the hook matches a handful of one-line texts once per process.
// A pattern is JIT-compiled only when it meets a long subject, or once it has
// proved to be in steady use, so short-lived processes never pay for it.
constexpr std::size_t jitSubjectSize = 4096;
constexpr std::uint32_t jitAfterSearches = 256;

// ICU reads patterns and subjects as Unicode: \w \d \s \b by Unicode
// properties, and a subject that is not valid UTF-8 is still searched.
constexpr std::uint32_t compileOptions = PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;

// A JIT stack may serve one search at a time, and a pattern is shared by
// every thread that reaches its static, so each thread gets its own stack.
pcre2_jit_stack* threadJitStack(void*) {
    struct Holder {
        pcre2_jit_stack* stack = nullptr;
        ~Holder() { pcre2_jit_stack_free(stack); }
    };
    thread_local Holder holder;
    if (holder.stack == nullptr) {
        // On failure PCRE2 falls back to its small default stack.
        holder.stack = pcre2_jit_stack_create(jitStackStart, jitStackMax, nullptr);
    }
    return holder.stack;
}

PCRE2_SPTR subjectPointer(std::string_view subject) {
    // PCRE2 wants a pointer even for an empty subject.
    static constexpr char empty[] = "";
    return reinterpret_cast<PCRE2_SPTR>(subject.data() != nullptr ? subject.data() : empty);
}

// The compiled code and the settings every search runs with; Regex::Compiled
// is this, under the name the header reserves. The JIT-compiled copy is made
// at most once and published whole, so a search in another thread sees
// either no JIT code or finished JIT code, never code being compiled.
struct CompiledPattern {
    pcre2_code* code = nullptr;
    pcre2_match_context* context = nullptr;
    std::uint32_t groupCount = 0;
    std::atomic<pcre2_code*> jitCode{nullptr};
    std::atomic<std::uint32_t> searches{0};
    std::once_flag jitOnce;

    CompiledPattern() = default;
    CompiledPattern(const CompiledPattern&) = delete;
    CompiledPattern& operator=(const CompiledPattern&) = delete;
    ~CompiledPattern() {
        pcre2_match_context_free(context);
        pcre2_code_free(jitCode.load());
        pcre2_code_free(code);
    }

    // The code to search `subject` with: the JIT copy when there is one or
    // when this search makes it worth making, else the interpreted code.
    const pcre2_code* codeFor(std::string_view subject) {
        if (pcre2_code* compiledJit = jitCode.load(std::memory_order_acquire)) {
            return compiledJit;
        }
        if (subject.size() >= jitSubjectSize ||
            searches.fetch_add(1, std::memory_order_relaxed) + 1 >= jitAfterSearches) {
            std::call_once(jitOnce, [this] {
                pcre2_code* copy = pcre2_code_copy(code);
                if (copy != nullptr && pcre2_jit_compile(copy, PCRE2_JIT_COMPLETE) == 0) {
                    jitCode.store(copy, std::memory_order_release);
                } else {
                    pcre2_code_free(copy); // no JIT here: the interpreter serves
                }
            });
            if (pcre2_code* compiledJit = jitCode.load(std::memory_order_acquire)) {
                return compiledJit;
            }
        }
        return code;
    }
};

} // namespace

struct Regex::Compiled : CompiledPattern {};

namespace {

// Match data for one search. JIT searches keep no state in it, so a per-thread
// block is reused and hot loops do not allocate; interpreter searches keep
// their backtracking frames in it, so theirs is released after every call.
// The per-thread block stays valid because no search calls out to code that
// could start another one while it is in use.
class MatchData {
public:
    MatchData(std::uint32_t pairs, bool reusable) {
        if (reusable) {
            data_ = threadData(pairs);
        } else {
            owned_ = pcre2_match_data_create(pairs, nullptr);
            data_ = owned_;
        }
    }
    MatchData(const MatchData&) = delete;
    MatchData& operator=(const MatchData&) = delete;
    ~MatchData() { pcre2_match_data_free(owned_); }

    pcre2_match_data* get() const { return data_; }

private:
    static pcre2_match_data* threadData(std::uint32_t pairs) {
        struct Cache {
            pcre2_match_data* data = nullptr;
            std::uint32_t pairs = 0;
            ~Cache() { pcre2_match_data_free(data); }
        };
        thread_local Cache cache;
        if (cache.data == nullptr || cache.pairs < pairs) {
            pcre2_match_data_free(cache.data);
            cache.data = pcre2_match_data_create(pairs, nullptr);
            cache.pairs = cache.data != nullptr ? pairs : 0;
        }
        return cache.data;
    }

    pcre2_match_data* data_ = nullptr;
    pcre2_match_data* owned_ = nullptr;
};

// One bounded search from `start`. Any failure, a limit hit included, reads as
// "no match": the callers then stop and leave the rest of the subject alone.
bool search(const CompiledPattern& compiled, const pcre2_code* code, const MatchData& data,
            std::string_view subject, std::size_t start, const PCRE2_SIZE*& ovector) {
    if (data.get() == nullptr || start > subject.size()) {
        return false;
    }
    const int result = pcre2_match(code, subjectPointer(subject), subject.size(), start, 0,
                                   data.get(), compiled.context);
    if (result <= 0) {
        return false;
    }
    ovector = pcre2_get_ovector_pointer(data.get());
    // Only \K (which ICU lacks) could move a match outside these bounds.
    return start <= ovector[0] && ovector[0] <= ovector[1] && ovector[1] <= subject.size();
}

Regex::Match makeMatch(const PCRE2_SIZE* ovector, std::uint32_t groupCount) {
    Regex::Match match;
    match.whole = {ovector[0], ovector[1]};
    match.groups.reserve(groupCount);
    for (std::uint32_t group = 1; group <= groupCount; ++group) {
        const PCRE2_SIZE begin = ovector[2 * group];
        const PCRE2_SIZE end = ovector[2 * group + 1];
        if (begin == PCRE2_UNSET || end == PCRE2_UNSET || begin > end) {
            match.groups.emplace_back(std::nullopt);
        } else {
            match.groups.emplace_back(Regex::Range{begin, end});
        }
    }
    return match;
}

// Where the next search starts after a match, as ICU's find() does it: right
// at the end of a non-empty match (an empty match may sit there), one scalar
// further after an empty one. std::nullopt once the subject is used up.
std::optional<std::size_t> nextStart(std::string_view subject, const PCRE2_SIZE* ovector) {
    const std::size_t end = ovector[1];
    if (ovector[0] != end) {
        return end;
    }
    if (end >= subject.size()) {
        return std::nullopt;
    }
    std::size_t after = end;
    Text::decodeScalar(subject, after);
    return after;
}

// Applies every match from the left, handing each to `visit`.
template <class Visit>
void forEachMatch(CompiledPattern& compiled, std::string_view subject, Visit visit) {
    const pcre2_code* code = compiled.codeFor(subject);
    const MatchData data(compiled.groupCount + 1, code != compiled.code);
    const PCRE2_SIZE* ovector = nullptr;
    std::optional<std::size_t> start = 0;
    while (start && search(compiled, code, data, subject, *start, ovector)) {
        visit(ovector);
        start = nextStart(subject, ovector);
    }
}

std::string_view groupText(std::string_view subject, const PCRE2_SIZE* ovector, std::size_t group) {
    const PCRE2_SIZE begin = ovector[2 * group];
    const PCRE2_SIZE end = ovector[2 * group + 1];
    if (begin == PCRE2_UNSET || end == PCRE2_UNSET || begin > end) {
        return {};
    }
    return subject.substr(begin, end - begin);
}

// The template rule of Regex::appendExpansion, for both forms of a match.
template <class GroupText>
void appendExpanded(std::string& out, std::string_view replacementTemplate, std::size_t groupCount,
                    GroupText groupText) {
    std::size_t maxDigits = 1;
    for (std::size_t bound = 10; bound <= groupCount; bound *= 10) {
        ++maxDigits;
    }
    Scanner in(replacementTemplate);
    while (!in.atEnd()) {
        out.append(in.takeWhile([](char c) { return c != '\\' && c != '$'; }));
        if (in.atEnd()) {
            break;
        }
        if (in.consume('\\')) {
            out.push_back(in.atEnd() ? '\\' : in.consume());
            continue;
        }
        in.consume(); // the "$"
        const std::string_view digits =
            Scanner(in.rest().substr(0, maxDigits)).takeWhile(Ascii::isDigit);
        if (digits.empty()) {
            out.push_back('$');
            continue;
        }
        in.skip(digits.size());
        const std::size_t group = *parseInteger<std::size_t>(digits);
        if (group <= groupCount) {
            out.append(groupText(group));
        }
    }
}

bool compileInto(CompiledPattern& compiled, std::string_view pattern) {
    pcre2_compile_context* compileContext = pcre2_compile_context_create(nullptr);
    if (compileContext != nullptr) {
        // As in ICU, every Unicode line terminator ends a line for "$", "^"
        // (multi-line) and ".".
        pcre2_set_newline(compileContext, PCRE2_NEWLINE_ANY);
    }
    int errorCode = 0;
    PCRE2_SIZE errorOffset = 0;
    compiled.code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                  compileOptions, &errorCode, &errorOffset, compileContext);
    pcre2_compile_context_free(compileContext);
    compiled.context = pcre2_match_context_create(nullptr);
    if (compiled.code == nullptr || compiled.context == nullptr) {
        return false;
    }
    pcre2_pattern_info(compiled.code, PCRE2_INFO_CAPTURECOUNT, &compiled.groupCount);
    pcre2_set_match_limit(compiled.context, matchLimit);
    pcre2_set_depth_limit(compiled.context, depthLimit);
    pcre2_set_heap_limit(compiled.context, heapLimitKiB);
    // Only JIT searches call for the stack; the interpreter ignores it.
    pcre2_jit_stack_assign(compiled.context, threadJitStack, nullptr);
    return true;
}

} // namespace

Regex::Regex(std::string_view pattern) : compiled_(std::make_unique<Compiled>()) {
    if (!compileInto(*compiled_, pattern)) {
        std::fprintf(stderr, "pelmora: regular expression does not compile: %.*s\n",
                     static_cast<int>(pattern.size()), pattern.data());
        std::abort();
    }
}

Regex::Regex(std::unique_ptr<Compiled> compiled) : compiled_(std::move(compiled)) {}

std::unique_ptr<const Regex> Regex::tryCompile(std::string_view pattern) {
    auto compiled = std::make_unique<Compiled>();
    if (!compileInto(*compiled, pattern)) {
        return nullptr;
    }
    return std::unique_ptr<const Regex>(new Regex(std::move(compiled)));
}

Regex::~Regex() = default;

bool Regex::matches(std::string_view subject) const {
    const pcre2_code* code = compiled_->codeFor(subject);
    const MatchData data(compiled_->groupCount + 1, code != compiled_->code);
    const PCRE2_SIZE* ovector = nullptr;
    return search(*compiled_, code, data, subject, 0, ovector);
}

std::optional<Regex::Match> Regex::firstMatch(std::string_view subject, std::size_t start) const {
    const pcre2_code* code = compiled_->codeFor(subject);
    const MatchData data(compiled_->groupCount + 1, code != compiled_->code);
    const PCRE2_SIZE* ovector = nullptr;
    if (!search(*compiled_, code, data, subject, start, ovector)) {
        return std::nullopt;
    }
    return makeMatch(ovector, compiled_->groupCount);
}

std::vector<Regex::Match> Regex::allMatches(std::string_view subject) const {
    std::vector<Match> result;
    forEachMatch(*compiled_, subject, [&](const PCRE2_SIZE* ovector) {
        result.push_back(makeMatch(ovector, compiled_->groupCount));
    });
    return result;
}

void Regex::appendExpansion(std::string& out, std::string_view replacementTemplate,
                            std::string_view subject, const Match& match) {
    appendExpanded(out, replacementTemplate, match.groups.size(), [&](std::size_t group) {
        const std::optional<Range> range =
            group == 0 ? std::optional<Range>(match.whole) : match.groups[group - 1];
        return range ? subject.substr(range->begin, range->end - range->begin) : std::string_view();
    });
}

std::string Regex::replaceAll(std::string_view subject,
                              std::string_view replacementTemplate) const {
    std::string result;
    std::size_t copied = 0;
    forEachMatch(*compiled_, subject, [&](const PCRE2_SIZE* ovector) {
        result.append(subject.substr(copied, ovector[0] - copied));
        appendExpanded(result, replacementTemplate, compiled_->groupCount,
                       [&](std::size_t group) { return groupText(subject, ovector, group); });
        copied = ovector[1];
    });
    result.append(subject.substr(copied));
    return result;
}

} // namespace pelmora
