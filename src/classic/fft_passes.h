#pragma once

// The passes of the complex transform, for the sources that hold the kernels. Decimation in time without reordering:
// a pass finds s transforms of the points that lie s R apart, interleaved, and joins R of them to one of R times their
// length n = N / s. It reads x[q + s (R p + r)], q < s, p < m = n / R, turns it by exp(-j 2 pi p r / n), and writes
// y[q + s (p + m k)] for k = 0 to R - 1. Runs of s = 16 and more fill whole vectors; the last two passes, s = 4 and
// s = 1, gather theirs from four neighbouring runs.

#include "classic/fft_plan.h"
#include "classic/kernel_lanes.h"

namespace sonivo::classic {
namespace {

template <class V>
struct Complex {
  V re, im;
};

template <class V>
SONIVO_INLINE Complex<V> operator+(Complex<V> a, Complex<V> b) {
  return {a.re + b.re, a.im + b.im};
}

template <class V>
SONIVO_INLINE Complex<V> operator-(Complex<V> a, Complex<V> b) {
  return {a.re - b.re, a.im - b.im};
}

template <class V, class W>
SONIVO_INLINE Complex<V> turned(Complex<V> a, W cosine, W sine) {
  return {a.re * cosine - a.im * sine, a.re * sine + a.im * cosine};
}

// a + j b and a - j b
template <class V>
SONIVO_INLINE Complex<V> plus_j(Complex<V> a, Complex<V> b) {
  return {a.re - b.im, a.im + b.re};
}

template <class V>
SONIVO_INLINE Complex<V> minus_j(Complex<V> a, Complex<V> b) {
  return {a.re + b.im, a.im - b.re};
}

template <class V>
SONIVO_INLINE void butterfly4(Complex<V>& x0, Complex<V>& x1, Complex<V>& x2, Complex<V>& x3) {
  const Complex<V> even_sum = x0 + x2, even_difference = x0 - x2, odd_sum = x1 + x3, odd_difference = x1 - x3;
  x0 = even_sum + odd_sum;
  x1 = minus_j(even_difference, odd_difference);
  x2 = even_sum - odd_sum;
  x3 = plus_j(even_difference, odd_difference);
}

// Of the even points and of the odd points, then both joined; the eighth turns share their products of sqrt(1/2).
template <class V>
SONIVO_INLINE void butterfly8(Complex<V> (&x)[8]) {
  constexpr float h = 0.707106781186547524f;
  butterfly4(x[0], x[2], x[4], x[6]);
  butterfly4(x[1], x[3], x[5], x[7]);
  const Complex<V> e0 = x[0], e1 = x[2], e2 = x[4], e3 = x[6], o0 = x[1], o2 = x[5];
  const V sum1 = x[3].re + x[3].im, dif1 = x[3].im - x[3].re;
  const V sum3 = x[7].re + x[7].im, dif3 = x[7].im - x[7].re;
  x[0] = e0 + o0;
  x[4] = e0 - o0;
  x[1] = {e1.re + h * sum1, e1.im + h * dif1};
  x[5] = {e1.re - h * sum1, e1.im - h * dif1};
  x[2] = minus_j(e2, o2);
  x[6] = plus_j(e2, o2);
  x[3] = {e3.re + h * dif3, e3.im - h * sum3};
  x[7] = {e3.re - h * dif3, e3.im + h * sum3};
}

template <class V>
SONIVO_INLINE void butterfly(Complex<V> (&x)[4]) {
  butterfly4(x[0], x[1], x[2], x[3]);
}

template <class V>
SONIVO_INLINE void butterfly(Complex<V> (&x)[8]) {
  butterfly8(x);
}

// s = N / R; may be in place.
template <class Lanes, std::size_t R, std::size_t N>
SONIVO_INLINE void first_pass(const float* x_re, const float* x_im, float* y_re, float* y_im) {
  constexpr std::size_t L = Lanes::kLanes, s = N / R;
  for (std::size_t q = 0; q < s; q += L) {
    Complex<Vector<L>> x[R];
    for (std::size_t r = 0; r < R; ++r) x[r] = {load<L>(x_re + q + s * r), load<L>(x_im + q + s * r)};
    butterfly(x);
    for (std::size_t k = 0; k < R; ++k) {
      store<L>(y_re + q + s * k, x[k].re);
      store<L>(y_im + q + s * k, x[k].im);
    }
  }
}

// s = 16
template <class Lanes, std::size_t R, std::size_t N>
SONIVO_INLINE void middle_pass(const float* twiddles, const float* x_re, const float* x_im, float* y_re, float* y_im) {
  constexpr std::size_t L = Lanes::kLanes, s = 16, m = N / s / R;
  for (std::size_t p = 0; p < m; ++p) {
    const float* const turn = twiddles + p * 2 * (R - 1);
    for (std::size_t q = 0; q < s; q += L) {
      const float* const from_re = x_re + q + s * R * p;
      const float* const from_im = x_im + q + s * R * p;
      Complex<Vector<L>> x[R];
      x[0] = {load<L>(from_re), load<L>(from_im)};
      // The even points first, as the butterfly takes them.
      for (std::size_t r = 2; r < R; r += 2) {
        x[r] = turned(Complex<Vector<L>>{load<L>(from_re + s * r), load<L>(from_im + s * r)}, turn[2 * r - 2],
                      turn[2 * r - 1]);
      }
      for (std::size_t r = 1; r < R; r += 2) {
        x[r] = turned(Complex<Vector<L>>{load<L>(from_re + s * r), load<L>(from_im + s * r)}, turn[2 * r - 2],
                      turn[2 * r - 1]);
      }
      butterfly(x);
      for (std::size_t k = 0; k < R; ++k) {
        store<L>(y_re + q + s * (p + m * k), x[k].re);
        store<L>(y_im + q + s * (p + m * k), x[k].im);
      }
    }
  }
}

// R = 4, s = 4 or s = 1: i = q + s p.
template <class Lanes, std::size_t s, std::size_t N>
SONIVO_INLINE void gathering_pass(const float* twiddles, const float* x_re, const float* x_im, float* y_re,
                                  float* y_im) {
  constexpr std::size_t L = Lanes::kLanes, plane = N / 4;
  for (std::size_t i = 0; i < plane; i += L) {
    Vector<L> re[4], im[4];
    if constexpr (s == 4) {
      Lanes::gather_runs(x_re + 4 * i, re);
      Lanes::gather_runs(x_im + 4 * i, im);
    } else {
      Lanes::gather_points(x_re + 4 * i, re);
      Lanes::gather_points(x_im + 4 * i, im);
    }
    Complex<Vector<L>> x[4];
    x[0] = {re[0], im[0]};
    for (std::size_t r = 1; r < 4; ++r) {
      const float* const turn = twiddles + (r - 1) * 2 * plane + i;
      x[r] = turned(Complex<Vector<L>>{re[r], im[r]}, load<L>(turn), load<L>(turn + plane));
    }
    butterfly(x);
    for (std::size_t k = 0; k < 4; ++k) {
      store<L>(y_re + k * plane + i, x[k].re);
      store<L>(y_im + k * plane + i, x[k].im);
    }
  }
}

template <class Lanes, std::size_t N>
void fft_of(const float* twiddles, float* re, float* im) {
  constexpr FftPlan plan = fft_plan(N);
  alignas(64) float other_re[N], other_im[N];
  if constexpr (plan.middle > 1) {
    first_pass<Lanes, plan.first, N>(re, im, other_re, other_im);
    middle_pass<Lanes, plan.middle, N>(twiddles, other_re, other_im, re, im);
  } else {
    first_pass<Lanes, plan.first, N>(re, im, re, im);
  }
  gathering_pass<Lanes, 4, N>(twiddles + kMiddleTwiddles, re, im, other_re, other_im);
  gathering_pass<Lanes, 1, N>(twiddles + kMiddleTwiddles + 3 * N / 2, other_re, other_im, re, im);
}

template <class Lanes>
void fft(std::size_t points, const float* twiddles, float* re, float* im) {
  switch (points) {
    case 64:
      return fft_of<Lanes, 64>(twiddles, re, im);
    case 128:
      return fft_of<Lanes, 128>(twiddles, re, im);
    case 256:
      return fft_of<Lanes, 256>(twiddles, re, im);
    case 512:
      return fft_of<Lanes, 512>(twiddles, re, im);
    default:
      return fft_of<Lanes, 1024>(twiddles, re, im);
  }
}

}  // namespace
}  // namespace sonivo::classic
