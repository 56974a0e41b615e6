#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "classic/four_floats.h"
#include "classic/param_blocks.h"

namespace sonivo::classic {

/// One value per fine band of the noise stage; places behind the fine bands mean nothing.
using FineBands = std::array<float, kMaxBands>;
static_assert(kMaxBands % 4 == 0, "fine bands are handled in fours");

/// Signal and noise level of each fine band, as one beam shows them.
struct BeamLevels {
  std::span<const float, kMaxBands> signal;
  std::span<const float, kMaxBands> noise;
};

/// Coarse band p covers the fine bands bounds[p] to bounds[p + 1] - 1.
using CoarseBounds = std::span<const std::uint16_t>;

/// The value of its coarse band for each fine band, 0 for fine bands outside of all coarse bands.
inline FineBands by_fine_band(CoarseBounds bounds, const float* coarse) {
  FineBands fine{};
  for (std::size_t p = 0; p + 1 < bounds.size(); ++p) {
    for (std::size_t k = bounds[p]; k < bounds[p + 1]; ++k) fine[k] = coarse[p];
  }
  return fine;
}

/// Sum of the weights of all fine bands whose gain is above threshold.
inline float weight_above(const FineBands& gain, float threshold, const FineBands& weight) {
  FourFloats weights{};
  for (std::size_t k = 0; k < kMaxBands; k += 4) {
    weights += load_four(&gain[k]) > threshold ? load_four(&weight[k]) : FourFloats{};
  }
  return sum(weights);
}

/// A parameter that takes one value in speech and another in noise.
struct VoicePair {
  FineBands voice, noise;
};

/// How much of the signal is speech, 0..1: blends the two values of a parameter.
class VoiceMix {
 public:
  explicit VoiceMix(float voice) : voice_(voice), noise_(1.0f - voice) {}

  float operator()(float for_voice, float for_noise) const { return noise_ * for_noise + voice_ * for_voice; }
  float operator()(const VoicePair& pair, std::size_t k) const { return (*this)(pair.voice[k], pair.noise[k]); }

 private:
  float voice_, noise_;
};

}  // namespace sonivo::classic
