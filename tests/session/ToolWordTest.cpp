#include "session/ToolWord.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace pelmora;

TEST(ToolWord, MapsEveryAgentsToolNamesInAnyCase) {
    const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> groups{
        {"Edit",
         {"edit", "multiedit", "notebookedit", "notebook_edit", "apply_patch", "applypatch",
          "edit_file", "strreplacefile", "search_replace", "replace", "MultiEdit", "NotebookEdit"}},
        {"Write", {"write", "write_file", "writefile", "create"}},
        {"Read", {"read", "read_file", "readfile", "view", "notebook_read"}},
        {"Bash",
         {"bash", "bashoutput", "shell", "exec", "exec_command", "local_shell", "shell_command",
          "run_shell_command", "run_terminal_command", "powershell", "get_output", "Bash", "BASH"}},
        {"Search",
         {"grep", "glob", "ls", "find", "list_directory", "list_dir", "grep_search",
          "readmediafile", "ReadMediaFile"}},
        {"Web",
         {"webfetch", "web_fetch", "websearch", "web_search", "fetchurl", "searchweb", "WebFetch"}},
        {"Agent", {"task", "agent", "run_subagent", "spawn_agent", "spawn_subagent", "subagent"}},
        {"Plan", {"todowrite", "todo_write", "settodolist", "TodoWrite"}},
        // The MCP prefix is case-sensitive.
        {"MCP", {"mcp__github__create_issue", "mcp__x"}},
    };
    for (const auto& [expected, names] : groups) {
        for (std::string_view name : names) {
            EXPECT_EQ(ToolWord::shortWord(name), expected) << name;
        }
    }
}

TEST(ToolWord, OtherNamesKeepTheirFirstTenCharacters) {
    // Exact, whole names only; ten characters, not ten bytes.
    for (std::string_view whole : {"MCP__x", "TenLetters", "bash2", " bash", ""}) {
        EXPECT_EQ(ToolWord::shortWord(whole), whole);
    }
    EXPECT_EQ(ToolWord::shortWord("Mcp__github__create"), "Mcp__githu");
    EXPECT_EQ(ToolWord::shortWord("SuperLongToolName"), "SuperLongT");
    EXPECT_EQ(ToolWord::shortWord("Übersetzen_alles"), "Übersetzen");
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    std::string families;
    for (int i = 0; i < 12; ++i) {
        families += family;
    }
    EXPECT_EQ(ToolWord::shortWord(families), families.substr(0, 10 * family.size()));
    EXPECT_EQ(ToolWord::shortWord(std::nullopt), std::nullopt);
}
