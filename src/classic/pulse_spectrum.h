#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "classic/param_blobs.h"

namespace sonivo::classic {

using PulseSpectrum = std::array<ComplexFloat, kPulseBins>;

inline constexpr std::size_t kPulseFloats = std::size_t{2} * kPulseBins;
static_assert(sizeof(PulseSpectrum) == kPulseFloats * sizeof(float));

/// A spectrum as the stream of its floats, re and im in turn.
inline std::span<float, kPulseFloats> floats(PulseSpectrum& spectrum) {
  return std::span<float, kPulseFloats>(reinterpret_cast<float*>(spectrum.data()), kPulseFloats);
}
inline std::span<const float, kPulseFloats> floats(const PulseSpectrum& spectrum) {
  return std::span<const float, kPulseFloats>(reinterpret_cast<const float*>(spectrum.data()), kPulseFloats);
}

}  // namespace sonivo::classic
