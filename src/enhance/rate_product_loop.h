#pragma once

// The loop of RateProducts over vectors of any width. All of it stays inside the including source.

#include "classic/kernel_lanes.h"
#include "enhance/rate_products.h"

namespace sonivo {
namespace {

using Four = classic::Vector<4>;

SONIVO_INLINE Four to_four(Four v) { return v; }
SONIVO_INLINE Four to_four(classic::Vector<8> v) {
  return __builtin_shufflevector(v, v, 0, 1, 2, 3) + __builtin_shufflevector(v, v, 4, 5, 6, 7);
}

/// The sum of each of four vectors.
SONIVO_INLINE Four sums(Four a, Four b, Four c, Four d) {
  const Four ab = __builtin_shufflevector(a, b, 0, 4, 1, 5) + __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const Four cd = __builtin_shufflevector(c, d, 0, 4, 1, 5) + __builtin_shufflevector(c, d, 2, 6, 3, 7);
  return __builtin_shufflevector(ab, cd, 0, 1, 4, 5) + __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
}

/// Output sample i, in four parts that are still to be added.
template <std::size_t Lanes>
SONIVO_INLINE Four product(const RateKernel& kernel, const float* history, std::size_t i) {
  const float* const tap = kernel.row_of(i).tap;
  const float* const x = history + kernel.phase[i].start;
  classic::Vector<Lanes> even{}, odd{};
  for (std::size_t t = 0; t < RateKernel::kTaps; t += 2 * Lanes) {
    even += classic::load<Lanes>(tap + t) * classic::load<Lanes>(x + t);
    odd += classic::load<Lanes>(tap + t + Lanes) * classic::load<Lanes>(x + t + Lanes);
  }
  return to_four(even + odd);
}

/// Four samples at a time; the last four may overlap those before.
template <std::size_t Lanes>
void products(const RateKernel& kernel, const float* history, float* out) {
  const std::size_t last = kernel.out_frame - 4;
  for (std::size_t next = 0; next < kernel.out_frame; next += 4) {
    const std::size_t i = next < last ? next : last;
    const Four y = sums(product<Lanes>(kernel, history, i), product<Lanes>(kernel, history, i + 1),
                        product<Lanes>(kernel, history, i + 2), product<Lanes>(kernel, history, i + 3));
    classic::store<4>(out + i, y);
  }
}

}  // namespace
}  // namespace sonivo
