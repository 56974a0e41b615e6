#pragma once

#include <cstddef>
#include <vector>

#include "feature_extractor/options.h"

namespace sonivo {

/// The analysis window of N >= 2 samples, with a = 2 pi / (N - 1):
/// hanning      0.5 - 0.5 cos(a i)
/// sine         sin(0.5 a i)
/// hamming      0.54 - 0.46 cos(a i)
/// povey        (0.5 - 0.5 cos(a i))^0.85
/// rectangular  1
/// blackman     b - 0.5 cos(a i) + (0.5 - b) cos(2 a i), b = blackman-coeff
/// Throws std::runtime_error for any other window-type, and so for `rectangle`, which the variable of that name admits.
std::vector<float> analysis_window(const FeatureOptions& options, std::size_t length);

}  // namespace sonivo
