#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace sonivo::tool {

constexpr std::size_t kWindowFrames = 8192;  // that are compared at a time
constexpr double kEqualEnergy = 0.99;        // share of the highest energy that counts as equal to it
constexpr double kResemblance = 0.5;         // correlation below which two windows are strangers
constexpr double kEqualCorrelation = 1e-9;   // far above the rounding of the sums

/// Sum of a[i] * b[i] over as many elements as a has.
double product(std::span<const float> a, const float* b);

/// Element i is the energy of the first i samples.
std::vector<double> running_energy(std::span<const float> samples);

}  // namespace sonivo::tool
