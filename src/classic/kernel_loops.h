#pragma once

// The loops between transforms, for the sources that hold the kernels. A loop says what it does with one vector from
// place k on; whole vectors run as far as they fit, single values do the rest.

#include "classic/kernel_lanes.h"
#include "classic/kernels.h"

namespace sonivo::classic {
namespace {

// The rest of a loop.
struct Lanes1 {
  static constexpr std::size_t kLanes = 1;
  static SONIVO_INLINE Vector<1> reversed(Vector<1> v) { return v; }
  static SONIVO_INLINE void interleave(Vector<1>&, Vector<1>&) {}
  static SONIVO_INLINE void deinterleave(Vector<1>&, Vector<1>&) {}
};

// body(lanes, k) for k from first to last - 1.
template <class Lanes, class Body>
SONIVO_INLINE void run(std::size_t first, std::size_t last, Body body) {
  std::size_t k = first;
  for (; k + Lanes::kLanes <= last; k += Lanes::kLanes) body(Lanes{}, k);
  for (; k < last; ++k) body(Lanes1{}, k);
}

// x[0], x[-1], ...
template <class Lanes>
SONIVO_INLINE Vector<Lanes::kLanes> load_backward(const float* x) {
  return Lanes::reversed(load<Lanes::kLanes>(x - (Lanes::kLanes - 1)));
}

// Neighbours x[0], x[1], ... apart: even, odd, or real and imaginary parts.
template <class Lanes>
struct Halves {
  static constexpr std::size_t L = Lanes::kLanes;

  Vector<L> even, odd;

  static SONIVO_INLINE Halves of(Vector<L> low, Vector<L> high) {
    Lanes::deinterleave(low, high);
    return {low, high};
  }
  static SONIVO_INLINE Halves from(const float* x) { return of(load<L>(x), load<L>(x + L)); }
  SONIVO_INLINE void to(float* x) {
    Lanes::interleave(even, odd);
    store<L>(x, even);
    store<L>(x + L, odd);
  }
};

template <class Lanes>
struct Loops {
  static void weigh(float* x, const float* w, std::size_t count, std::size_t hop, float* y) {
    run<Lanes>(0, hop, [=](auto lanes, std::size_t n) {
      constexpr std::size_t L = decltype(lanes)::kLanes;
      store<L>(y + n, load<L>(x + n) * load<L>(w + n));
    });
    run<Lanes>(hop, count, [=](auto lanes, std::size_t n) {
      constexpr std::size_t L = decltype(lanes)::kLanes;
      const auto x_n = load<L>(x + n);
      store<L>(x + n - hop, x_n);
      store<L>(y + n, x_n * load<L>(w + n));
    });
  }

  static void weigh_halves(float* x, const float* w, std::size_t count, std::size_t hop, float* even, float* odd) {
    const auto weighed = [=](auto lanes, std::size_t n, auto low, auto high) {
      using W = decltype(lanes);
      constexpr std::size_t L = W::kLanes;
      const auto halves = Halves<W>::of(low * load<L>(w + 2 * n), high * load<L>(w + 2 * n + L));
      store<L>(even + n, halves.even);
      store<L>(odd + n, halves.odd);
    };
    run<Lanes>(0, hop / 2, [=](auto lanes, std::size_t n) {
      constexpr std::size_t L = decltype(lanes)::kLanes;
      weighed(lanes, n, load<L>(x + 2 * n), load<L>(x + 2 * n + L));
    });
    run<Lanes>(hop / 2, count / 2, [=](auto lanes, std::size_t n) {
      constexpr std::size_t L = decltype(lanes)::kLanes;
      const auto low = load<L>(x + 2 * n), high = load<L>(x + 2 * n + L);
      store<L>(x + 2 * n - hop, low);
      store<L>(x + 2 * n - hop + L, high);
      weighed(lanes, n, low, high);
    });
  }

  static void separate(const float* re, const float* im, std::size_t points, std::size_t first, std::size_t count,
                       ComplexFloat* A, ComplexFloat* B) {
    float *const to_A = &A->re, *const to_B = &B->re;
    run<Lanes>(0, count, [=](auto lanes, std::size_t k) {
      using W = decltype(lanes);
      constexpr std::size_t L = W::kLanes;
      const std::size_t m = first + k, mirror = points - m;
      const auto re_m = load<L>(re + m), im_m = load<L>(im + m);
      const auto re_mirror = load_backward<W>(re + mirror), im_mirror = load_backward<W>(im + mirror);
      Halves<W>{re_m + re_mirror, im_m - im_mirror}.to(to_A + 2 * k);
      Halves<W>{im_mirror + im_m, re_mirror - re_m}.to(to_B + 2 * k);
    });
  }

  static void join(const ComplexFloat* A, const ComplexFloat* B, std::size_t points, float* re, float* im) {
    const float *const from_A = &A->re, *const from_B = &B->re;
    run<Lanes>(1, points / 2, [=](auto lanes, std::size_t k) {
      using W = decltype(lanes);
      constexpr std::size_t L = W::kLanes;
      const auto a = Halves<W>::from(from_A + 2 * k), b = Halves<W>::from(from_B + 2 * k);
      store<L>(re + k, a.even - b.odd);
      store<L>(im + k, a.odd + b.even);
      const std::size_t mirror = points - k - (L - 1);
      store<L>(re + mirror, W::reversed(a.even + b.odd));
      store<L>(im + mirror, W::reversed(b.even - a.odd));
    });
  }

  static void untangle(const float* re, const float* im, std::size_t half, const float* cosine, const float* sine,
                       std::size_t first, std::size_t count, ComplexFloat* X) {
    float* const to = &X->re;
    run<Lanes>(0, count, [=](auto lanes, std::size_t n) {
      using W = decltype(lanes);
      constexpr std::size_t L = W::kLanes;
      const std::size_t k = first + n, mirror = half - k;
      const auto re_k = load<L>(re + k), im_k = load<L>(im + k);
      const auto re_mirror = load_backward<W>(re + mirror), im_mirror = load_backward<W>(im + mirror);
      const auto c = load<L>(cosine + k), s = load<L>(sine + k);
      const auto sum_re = re_k + re_mirror, sum_im = im_k - im_mirror;
      const auto dif_re = re_k - re_mirror, dif_im = im_k + im_mirror;
      Halves<W>{sum_re + c * dif_im + s * dif_re, sum_im - c * dif_re + s * dif_im}.to(to + 2 * n);
    });
  }

  static void tangle(const ComplexFloat* X, std::size_t half, const float* cosine, const float* sine, float* re,
                     float* im) {
    const float* const from = &X->re;
    run<Lanes>(1, half, [=](auto lanes, std::size_t k) {
      using W = decltype(lanes);
      constexpr std::size_t L = W::kLanes;
      const auto x = Halves<W>::from(from + 2 * k);
      const auto backward = Halves<W>::from(from + 2 * (half - k - (L - 1)));
      const auto re_mirror = W::reversed(backward.even), im_mirror = W::reversed(backward.odd);
      const auto c = load<L>(cosine + k), s = load<L>(sine + k);
      const auto sum_re = x.even + re_mirror, sum_im = x.odd - im_mirror;
      const auto dif_re = x.even - re_mirror, dif_im = x.odd + im_mirror;
      store<L>(re + k, sum_re - c * dif_im + s * dif_re);
      store<L>(im + k, sum_im + c * dif_re + s * dif_im);
    });
  }

  static void overlap(const float* history, const float* fall, const float* x, const float* rise, std::size_t count,
                      float* out) {
    run<Lanes>(0, count, [=](auto lanes, std::size_t n) {
      constexpr std::size_t L = decltype(lanes)::kLanes;
      store<L>(out + n, load<L>(history + n) * load<L>(fall + n) + load<L>(x + n) * load<L>(rise + n));
    });
  }

  static void interleave(const float* even, const float* odd, std::size_t count, float* y) {
    run<Lanes>(0, count, [=](auto lanes, std::size_t n) {
      using W = decltype(lanes);
      Halves<W>{load<W::kLanes>(even + n), load<W::kLanes>(odd + n)}.to(y + 2 * n);
    });
  }

  static void beam(const BeamFilter& filter, const BeamSpectrum& older, const BeamSpectrum& newer, float* re,
                   float* im) {
    constexpr std::size_t L = Lanes::kLanes;
    const BeamSpectrum* const spectra[kPartitions] = {&older, &newer};
    for (std::size_t k = 0; k < kBeamFft; k += L) {
      Vector<L> W_re{}, W_im{};
      for (std::size_t q = 0; q < kPartitions; ++q) {
        const BeamFilter::Partition& F = filter.partition[q];
        const auto P_re = load<L>(F.P_re + k), P_im = load<L>(F.P_im + k);
        const auto Q_re = load<L>(F.Q_re + k), Q_im = load<L>(F.Q_im + k);
        const auto Z_re = load<L>(spectra[q]->re + k), Z_im = load<L>(spectra[q]->im + k);
        const auto mirror_re = load_backward<Lanes>(spectra[q]->re + (kBeamFft - k));
        const auto mirror_im = load_backward<Lanes>(spectra[q]->im + (kBeamFft - k));
        W_re += P_re * Z_re - P_im * Z_im + Q_re * mirror_re + Q_im * mirror_im;
        W_im += P_re * Z_im + P_im * Z_re - Q_re * mirror_im + Q_im * mirror_re;
      }
      store<L>(re + k, W_re);
      store<L>(im + k, W_im);
    }
  }
};

}  // namespace
}  // namespace sonivo::classic
