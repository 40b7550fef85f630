#include "hook/Source.h"

#include "hook/Agents.h"

namespace pelmora {

std::string_view rawValue(Source source) {
    return Agents::row(source).raw;
}

template <> std::optional<Source> fromRaw<Source>(std::string_view raw) {
    for (const Agents::Row& row : Agents::rows()) {
        if (row.raw == raw) {
            return row.source;
        }
    }
    return std::nullopt;
}

std::string_view displayName(Source source) {
    return Agents::row(source).displayName;
}
std::string_view mark(Source source) {
    return Agents::row(source).mark;
}
bool isAgent(Source source) {
    return Agents::row(source).isAgent;
}
bool supportsApprovals(Source source) {
    return Agents::row(source).supportsApprovals;
}
bool supportsQuestions(Source source) {
    return Agents::row(source).supportsQuestions;
}
bool asksOnPreToolUse(Source source) {
    return Agents::row(source).asksOnPreToolUse;
}

} // namespace pelmora
