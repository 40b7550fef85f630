#pragma once

#include <map>
#include <optional>
#include <string>

namespace pelmora {

// Where a session's agent runs, so the app can bring the right terminal forward.
struct HostInfo {
    std::optional<std::string> termProgram;
    std::optional<std::string> termSessionID;
    std::optional<std::string> itermSessionID;
    bool tmux = false;
    std::optional<std::string> tty;
    std::optional<std::string> bundleID;

    bool operator==(const HostInfo&) const = default;

    using Environment = std::map<std::string, std::string, std::less<>>;
    // This process's environment as it is now.
    static Environment processEnvironment();
    static HostInfo fromEnvironment(const Environment& env, std::optional<std::string> tty);
};

} // namespace pelmora
