#include "hook/Source.h"

#include <gtest/gtest.h>
#include <string>

namespace pelmora {
namespace {

TEST(Source, TableOfCases) {
    struct Row {
        Source source;
        const char* raw;
        const char* displayName;
        const char* mark;
        bool agent, approvals, questions, preToolUse;
    };
    const Row rows[] = {
        {Source::claude, "claude", "Claude Code", "CC", true, true, true, false},
        {Source::codex, "codex", "Codex", "CX", true, true, false, false},
        {Source::grok, "grok", "Grok Build", "GK", true, false, true, true},
        {Source::commandcode, "commandcode", "Command Code", "CM", true, false, false, false},
        {Source::devin, "devin", "Devin", "DV", true, true, false, false},
        {Source::qwen, "qwen", "Qwen Code", "QW", true, true, false, false},
        {Source::copilot, "copilot", "GitHub Copilot", "CP", true, true, false, false},
        {Source::pi, "pi", "pi", "PI", true, false, false, false},
        {Source::kimi, "kimi", "Kimi Code", "KM", true, false, false, false},
        {Source::build, "build", "Build & Test", "RUN", false, false, false, false},
        {Source::service, "service", "Local Services", "SVC", false, false, false, false},
        {Source::git, "git", "Git & CI", "GIT", false, false, false, false},
        {Source::update, "update", "Updates", "UPD", false, false, false, false},
    };
    ASSERT_EQ(std::size(rows), allSources.size());
    std::size_t agents = 0;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(row.raw);
        EXPECT_EQ(allSources[i], row.source);
        EXPECT_EQ(rawValue(row.source), row.raw);
        EXPECT_EQ(fromRaw<Source>(row.raw), row.source);
        EXPECT_EQ(displayName(row.source), row.displayName);
        EXPECT_EQ(mark(row.source), row.mark);
        EXPECT_EQ(isAgent(row.source), row.agent);
        EXPECT_EQ(supportsApprovals(row.source), row.approvals);
        EXPECT_EQ(supportsQuestions(row.source), row.questions);
        EXPECT_EQ(asksOnPreToolUse(row.source), row.preToolUse);
        if (row.agent) {
            ASSERT_LT(agents, agentSources.size());
            EXPECT_EQ(agentSources[agents++], row.source);
        }
    }
    EXPECT_EQ(agents, agentSources.size());
    // Raw values match exactly or not at all.
    using namespace std::string_view_literals;
    for (std::string_view near : {"Claude"sv, "claude "sv, ""sv, "claude\0"sv}) {
        EXPECT_FALSE(fromRaw<Source>(near)) << near;
    }
}

} // namespace
} // namespace pelmora
