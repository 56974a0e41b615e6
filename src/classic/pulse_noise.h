#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "classic/analysis.h"
#include "classic/bands_to_bins.h"
#include "classic/noise_generator.h"
#include "classic/param_blobs.h"
#include "classic/pulse_spectrum.h"

namespace sonivo::classic {

/// Noise that fills what the suppressor cut: white, shaped per pulse band j of prm band p by
///
///   max(min_nl[j], max(0, target_gn[p] - g[j]) * Nl[j] * eq[p]) / 1000
///
/// so that it is strongest where the gain g is lowest, tops up to a target gain and never falls below a floor level.
class PulseNoise {
 public:
  explicit PulseNoise(const PulsePath& param);  // param outlives this object

  void reset();
  /// One sub-block. g: gain per pulse band; Nl: noise level per pulse band.
  void process(std::span<const float> g, std::span<const float> Nl);
  const PulseSpectrum& spectrum() const { return Q_; }  ///< 0 in the first init_wait sub-blocks

 private:
  void generate(std::span<float> samples);

  const NgenBlock& param_;
  const std::size_t begin_, end_;  ///< pulse bands of all prm bands
  float target_gn_[kMaxBands];     ///< per pulse band, as is eq_
  float eq_[kMaxBands];
  BandsToBins bins_;
  std::array<std::array<float, 4>, 16> samples_of_bits_;  ///< four samples each
  Analysis analysis_;
  NoiseGenerator generator_;
  PulseSpectrum Q_;
  std::uint16_t frames_;  ///< so far, up to init_wait
};

}  // namespace sonivo::classic
