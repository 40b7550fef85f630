#include "hook/AgentDetection.h"

#include <system_error>

#include "hook/Agents.h"

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
    const Agents::Row& row = Agents::row(source);
    if (row.configDirectory.empty()) {
        return std::nullopt;
    }
    return home / row.configDirectory;
}

std::vector<Source> detected(const std::filesystem::path& home) {
    std::vector<Source> found;
    for (const Agents::Row& row : Agents::rows()) {
        if (row.configDirectory.empty()) {
            continue;
        }
        if (present(home / row.configDirectory) ||
            (!row.alternativeConfigDirectory.empty() &&
             present(home / row.alternativeConfigDirectory))) {
            found.push_back(row.source);
        }
    }
    return found;
}

} // namespace pelmora::AgentDetection
