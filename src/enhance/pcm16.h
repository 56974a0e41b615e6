#pragma once

#include <algorithm>
#include <cstdint>

namespace sonivo {

/// A sample of full scale 1.0 in 16 bits: clamped, then cut towards 0. What is no number becomes 0.
inline std::int16_t to_pcm16(float sample) {
  const float scaled = std::clamp(sample * 32768.0f, -32768.0f, 32767.0f);
  return scaled == scaled ? static_cast<std::int16_t>(scaled) : std::int16_t{0};
}

}  // namespace sonivo
