#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pelmora::ToolWord {

// The notch's word for a tool name: "Edit", "Bash", "MCP", ... or the
// name's first ten characters when it is in no group. (`short` is a keyword.)
std::optional<std::string> shortWord(std::optional<std::string_view> name);

} // namespace pelmora::ToolWord
