#pragma once

#include <cstddef>
#include <iosfwd>
#include <vector>

#include "feature_extractor/options.h"

namespace sonivo {

/// Triangles over the bins of a spectrum. Their corners are spaced evenly on the mel scale m(f) = 1127 ln(1 + f / 700)
/// from low-freq to high-freq and warped there (feature_extractor/vtln_warp.h); each triangle rises from its left
/// neighbour's centre to its own and falls to its right neighbour's.
class MelBanks {
 public:
  /// The largest num-mel-bins.
  static constexpr int kMaxBins = 65536;

  /// For a transform of `padded_size` points. Throws std::runtime_error for options that contradict each other.
  MelBanks(const FeatureOptions& options, std::size_t padded_size, float vtln_warp);

  struct Bank {
    std::size_t first = 0;       ///< bin of the first weight
    std::vector<float> weights;  ///< none where no bin lies in the triangle
  };
  const std::vector<Bank>& banks() const { return banks_; }

  /// out[b] = sum over k of weights[k] * spectrum[first + k], one value per bank.
  void compute(const float* spectrum, float* out) const;

  /// A line for each bank: its number, the bin of its first weight, its weights.
  void print(std::ostream& out) const;

 private:
  std::vector<Bank> banks_;
};

}  // namespace sonivo
