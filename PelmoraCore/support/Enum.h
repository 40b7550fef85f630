#pragma once

#include <optional>
#include <string_view>

namespace pelmora {

// Enumerations whose raw values are their file and wire spellings provide
// `std::string_view rawValue(E)` next to the enum and specialise this.
template <class E> std::optional<E> fromRaw(std::string_view raw);

} // namespace pelmora
