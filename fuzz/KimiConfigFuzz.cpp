// Any text as Kimi's config.toml: removing the managed block never fails;
// where hooks are not defined inline, installing twice gives what once gives,
// and removing the block gives the user's text back with at most one line
// feed at its end.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "integration/HookInstaller.h"

namespace {

namespace HookInstaller = pelmora::HookInstaller;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::string endingInOneLineFeed(std::string text) {
    while (text.ends_with("\n\n")) {
        text.pop_back();
    }
    if (!text.empty() && !text.ends_with('\n')) {
        text += '\n';
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::string once = HookInstaller::kimiRemovingBlock(text);
    check(once.size() <= text.size());
    const std::string user = HookInstaller::kimiRemovingBlocks(text);
    if (HookInstaller::kimiDefinesInlineHooks(user)) {
        return 0;
    }
    // A command with quotes, backslashes and a line feed, as a hook path may have.
    const std::vector<std::string> events = {"SessionStart", "Stop"};
    const std::string command =
        HookInstaller::command(pelmora::Source::kimi, "/A \"b\\\n/pelmora-hook");
    const std::string installed = HookInstaller::kimiInstalling(text, events, command);
    check(!HookInstaller::kimiDefinesInlineHooks(installed));
    check(HookInstaller::kimiInstalling(installed, events, command) == installed);
    check(HookInstaller::kimiRemovingBlocks(installed) == endingInOneLineFeed(user));
    return 0;
}
