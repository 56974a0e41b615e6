#pragma once

#include <span>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Multiplies each bin of a spectrum by the gain of its band; bins outside of all bands become 0.
/// Returns the sum of |re| + |im| over all bins afterwards. gain: table.nbin values.
float apply_band_gain(const BandTable& table, std::span<const float> gain, std::span<ComplexFloat, kBins> spectrum);

}  // namespace sonivo::classic
