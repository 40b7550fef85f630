#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pelmora::TaskTitle {

// A short session title from the first meaningful line of a prompt, or none
// for prompts that carry no meaning ("ok", "继续", a bare slash command).
std::optional<std::string> make(std::optional<std::string_view> prompt,
                                std::optional<std::string_view> source,
                                std::optional<std::string_view> projectDir);

} // namespace pelmora::TaskTitle
