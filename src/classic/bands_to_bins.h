#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "classic/param_blobs.h"
#include "classic/pulse_spectrum.h"

namespace sonivo::classic {

/// Gives each bin of the key stage the value of its band, in the form of a spectrum's floats: twice, for re and for im.
class BandsToBins {
 public:
  explicit BandsToBins(const BandTable& table) : begin_(table.f[0]), end_(table.f[table.nbin]) {
    for (std::size_t b = 0; b < table.nbin; ++b) {
      std::fill(band_ + table.f[b], band_ + table.f[b + 1], static_cast<std::uint8_t>(b));
    }
  }

  /// per_float: kPulseFloats values; those of bins of no band become rest.
  void expand(const float* per_band, float rest, float* per_float) const {
    std::fill(per_float, per_float + 2 * begin_, rest);
    for (std::size_t bin = begin_; bin < end_; ++bin) {
      const float value = per_band[band_[bin]];
      per_float[2 * bin] = value;
      per_float[2 * bin + 1] = value;
    }
    std::fill(per_float + 2 * end_, per_float + kPulseFloats, rest);
  }

 private:
  std::size_t begin_, end_;
  std::uint8_t band_[kPulseBins] = {};
};

}  // namespace sonivo::classic
