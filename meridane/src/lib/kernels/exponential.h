#pragma once

// The exponential function of vectors, for the sources that hold kernels.
//   exp(x) = 2^n exp(r), n = the integer nearest to x / ln 2, r = x - n ln 2, |r| <= ln 2 / 2
// r is taken off in two parts as Cody and Waite do: the first part of ln 2 has so few bits (355 / 512) that n times it
// is exact. exp(r) is the Taylor polynomial of degree 7, which leaves out less than 0.1 ulp.

#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

inline constexpr float kInfinity = __builtin_inff();

/// 0 where the result is below the normal numbers.
template <std::size_t L>
MERIDANE_INLINE Vector<float, L> exponential(Vector<float, L> x) {
  using V = Vector<float, L>;
  using Bits = Vector<std::uint32_t, L>;
  constexpr float kLeast = -0x1.5d589ep+6f, kMost = 0x1.62e42ep+6f;  // -126 ln 2, 128 ln 2 towards 0
  constexpr float kLog2e = 0x1.715476p+0f;                           // 1 / ln 2
  constexpr float kLn2High = 0x1.63p-1f, kLn2Low = -0x1.bd0106p-13f;
  constexpr float kToInteger = 0x1.8p+23f;  // the sum has no bits behind the point, and n in its lowest
  const V sum = x * kLog2e + kToInteger;
  const V n = sum - kToInteger;
  const V r = (x - n * kLn2High) - n * kLn2Low;
  V p = r * (1.0f / 5040) + 1.0f / 720;
  p = p * r + 1.0f / 120;
  p = p * r + 1.0f / 24;
  p = p * r + 1.0f / 6;
  p = p * r + 0.5f;
  p = p * r + 1.0f;
  p = p * r + 1.0f;
  V y = reinterpret_cast<V>(reinterpret_cast<Bits>(p) + (reinterpret_cast<Bits>(sum) << 23));
  y = x < kLeast ? V{} : y;
  return x <= kMost ? y : x + kInfinity;
}

}  // namespace
}  // namespace meridane
