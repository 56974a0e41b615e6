#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "feature_extractor/mel_banks.h"
#include "feature_extractor/options.h"
#include "feature_extractor/real_fft.h"

namespace sonivo {

/// Mel filter-bank values of a frame, and its energy: power or magnitude spectrum, weighted sums, logarithm.
class FbankExtractor {
 public:
  /// Throws std::runtime_error for sizes out of bounds.
  explicit FbankExtractor(const FeatureOptions& options);

  /// Samples of the frames it takes: frame length, or the next power of two.
  std::size_t padded_size() const { return fft_.points(); }

  /// `out`: num-mel-bins values, with use-energy the logarithm of the energy before them, with htk-compat behind them.
  /// `frame` has padded_size() samples and is used up. `raw_log_energy` counts with use-energy and raw-energy.
  /// Throws std::runtime_error at the first call where options of the mel bins contradict each other.
  void compute(std::vector<float>& out, std::vector<float>& frame, float raw_log_energy);

 private:
  const MelBanks& mel_banks();
  void spectrum(std::vector<float>& frame);

  const FeatureOptions options_;
  RealFft fft_;
  std::map<float, MelBanks> mel_banks_;  // by VTLN warp factor
  const float log_energy_floor_;
};

}  // namespace sonivo
