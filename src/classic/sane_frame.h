#pragma once

#include <array>
#include <cmath>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Far beyond anything that is audio, and low enough that no level overflows.
inline constexpr float kLoudest = 1e15f;

/// Whether a frame holds nothing but numbers. One that doesn't would stay in the recursive levels for ever: as input it
/// is left out, and a stage that makes such a frame has overflown and starts anew.
inline bool is_sane(const std::array<float, kHop>& frame) {
  int sane = 0;
  for (float sample : frame) sane += std::abs(sample) <= kLoudest ? 1 : 0;
  return sane == kHop;
}

}  // namespace sonivo::classic
