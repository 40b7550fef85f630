#include "session/ToolWord.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace pelmora;

namespace {

std::optional<std::string> word(std::string_view name) {
    return ToolWord::shortWord(name);
}

} // namespace

TEST(ToolWord, MapsEveryAgentsToolNames) {
    const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> groups{
        {"Edit",
         {"edit", "multiedit", "notebookedit", "notebook_edit", "apply_patch", "applypatch",
          "edit_file", "strreplacefile", "search_replace", "replace"}},
        {"Write", {"write", "write_file", "writefile", "create"}},
        {"Read", {"read", "read_file", "readfile", "view", "notebook_read"}},
        {"Bash",
         {"bash", "bashoutput", "shell", "exec", "exec_command", "local_shell", "shell_command",
          "run_shell_command", "run_terminal_command", "powershell", "get_output"}},
        {"Search",
         {"grep", "glob", "ls", "find", "list_directory", "list_dir", "grep_search",
          "readmediafile"}},
        {"Web", {"webfetch", "web_fetch", "websearch", "web_search", "fetchurl", "searchweb"}},
        {"Agent", {"task", "agent", "run_subagent", "spawn_agent", "spawn_subagent", "subagent"}},
        {"Plan", {"todowrite", "todo_write", "settodolist"}},
    };
    for (const auto& [expected, names] : groups) {
        for (std::string_view name : names) {
            EXPECT_EQ(word(name), expected) << name;
        }
    }
    // Any case is accepted, as the agents spell them.
    EXPECT_EQ(word("Bash"), "Bash");
    EXPECT_EQ(word("BASH"), "Bash");
    EXPECT_EQ(word("MultiEdit"), "Edit");
    EXPECT_EQ(word("NotebookEdit"), "Edit");
    EXPECT_EQ(word("TodoWrite"), "Plan");
    EXPECT_EQ(word("WebFetch"), "Web");
    EXPECT_EQ(word("ReadMediaFile"), "Search");
}

TEST(ToolWord, FallsBackToMCPOrTheNamesStart) {
    EXPECT_EQ(word("mcp__github__create_issue"), "MCP");
    EXPECT_EQ(word("mcp__x"), "MCP");
    // The prefix is case-sensitive; these are unknown names.
    EXPECT_EQ(word("MCP__x"), "MCP__x");
    EXPECT_EQ(word("Mcp__github__create"), "Mcp__githu");

    EXPECT_EQ(word("SuperLongToolName"), "SuperLongT");
    EXPECT_EQ(word("TenLetters"), "TenLetters");
    EXPECT_EQ(word("Custom"), "Custom");
    // Exact, whole names only.
    EXPECT_EQ(word("bash2"), "bash2");
    EXPECT_EQ(word(" bash"), " bash");
    // Ten characters, not ten bytes: accents and emoji stay whole.
    EXPECT_EQ(word("Übersetzen_alles"), "Übersetzen");
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    std::string twelveFamilies;
    for (int i = 0; i < 12; ++i) {
        twelveFamilies += family;
    }
    EXPECT_EQ(word(twelveFamilies), twelveFamilies.substr(0, 10 * family.size()));

    EXPECT_EQ(ToolWord::shortWord(std::nullopt), std::nullopt);
    EXPECT_EQ(word(""), "");
}
