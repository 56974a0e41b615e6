#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "meridane/matrix.h"

// Maps inside a frame: channels and one to three axes of positions. They are flattened as matrices here are, first axis
// fastest: the channels of a position are neighbours, then come the positions along the first axis.

namespace meridane {

// More than any map has, and little enough that a frame of it is no danger to memory.
inline constexpr std::int64_t kMostMapValues = std::int64_t{1} << 24;

/// The product of sizes, or -1 where one isn't positive or the product isn't below kMostMapValues.
template <class Sizes>
std::int64_t map_values(const Sizes& sizes) {
  std::int64_t product = 1;
  for (const auto size : sizes) {
    if (size < 1 || static_cast<std::uint64_t>(size) >= static_cast<std::uint64_t>(kMostMapValues)) return -1;
    product *= static_cast<std::int64_t>(size);
    if (product >= kMostMapValues) return -1;
  }
  return product;
}

}  // namespace meridane
