#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace sonivo {

/// ln(max(x, 1.1920929e-7)): the logarithm of a level, that of silence included.
inline float floored_log(float x) { return std::log(std::max(x, std::numeric_limits<float>::epsilon())); }

}  // namespace sonivo
