#include "hook/Agents.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <string>

namespace pelmora {
namespace {

TEST(Source, TableOfCases) {
    struct Row {
        const char* raw;
        const char* displayName;
        const char* mark;
        bool agent, approvals, questions, preToolUse;
    };
    // clang-format off
    const Row rows[] = {
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
    // clang-format on
    ASSERT_EQ(std::size(rows), allSources.size());
    std::vector<Source> agents;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        const Source source = allSources[i];
        SCOPED_TRACE(row.raw);
        EXPECT_EQ(rawValue(source), row.raw);
        EXPECT_EQ(fromRaw<Source>(row.raw), source);
        EXPECT_EQ(displayName(source), row.displayName);
        EXPECT_EQ(mark(source), row.mark);
        EXPECT_EQ(isAgent(source), row.agent);
        EXPECT_EQ(supportsApprovals(source), row.approvals);
        EXPECT_EQ(supportsQuestions(source), row.questions);
        EXPECT_EQ(asksOnPreToolUse(source), row.preToolUse);
        if (row.agent) {
            agents.push_back(source);
        }
    }
    EXPECT_TRUE(std::equal(agents.begin(), agents.end(), agentSources.begin(), agentSources.end()));
    using namespace std::string_view_literals;
    for (std::string_view near : {"Claude"sv, "claude "sv, ""sv, "claude\0"sv}) {
        EXPECT_FALSE(fromRaw<Source>(near)) << near;
    }
}

// What paths, detection, the installers and the hook each take from a row
// must be there, and agree with the rest of the row.
TEST(Agents, EveryAgentRowIsCompleteAndConsistent) {
    std::set<std::string_view> fileNames;
    for (const Agents::Row& row : Agents::rows()) {
        SCOPED_TRACE(std::string(row.raw));
        EXPECT_EQ(&Agents::row(row.source), &row);
        EXPECT_EQ(!row.configDirectory.empty(), row.isAgent);
        EXPECT_EQ(!row.configFile.empty() && !row.hookEvents.empty(), row.isAgent);
        EXPECT_EQ(row.detectionVariable.empty(), row.detection == Agents::Detection::none);
        if (row.isAgent) {
            EXPECT_TRUE(fileNames.insert(row.configFileName).second) << row.configFileName;
        }
        for (std::string_view blocking : row.blockingEvents) {
            EXPECT_NE(std::find(row.hookEvents.begin(), row.hookEvents.end(), blocking),
                      row.hookEvents.end())
                << blocking;
        }
        // The hook waits for the user on these; with the short timeout the
        // agent would kill it first.
        EXPECT_EQ(!row.blockingEvents.empty(), row.supportsApprovals || row.asksOnPreToolUse);
        if (row.asksOnPreToolUse) {
            EXPECT_EQ(row.blockingEvents[0], "PreToolUse");
        }
    }
    EXPECT_EQ(fileNames.size(), agentSources.size());
}

} // namespace
} // namespace pelmora
