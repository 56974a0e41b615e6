#include "apps/tool/correlation.h"

#include <array>
#include <cstddef>

namespace sonivo::tool {

/// Four partial sums, so that an addition need not wait for the one before.
double product(std::span<const float> a, const float* b) {
  std::array<double, 4> sums{};
  std::size_t i = 0;
  for (; i + sums.size() <= a.size(); i += sums.size()) {
    for (std::size_t k = 0; k < sums.size(); ++k) sums[k] += double{a[i + k]} * double{b[i + k]};
  }
  for (; i < a.size(); ++i) sums[0] += double{a[i]} * double{b[i]};
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

std::vector<double> running_energy(std::span<const float> samples) {
  std::vector<double> sums(samples.size() + 1);
  for (std::size_t i = 0; i < samples.size(); ++i) sums[i + 1] = sums[i] + double{samples[i]} * double{samples[i]};
  return sums;
}

}  // namespace sonivo::tool
