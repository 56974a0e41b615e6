#pragma once

#include <algorithm>
#include <cstdint>

namespace sonivo {

/// A sample of full scale 1.0 in 16 bits: clamped, then cut towards 0. What is no number becomes 0.
inline std::int16_t to_pcm16(float sample) {
  const float scaled = std::clamp(sample * 32768.0f, -32768.0f, 32767.0f);
  return scaled == scaled ? static_cast<std::int16_t>(scaled) : std::int16_t{0};
}

/// A sample that a model gives in 16-bit scale, cut towards 0. One step above full scale wraps to the lowest number;
/// what no model gives, numbers that 32 bits don't hold and those that are none, becomes 0.
inline std::int16_t wrap_to_pcm16(float sample) {
  constexpr float kBound = 0x1p31f;
  return sample >= -kBound && sample < kBound ? static_cast<std::int16_t>(static_cast<std::int32_t>(sample))
                                              : std::int16_t{0};
}

}  // namespace sonivo
