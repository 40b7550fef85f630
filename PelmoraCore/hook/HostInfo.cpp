#include "hook/HostInfo.h"

#include <string_view>

extern char** environ;

namespace pelmora {
namespace {

std::optional<std::string> lookup(const HostInfo::Environment& env, std::string_view name) {
    auto found = env.find(name);
    if (found == env.end()) {
        return std::nullopt;
    }
    return found->second;
}

} // namespace

HostInfo::Environment HostInfo::processEnvironment() {
    Environment env;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        std::string_view text = *entry;
        std::size_t equals = text.find('=');
        if (equals != std::string_view::npos) {
            env.emplace(std::string(text.substr(0, equals)), std::string(text.substr(equals + 1)));
        }
    }
    return env;
}

HostInfo HostInfo::fromEnvironment(const Environment& env, std::optional<std::string> tty) {
    HostInfo host;
    host.termProgram = lookup(env, "TERM_PROGRAM");
    host.termSessionID = lookup(env, "TERM_SESSION_ID");
    host.itermSessionID = lookup(env, "ITERM_SESSION_ID");
    host.tmux = env.find(std::string_view("TMUX")) != env.end();
    host.tty = std::move(tty);
    host.bundleID = lookup(env, "__CFBundleIdentifier");
    return host;
}

} // namespace pelmora
