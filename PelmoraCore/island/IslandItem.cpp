#include "island/IslandItem.h"

#include <iterator>

namespace pelmora {
namespace {

constexpr std::string_view displayNames[] = {"awaiting",   "failed", "working",
                                             "compacting", "stale",  "done"};

} // namespace

std::string_view rawValue(DisplayState state) {
    return displayNames[static_cast<std::size_t>(state)];
}

template <> std::optional<DisplayState> fromRaw<DisplayState>(std::string_view raw) {
    for (std::size_t i = 0; i < std::size(displayNames); ++i) {
        if (displayNames[i] == raw) {
            return static_cast<DisplayState>(i);
        }
    }
    return std::nullopt;
}

} // namespace pelmora
