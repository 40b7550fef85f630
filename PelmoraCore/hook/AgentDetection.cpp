#include "hook/AgentDetection.h"

#include <system_error>

namespace pelmora::AgentDetection {
namespace {

// Any kind of entry counts, a dangling symbolic link included: its presence
// says the agent was set up here, whatever became of its target.
bool present(const std::filesystem::path& entry) {
    std::error_code error;
    auto status = std::filesystem::symlink_status(entry, error);
    return std::filesystem::status_known(status) &&
           status.type() != std::filesystem::file_type::not_found;
}

} // namespace

std::optional<std::filesystem::path> configDirectory(Source source,
                                                     const std::filesystem::path& home) {
    switch (source) {
    case Source::claude:
        return home / ".claude";
    case Source::codex:
        return home / ".codex";
    case Source::grok:
        return home / ".grok";
    case Source::commandcode:
        return home / ".commandcode";
    case Source::devin:
        return home / ".config/devin";
    case Source::qwen:
        return home / ".qwen";
    case Source::copilot:
        return home / ".copilot";
    case Source::pi:
        return home / ".pi";
    case Source::kimi:
        return home / ".kimi";
    case Source::build:
    case Source::service:
    case Source::git:
    case Source::update:
        return std::nullopt;
    }
    return std::nullopt;
}

std::vector<Source> detected(const std::filesystem::path& home) {
    std::vector<Source> found;
    for (Source agent : agentSources) {
        auto directory = configDirectory(agent, home);
        bool isPresent = directory && present(*directory);
        // Kimi Code's newer installs keep their folder under another name.
        if (!isPresent && agent == Source::kimi) {
            isPresent = present(home / ".kimi-code");
        }
        if (isPresent) {
            found.push_back(agent);
        }
    }
    return found;
}

} // namespace pelmora::AgentDetection
