#pragma once

#include <algorithm>

namespace sonivo::e2e {

// Samples between 16-bit scale, as sources give them, and full scale 1.0, as networks take and give them.

/// y = 2 ((x + 32768) / 65536) - 1, in -1 to 1.
inline float full_scale(float x) {
  const float product = (x + 32768.0f) * 1.5258789e-5f;
  return static_cast<float>(std::clamp(2.0 * static_cast<double>(product) - 1.0, -1.0, 1.0));
}

/// 32768 x for x in -1 to 1, nearer end beyond. 1 becomes 32768, which 16 bits don't hold: who stores it, wraps it.
inline float sixteen_bit_scale(float x) {
  const double y = std::clamp(x, -1.0f, 1.0f);
  return static_cast<float>((y * 32768.0 - y * -32768.0 + 32768.0 - 32768.0) * 0.5);
}

}  // namespace sonivo::e2e
