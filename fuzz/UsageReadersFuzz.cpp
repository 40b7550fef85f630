// Feeds the same bytes to every usage reader: each must return quietly,
// whatever the agents' files and endpoints hand it.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "usage/ClaudeOAuthUsage.h"
#include "usage/ClaudeUsage.h"
#include "usage/CodexUsage.h"
#include "usage/GrokUsage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pelmora;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    constexpr double now = 1'795'341'600;

    if (auto recorded = ClaudeUsage::record(bytes, now))
        ClaudeUsage::windows(*recorded);
    ClaudeUsage::windows(bytes);
    ClaudeOAuthUsage::token(bytes, now);
    ClaudeOAuthUsage::windows(bytes);
    CodexUsage::windows(bytes);
    CodexUsage::latest(bytes);
    GrokUsage::token(bytes, now);
    GrokUsage::window(bytes);
    return 0;
}
