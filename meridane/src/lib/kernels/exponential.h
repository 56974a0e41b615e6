#pragma once

// The exponential function of vectors, for the sources that hold kernels.
//   exp(x) = 2^n exp(r), n = the integer nearest to x / ln 2, r = x - n ln 2, |r| <= ln 2 / 2
// r is taken off in two parts as Cody and Waite do: the first part of ln 2 has so few bits (355 / 512) that n times it
// is exact. exp(r) is the Taylor polynomial of degree 7, which leaves out less than 0.1 ulp.

#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

inline constexpr float kInfinity = __builtin_inff();

template <std::size_t L>
struct ReducedExponent {
  Vector<float, L> n, r;
  Vector<std::uint32_t, L> n_in_exponent;  // n where the exponent of a float is, to be added

  static MERIDANE_INLINE ReducedExponent of(Vector<float, L> x) {
    constexpr float kLog2e = 0x1.715476p+0f;  // 1 / ln 2
    constexpr float kLn2High = 0x1.63p-1f, kLn2Low = -0x1.bd0106p-13f;
    constexpr float kToInteger = 0x1.8p+23f;  // the sum has no bits behind the point, and n in its lowest
    const Vector<float, L> sum = x * kLog2e + kToInteger;
    const Vector<float, L> n = sum - kToInteger;
    const Vector<float, L> r = (x - n * kLn2High) - n * kLn2Low;
    return {n, r, reinterpret_cast<Vector<std::uint32_t, L>>(sum) << 23};
  }

  // (exp(r) - 1 - r) / r^2
  MERIDANE_INLINE Vector<float, L> rest() const {
    Vector<float, L> p = r * (1.0f / 5040) + 1.0f / 720;
    p = p * r + 1.0f / 120;
    p = p * r + 1.0f / 24;
    p = p * r + 1.0f / 6;
    return p * r + 0.5f;
  }
};

/// 0 where the result is below the normal numbers.
template <std::size_t L>
MERIDANE_INLINE Vector<float, L> exponential(Vector<float, L> x) {
  constexpr float kLeast = -0x1.5d589ep+6f, kMost = 0x1.62e42ep+6f;  // -126 ln 2, 128 ln 2 towards 0
  const auto reduced = ReducedExponent<L>::of(x);
  const Vector<float, L> p = reduced.r * (reduced.rest() * reduced.r + 1.0f) + 1.0f;
  auto y = reinterpret_cast<Vector<float, L>>(reinterpret_cast<Vector<std::uint32_t, L>>(p) + reduced.n_in_exponent);
  y = x < kLeast ? Vector<float, L>{} : y;
  return x <= kMost ? y : x + kInfinity;
}

/// exp(x) - 1 for x = 0 to 80, to the last digits near 0 too.
template <std::size_t L>
MERIDANE_INLINE Vector<float, L> exponential_minus_1(Vector<float, L> x) {
  const auto reduced = ReducedExponent<L>::of(x);
  const Vector<float, L> p = reduced.r * reduced.r * reduced.rest() + reduced.r;
  const Vector<std::uint32_t, L> one = reinterpret_cast<Vector<std::uint32_t, L>>(broadcast<L>(1.0f));
  const auto power = reinterpret_cast<Vector<float, L>>(one + reduced.n_in_exponent);
  return power * p + (power - 1.0f);
}

}  // namespace
}  // namespace meridane
