#pragma once

#include <span>
#include <vector>

namespace sonivo::tool {

/// Sum of a[i] * b[i] over as many elements as a has.
double product(std::span<const float> a, const float* b);

/// Element i is the energy of the first i samples.
std::vector<double> running_energy(std::span<const float> samples);

}  // namespace sonivo::tool
