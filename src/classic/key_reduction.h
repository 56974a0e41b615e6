#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "classic/analysis.h"
#include "classic/bands_to_bins.h"
#include "classic/diff_power.h"
#include "classic/noise_level_tracker.h"
#include "classic/param_blobs.h"
#include "classic/pulse_noise.h"
#include "classic/pulse_spectrum.h"
#include "classic/pulse_suppressor.h"
#include "classic/recursive_level.h"
#include "classic/spectrum_delay.h"
#include "classic/synthesis.h"

namespace sonivo::classic {

/// What the detection saw in the latest frame: per group of pulse bands, the sub-blocks above min_npm_det and the peak
/// of the group's product.
struct DetectionStatistics {
  int groups;
  int count[kNpmGroups];
  float peak[kNpmGroups];
};

/// Removes key strokes from one signal, or from two beams with the detection on the first: three sub-blocks of 64
/// samples per frame, delayed by one sub-block and by pulse_sup_delay. Beams is 1 or 2.
template <std::size_t Beams>
class KeyReduction {
 public:
  explicit KeyReduction(const PulsePath& param);  // param outlives this object

  void reset();
  /// in, out: kHop samples per beam; may be the same. voice: the flag of the noise stage as it stands.
  void process(const std::array<std::span<const float>, Beams>& in, bool voice,
               const std::array<std::span<float>, Beams>& out);
  const DetectionStatistics& statistics() const { return statistics_; }
  void clear_statistics();  ///< for a frame that passes by
  /// Samples: one sub-block, and the floats of the delay line, two a sample.
  static std::size_t latency(const PulsePath& param) {
    return kPulseHop + static_cast<std::size_t>(param.pulse_sup_delay.delay) / 2;
  }

 private:
  static_assert(Beams == 1 || Beams == 2);
  using Spectra = std::array<PulseSpectrum, Beams>;

  void sub_block(const std::array<std::span<const float>, Beams>& in, bool voice,
                 const std::array<std::span<float>, Beams>& out);
  void analyse(const std::array<std::span<const float>, Beams>& in);
  void count_detections();
  void delay_and_gain(Spectra& D);
  void fill(Spectra& D);
  void synthesise(const Spectra& D, const std::array<std::span<float>, Beams>& out);

  const PulsePath& param_;
  Analysis analysis_;
  RecursiveLevel level_;
  NoiseLevelTracker noise_level_;
  DiffPower diff_power_;
  PulseSuppressor suppressor_;
  BandsToBins bins_;
  std::array<SpectrumDelay, Beams> delay_;
  SpectrumDelay add_delay_;
  PulseNoise noise_;
  Synthesis synthesis_;

  Spectra input_;                         ///< bins outside of those handed on stay 0
  std::array<float, kPulseFloats> gain_;  ///< of each float of a spectrum; 0 in bins of no band
  DetectionStatistics statistics_;
};

extern template class KeyReduction<1>;
extern template class KeyReduction<2>;

}  // namespace sonivo::classic
