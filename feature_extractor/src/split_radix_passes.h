#pragma once

// The passes of the split-radix transform, for the sources that hold one. All of it stays inside the including source:
// nothing that was compiled for a wide machine may be picked by the linker for other code.
//
// A value is a number, or a vector of numbers of which each lane runs through a transform of its own. The twiddles of
// all passes stand one behind the other, those of 8 points first, then of 16 and so on; a pass of n points has n of
// them, in planes of n / 4: cosine and sine of 2 pi i / n, cosine and sine of 3 times that, i < n / 4. So the twiddles
// of a long transform begin with those of any shorter one.

#include <cstddef>

namespace sonivo {
namespace {

template <class Value>
void two_points(Value* re, Value* im) {
  const Value r = re[0] - re[1], i = im[0] - im[1];
  re[0] += re[1];
  im[0] += im[1];
  re[1] = r;
  im[1] = i;
}

template <class Value>
void four_points(Value* re, Value* im) {
  const Value sr = re[0] + re[2], si = im[0] + im[2], tr = re[1] + re[3], ti = im[1] + im[3];
  const Value ur = re[0] - re[2], ui = im[0] - im[2], vr = re[1] - re[3], vi = im[1] - im[3];
  re[0] = sr + tr;
  im[0] = si + ti;
  re[1] = sr - tr;
  im[1] = si - ti;
  re[2] = ur + vi;
  im[2] = ui - vr;
  re[3] = ur - vi;
  im[3] = ui + vr;
}

// With x0 to x3 the points a quarter apart, W = exp(-j 2 pi / n), u = x0 - x2 and v = -j (x1 - x3):
// the even bins are those of x0 + x2 followed by x1 + x3, the others those of (u + v) W^i and of (u - v) W^3i.
template <std::size_t quarter, class Value, class Real>
void butterflies(const Real* twiddles, Value* __restrict re, Value* __restrict im) {
  const Real* const c1 = twiddles;
  const Real* const s1 = c1 + quarter;
  const Real* const c3 = s1 + quarter;
  const Real* const s3 = c3 + quarter;
  for (std::size_t i = 0; i < quarter; ++i) {
    const std::size_t i1 = i + quarter, i2 = i1 + quarter, i3 = i2 + quarter;
    const Value ur = re[i] - re[i2], ui = im[i] - im[i2];
    const Value vr = im[i1] - im[i3], vi = re[i3] - re[i1];
    re[i] += re[i2];
    im[i] += im[i2];
    re[i1] += re[i3];
    im[i1] += im[i3];
    const Value pr = ur + vr, pi = ui + vi, qr = ur - vr, qi = ui - vi;
    re[i2] = pr * c1[i] + pi * s1[i];
    im[i2] = pi * c1[i] - pr * s1[i];
    re[i3] = qr * c3[i] + qi * s3[i];
    im[i3] = qi * c3[i] - qr * s3[i];
  }
}

// In place; the bins come out at bit-reversed places. Lengths are known to the compiler, which so unrolls the short
// passes and, where values are numbers, makes vectors of the long ones.
template <std::size_t n, class Value, class Real>
void split_radix(const Real* twiddles, Value* re, Value* im) {
  if constexpr (n == 2) {
    two_points(re, im);
  } else if constexpr (n == 4) {
    four_points(re, im);
  } else if constexpr (n > 4) {
    constexpr std::size_t half = n / 2, quarter = n / 4;
    butterflies<quarter>(twiddles + (n - 8), re, im);
    split_radix<half>(twiddles, re, im);
    split_radix<quarter>(twiddles, re + half, im + half);
    split_radix<quarter>(twiddles, re + half + quarter, im + half + quarter);
  }
}

}  // namespace
}  // namespace sonivo
