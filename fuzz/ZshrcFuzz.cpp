// Any text as a .zshrc: removing the block never fails; appending the block
// to a file without it and removing it again gives the file back, with a
// final line feed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "integration/ShellIntegration.h"

namespace {

namespace ShellIntegration = pelmora::ShellIntegration;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    check(ShellIntegration::removing(text).size() <= text.size());
    if (text.find(ShellIntegration::beginMarker) != std::string_view::npos) {
        return 0;
    }
    const std::string installed = ShellIntegration::installing(text, "/It's/pelmora.zsh");
    check(installed.find(ShellIntegration::beginMarker) != std::string::npos);
    check(ShellIntegration::installing(installed, "/It's/pelmora.zsh") == installed);
    std::string expected(text);
    if (!expected.empty() && !expected.ends_with('\n')) {
        expected += '\n';
    }
    check(ShellIntegration::removing(installed) == expected);
    return 0;
}
