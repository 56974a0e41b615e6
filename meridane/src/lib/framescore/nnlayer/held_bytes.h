#pragma once

#include <cstdint>

namespace meridane {

/// Memory of the numbers of matrices and arrays.
template <class... Containers>
std::uint64_t held_bytes(const Containers&... containers) {
  return (... + (static_cast<std::uint64_t>(containers.size()) * sizeof(*containers.data())));
}

}  // namespace meridane
