#pragma once

#include <cstdint>

#include "platform/endpoints.h"

namespace sonivo {

/// Trim of the virtual stream's clock that leads the ring's minimum v back between low and high: -1 slower, 0 nominal,
/// 1 faster. The virtual microphone empties its ring, the virtual speaker fills it.
constexpr std::int32_t feedback_value(DataFlow flow, std::uint32_t v, std::uint32_t low, std::uint32_t high) {
  const std::int32_t fullness = v < low ? -1 : v <= high ? 0 : 1;
  return flow == DataFlow::capture ? fullness : -fullness;
}

}  // namespace sonivo
