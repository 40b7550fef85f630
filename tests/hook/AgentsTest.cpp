#include "hook/Agents.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include "hook/HookInvocation.h"

namespace pelmora {
namespace {

TEST(Source, RawValuesAreExactAndAgentsComeFirst) {
    const char* raws[] = {"claude", "codex", "grok",  "commandcode", "devin", "qwen",  "copilot",
                          "pi",     "kimi",  "build", "service",     "git",   "update"};
    ASSERT_EQ(std::size(raws), allSources.size());
    for (std::size_t i = 0; i < allSources.size(); ++i) {
        EXPECT_EQ(rawValue(allSources[i]), raws[i]);
        EXPECT_EQ(fromRaw<Source>(raws[i]), allSources[i]);
        EXPECT_EQ(isAgent(allSources[i]), i < agentSources.size());
    }
    EXPECT_TRUE(std::equal(agentSources.begin(), agentSources.end(), allSources.begin()));
    for (std::string_view near : {"Claude", "claude ", ""}) {
        EXPECT_FALSE(fromRaw<Source>(near)) << near;
    }
}

// What paths, detection, the installers and the hook each take from a row
// must be there, and agree with the rest of the row.
TEST(Agents, EveryAgentRowIsCompleteAndConsistent) {
    std::set<std::string_view> fileNames;
    for (const Agents::Row& row : Agents::rows()) {
        SCOPED_TRACE(std::string(row.raw));
        EXPECT_EQ(!row.configDirectory.empty() && !row.configFile.empty() &&
                      !row.hookEvents.empty(),
                  row.isAgent);
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

TEST(HookInvocation, ArgumentsThenAgentVariablesChooseTheRun) {
    using enum HookInvocation::Mode;
    using enum Source;
    constexpr std::int32_t up = 777; // the real parent
    struct Case {
        std::vector<const char*> arguments;
        std::set<std::string, std::less<>> setVariables;
        HookInvocation expected;
    };
    // clang-format off
    const Case cases[] = {
        {{}, {}, {hook, claude, up}},
        // The last valid source wins; a flag always takes its value.
        {{"--source", "codex", "--source", "nonsense", "--source"}, {}, {hook, codex, up}},
        {{"--bogus", "--source", "codex", "--source", "qwen", "extra"}, {}, {hook, qwen, up}},
        {{"--source", "--ppid", "42"}, {}, {hook, claude, up}},
        {{"--source", "Claude", "--ppid", "+42"}, {}, {hook, claude, 42}},
        {{"--ppid", "1"}, {}, {hook, claude, up}},
        {{"--ppid", "2147483648"}, {}, {hook, claude, up}},
        // Grok and Command Code override "--source"; Devin and Qwen only fill in.
        {{"--source", "codex"}, {"GROK_HOOK_EVENT"}, {hook, grok, up}},
        {{}, {"COMMANDCODE_HOOK_EVENT", "GROK_HOOK_EVENT"}, {hook, grok, up}},
        {{"--source", "kimi"}, {"COMMANDCODE_HOOK_EVENT", "DEVIN_PROJECT_DIR"}, {hook, commandcode, up}},
        {{"--source", "claude"}, {"QWEN_PROJECT_DIR", "DEVIN_PROJECT_DIR"}, {hook, devin, up}},
        {{}, {"QWEN_PROJECT_DIR", "CURSOR_PROJECT_DIR"}, {hook, qwen, up}},
        {{}, {"CURSOR_PROJECT_DIR"}, {notOurs, claude, up}},
        {{"--source", "kimi"}, {"CURSOR_PROJECT_DIR"}, {hook, kimi, up}},
        // Anywhere, even where a flag's value would be, and before the rest.
        {{"--source", "--statusline"}, {"CURSOR_PROJECT_DIR"}, {statusLine, claude, up}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE("case " + std::to_string(&c - cases));
        auto isSet = [&](std::string_view name) { return c.setVariables.contains(name); };
        EXPECT_EQ(HookInvocation::read(c.arguments, up, isSet), c.expected);
    }
}

} // namespace
} // namespace pelmora
