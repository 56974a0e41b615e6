#pragma once

#include <cstddef>

namespace sonivo {

/// Share of the way to its target that a gain goes with each frame.
inline constexpr float kFadeRate = 0.001f;

/// Blends wet towards or away from dry, frame by frame: sel += 0.001 (target - sel), wet = wet sel + dry (1 - sel).
inline void crossfade(float* wet, const float* dry, std::size_t frames, std::size_t channels, float target,
                      float& sel) {
  for (std::size_t f = 0; f < frames; ++f) {
    sel += kFadeRate * (target - sel);
    for (std::size_t c = 0; c < channels; ++c) {
      const std::size_t i = f * channels + c;
      wet[i] = wet[i] * sel + dry[i] * (1.0f - sel);
    }
  }
}

/// Scales with a gain that nears its target frame by frame: gain += 0.001 (target - gain), sample = sample gain.
inline void gain_ramp(float* samples, std::size_t frames, std::size_t channels, float target, float& gain) {
  for (std::size_t f = 0; f < frames; ++f) {
    gain += kFadeRate * (target - gain);
    for (std::size_t c = 0; c < channels; ++c) samples[f * channels + c] *= gain;
  }
}

}  // namespace sonivo
