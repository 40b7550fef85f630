#include "hook/HookInvocation.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace pelmora {
namespace {

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
        {{"--source", "codex", "--source", "qwen"}, {}, {hook, qwen, up}},
        {{"--bogus", "--source", "pi", "extra"}, {}, {hook, pi, up}},
        {{"--source", "--ppid", "42"}, {}, {hook, claude, up}},
        {{"--source", "Claude", "--ppid", "+42"}, {}, {hook, claude, 42}},
        {{"--ppid", "2"}, {}, {hook, claude, 2}},
        {{"--ppid", "2147483647"}, {}, {hook, claude, 2147483647}},
        {{"--ppid", "1"}, {}, {hook, claude, up}},
        {{"--ppid", "0"}, {}, {hook, claude, up}},
        {{"--ppid", "-42"}, {}, {hook, claude, up}},
        {{"--ppid", "12abc"}, {}, {hook, claude, up}},
        {{"--ppid", " 42"}, {}, {hook, claude, up}},
        {{"--ppid", "2147483648"}, {}, {hook, claude, up}},
        // Grok and Command Code override "--source"; Devin and Qwen only fill in.
        {{"--source", "codex"}, {"GROK_HOOK_EVENT"}, {hook, grok, up}},
        {{}, {"COMMANDCODE_HOOK_EVENT", "GROK_HOOK_EVENT"}, {hook, grok, up}},
        {{"--source", "kimi"}, {"COMMANDCODE_HOOK_EVENT", "DEVIN_PROJECT_DIR"}, {hook, commandcode, up}},
        {{"--source", "codex"}, {"DEVIN_PROJECT_DIR"}, {hook, codex, up}},
        {{"--source", "claude"}, {"QWEN_PROJECT_DIR", "DEVIN_PROJECT_DIR"}, {hook, devin, up}},
        {{}, {"QWEN_PROJECT_DIR", "CURSOR_PROJECT_DIR"}, {hook, qwen, up}},
        {{}, {"CURSOR_PROJECT_DIR"}, {notOurs, claude, up}},
        {{"--source", "kimi"}, {"CURSOR_PROJECT_DIR"}, {hook, kimi, up}},
        // Anywhere, even where a flag's value would be, and before the rest.
        {{"--source", "--statusline"}, {"CURSOR_PROJECT_DIR"}, {statusLine, claude, up}},
    };
    // clang-format on
    for (const Case& c : cases) {
        std::string trace;
        for (std::string_view word : c.arguments) {
            trace.append(word).append(" ");
        }
        SCOPED_TRACE(trace + "| " + (c.setVariables.empty() ? "" : *c.setVariables.begin()));
        auto isSet = [&](std::string_view name) { return c.setVariables.contains(name); };
        EXPECT_EQ(HookInvocation::read(c.arguments, up, isSet), c.expected);
    }
}

} // namespace
} // namespace pelmora
