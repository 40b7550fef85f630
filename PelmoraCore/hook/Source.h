#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "support/Enum.h"

namespace pelmora {

// The owner of a session: one of the nine coding agents, or one of four
// kinds of developer activity. Raw values are the file and wire spellings.
enum class Source {
    claude,
    codex,
    grok,
    commandcode,
    devin,
    qwen,
    copilot,
    pi,
    kimi,
    build,
    service,
    git,
    update,
};

inline constexpr std::array<Source, 13> allSources{
    Source::claude,  Source::codex,   Source::grok,   Source::commandcode, Source::devin,
    Source::qwen,    Source::copilot, Source::pi,     Source::kimi,        Source::build,
    Source::service, Source::git,     Source::update,
};
// The nine agents, in declaration order.
inline constexpr std::array<Source, 9> agentSources{
    Source::claude, Source::codex,   Source::grok, Source::commandcode, Source::devin,
    Source::qwen,   Source::copilot, Source::pi,   Source::kimi,
};

std::string_view rawValue(Source source);
template <> std::optional<Source> fromRaw<Source>(std::string_view raw);

std::string_view displayName(Source source);
std::string_view mark(Source source);
bool isAgent(Source source);
bool supportsApprovals(Source source);
bool supportsQuestions(Source source);
bool asksOnPreToolUse(Source source);

} // namespace pelmora
