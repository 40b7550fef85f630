#include "session/ToolWord.h"

#include <gtest/gtest.h>
#include <string>

using namespace pelmora;

// One spelling per agent family and word; the full list of names lives in
// the table itself.
TEST(ToolWord, MapsAgentsToolNamesInAnyCaseAndCutsOthersToTenCharacters) {
    // clang-format off
    const std::pair<std::string_view, std::string_view> words[] = {
        {"MultiEdit", "Edit"}, {"apply_patch", "Edit"}, {"write_file", "Write"}, {"VIEW", "Read"},
        {"Bash", "Bash"}, {"run_shell_command", "Bash"}, {"exec_command", "Bash"},
        {"Grep", "Search"}, {"ReadMediaFile", "Search"}, {"WebFetch", "Web"}, {"Task", "Agent"},
        {"TodoWrite", "Plan"}, {"mcp__github__create_issue", "MCP"},
        // Exact, whole names only; the MCP prefix is case-sensitive; ten
        // characters, not ten bytes.
        {"MCP__x", "MCP__x"}, {"bash2", "bash2"}, {" bash", " bash"}, {"", ""},
        {"Mcp__github__create", "Mcp__githu"}, {"Übersetzen_alles", "Übersetzen"}};
    // clang-format on
    for (const auto& [name, word] : words) {
        EXPECT_EQ(ToolWord::shortWord(name), word) << name;
    }
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    std::string families;
    for (int i = 0; i < 12; ++i) {
        families += family;
    }
    EXPECT_EQ(ToolWord::shortWord(families), families.substr(0, 10 * family.size()));
    EXPECT_EQ(ToolWord::shortWord(std::nullopt), std::nullopt);
}
