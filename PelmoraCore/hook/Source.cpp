#include "hook/Source.h"

namespace pelmora {
namespace {

struct SourceTraits {
    std::string_view raw;
    std::string_view displayName;
    std::string_view mark;
    bool isAgent;
    bool supportsApprovals;
    bool supportsQuestions;
    bool asksOnPreToolUse;
};

// In declaration order, indexed by the enumeration's value.
constexpr SourceTraits traits[] = {
    {"claude", "Claude Code", "CC", true, true, true, false},
    {"codex", "Codex", "CX", true, true, false, false},
    {"grok", "Grok Build", "GK", true, false, true, true},
    {"commandcode", "Command Code", "CM", true, false, false, false},
    {"devin", "Devin", "DV", true, true, false, false},
    {"qwen", "Qwen Code", "QW", true, true, false, false},
    {"copilot", "GitHub Copilot", "CP", true, true, false, false},
    {"pi", "pi", "PI", true, false, false, false},
    {"kimi", "Kimi Code", "KM", true, false, false, false},
    {"build", "Build & Test", "RUN", false, false, false, false},
    {"service", "Local Services", "SVC", false, false, false, false},
    {"git", "Git & CI", "GIT", false, false, false, false},
    {"update", "Updates", "UPD", false, false, false, false},
};
static_assert(std::size(traits) == allSources.size());

const SourceTraits& of(Source source) {
    return traits[static_cast<std::size_t>(source)];
}

} // namespace

std::string_view rawValue(Source source) {
    return of(source).raw;
}

template <> std::optional<Source> fromRaw<Source>(std::string_view raw) {
    for (Source source : allSources) {
        if (of(source).raw == raw) {
            return source;
        }
    }
    return std::nullopt;
}

std::string_view displayName(Source source) {
    return of(source).displayName;
}
std::string_view mark(Source source) {
    return of(source).mark;
}
bool isAgent(Source source) {
    return of(source).isAgent;
}
bool supportsApprovals(Source source) {
    return of(source).supportsApprovals;
}
bool supportsQuestions(Source source) {
    return of(source).supportsQuestions;
}
bool asksOnPreToolUse(Source source) {
    return of(source).asksOnPreToolUse;
}

} // namespace pelmora
