#include "session/ToolWord.h"

#include <array>

#include "support/Text.h"

namespace pelmora::ToolWord {

namespace {

struct Entry {
    std::string_view name;
    std::string_view word;
};

// Each agent spells the same few tools its own way; the notch only has room
// for one word. Names are lower-case and appear once each, so the order
// inside the table does not matter for lookups.
constexpr std::array<Entry, 53> table{{
    {"edit", "Edit"},
    {"multiedit", "Edit"},
    {"notebookedit", "Edit"},
    {"notebook_edit", "Edit"},
    {"apply_patch", "Edit"},
    {"applypatch", "Edit"},
    {"edit_file", "Edit"},
    {"strreplacefile", "Edit"},
    {"search_replace", "Edit"},
    {"replace", "Edit"},
    {"write", "Write"},
    {"write_file", "Write"},
    {"writefile", "Write"},
    {"create", "Write"},
    {"read", "Read"},
    {"read_file", "Read"},
    {"readfile", "Read"},
    {"view", "Read"},
    {"notebook_read", "Read"},
    {"bash", "Bash"},
    {"bashoutput", "Bash"},
    {"shell", "Bash"},
    {"exec", "Bash"},
    {"exec_command", "Bash"},
    {"local_shell", "Bash"},
    {"shell_command", "Bash"},
    {"run_shell_command", "Bash"},
    {"run_terminal_command", "Bash"},
    {"powershell", "Bash"},
    {"get_output", "Bash"},
    {"grep", "Search"},
    {"glob", "Search"},
    {"ls", "Search"},
    {"find", "Search"},
    {"list_directory", "Search"},
    {"list_dir", "Search"},
    {"grep_search", "Search"},
    // Listed with the search tools on purpose, not with the reads.
    {"readmediafile", "Search"},
    {"webfetch", "Web"},
    {"web_fetch", "Web"},
    {"websearch", "Web"},
    {"web_search", "Web"},
    {"fetchurl", "Web"},
    {"searchweb", "Web"},
    {"task", "Agent"},
    {"agent", "Agent"},
    {"run_subagent", "Agent"},
    {"spawn_agent", "Agent"},
    {"spawn_subagent", "Agent"},
    {"subagent", "Agent"},
    {"todowrite", "Plan"},
    {"todo_write", "Plan"},
    {"settodolist", "Plan"},
}};

constexpr std::size_t fallbackLength = 10;

} // namespace

std::optional<std::string> shortWord(std::optional<std::string_view> name) {
    if (!name) {
        return std::nullopt;
    }
    if (name->empty()) {
        return std::string();
    }
    // MCP tools are "mcp__<server>__<tool>"; the prefix is matched as the
    // agents write it, so "MCP__x" is just an unknown tool.
    if (name->starts_with("mcp__")) {
        return std::string("MCP");
    }
    const std::string lowered = Text::lowercased(*name);
    for (const Entry& entry : table) {
        if (lowered == entry.name) {
            return std::string(entry.word);
        }
    }
    return std::string(Text::prefixCharacters(*name, fallbackLength));
}

} // namespace pelmora::ToolWord
