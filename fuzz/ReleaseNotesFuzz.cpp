// Any bytes as release-note HTML: the text comes back without blank lines
// in a row or blanks at line ends, and without blank lines at either end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "github/ReleaseNotes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view html(reinterpret_cast<const char*>(data), size);
    const std::string text = pelmora::ReleaseNotes::plainText(html);
    if (text.find("\n\n\n") != std::string::npos || text.find(" \n") != std::string::npos ||
        text.starts_with('\n') || text.ends_with('\n') || text.ends_with(' ')) {
        std::abort();
    }
    return 0;
}
