#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// |re| + |im| of each bin: the L1 magnitude is used throughout, never a squared power.
class Magnitudes {
 public:
  explicit Magnitudes(std::span<const ComplexFloat> spectrum);  ///< kBins bins at most

  /// From that bin on; kBeyond more places behind the bins may be read, they are 0.
  const float* from(std::size_t bin) const { return &values_[bin]; }

 private:
  static constexpr std::size_t kBeyond = 7;

  std::array<float, kBins + kBeyond> values_;
};

/// Mean magnitude of each band, level[b] = (1e-10 + sum of the magnitudes of its bins) * inv_width[b]. Bins below f[0]
/// count for no band. level: table.nbin values; bins: f[nbin] or more.
void band_level(const BandTable& table, const Magnitudes& magnitudes, std::span<float> level);
void band_level(const BandTable& table, std::span<const ComplexFloat> spectrum, std::span<float> level);

}  // namespace sonivo::classic
