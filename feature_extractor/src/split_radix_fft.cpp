#include "feature_extractor/split_radix_fft.h"

#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace sonivo {
namespace {

int checked_logn(std::size_t points, int most) {
  if (!std::has_single_bit(points)) {
    throw std::runtime_error("SplitRadixComplexFft called with invalid number of points");
  }
  const int logn = std::countr_zero(points);
  if (logn > most) throw std::runtime_error("Error: logn is out of bounds in SRFFT");
  return logn;
}

template <class Real>
using Twiddles = typename SplitRadixComplexFft<Real>::Twiddles;

template <class Real>
void two_points(Real* re, Real* im) {
  const Real r = re[0] - re[1], i = im[0] - im[1];
  re[0] += re[1];
  im[0] += im[1];
  re[1] = r;
  im[1] = i;
}

template <class Real>
void four_points(Real* re, Real* im) {
  const Real sr = re[0] + re[2], si = im[0] + im[2], tr = re[1] + re[3], ti = im[1] + im[3];
  const Real ur = re[0] - re[2], ui = im[0] - im[2], vr = re[1] - re[3], vi = im[1] - im[3];
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
template <class Real, std::size_t quarter>
void butterflies(const Twiddles<Real>& twiddles, Real* __restrict re, Real* __restrict im) {
  const Real* const c1 = twiddles.cosine.data();
  const Real* const s1 = twiddles.sine.data();
  const Real* const c3 = twiddles.cosine3.data();
  const Real* const s3 = twiddles.sine3.data();
  for (std::size_t i = 0; i < quarter; ++i) {
    const std::size_t i1 = i + quarter, i2 = i1 + quarter, i3 = i2 + quarter;
    const Real ur = re[i] - re[i2], ui = im[i] - im[i2];
    const Real vr = im[i1] - im[i3], vi = re[i3] - re[i1];
    re[i] += re[i2];
    im[i] += im[i2];
    re[i1] += re[i3];
    im[i1] += im[i3];
    const Real pr = ur + vr, pi = ui + vi, qr = ur - vr, qi = ui - vi;
    re[i2] = pr * c1[i] + pi * s1[i];
    im[i2] = pi * c1[i] - pr * s1[i];
    re[i3] = qr * c3[i] + qi * s3[i];
    im[i3] = qi * c3[i] - qr * s3[i];
  }
}

// Lengths are known to the compiler, which so unrolls the short passes and makes vectors of the long ones.
template <class Real, int logn>
void pass(const Twiddles<Real>* twiddles, Real* re, Real* im) {
  if constexpr (logn == 1) {
    two_points(re, im);
  } else if constexpr (logn == 2) {
    four_points(re, im);
  } else if constexpr (logn > 2) {
    constexpr std::size_t quarter = (std::size_t{1} << logn) / 4;
    butterflies<Real, quarter>(twiddles[logn], re, im);
    pass<Real, logn - 1>(twiddles, re, im);
    pass<Real, logn - 2>(twiddles, re + 2 * quarter, im + 2 * quarter);
    pass<Real, logn - 2>(twiddles, re + 3 * quarter, im + 3 * quarter);
  }
}

template <class Real>
using Pass = void (*)(const Twiddles<Real>*, Real*, Real*);

template <class Real, int... logn>
constexpr std::array<Pass<Real>, sizeof...(logn)> passes(std::integer_sequence<int, logn...>) {
  return {pass<Real, logn>...};
}

}  // namespace

template <class Real>
SplitRadixComplexFft<Real>::Twiddles::Twiddles(std::size_t n) {
  for (auto* table : {&cosine, &sine, &cosine3, &sine3}) table->resize(n / 4);
  for (std::size_t i = 0; i < n / 4; ++i) {
    const double angle = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n);
    cosine[i] = static_cast<Real>(std::cos(angle));
    sine[i] = static_cast<Real>(std::sin(angle));
    cosine3[i] = static_cast<Real>(std::cos(3.0 * angle));
    sine3[i] = static_cast<Real>(std::sin(3.0 * angle));
  }
}

template <class Real>
SplitRadixComplexFft<Real>::SplitRadixComplexFft(std::size_t points) : logn_(checked_logn(points, kMaxLogn)) {
  for (std::size_t n = 1; n <= points; n *= 2) twiddles_.emplace_back(n);
  std::uint32_t reversed = 0;
  for (std::uint32_t i = 0; i < points; ++i) {
    if (i < reversed) swaps_.emplace_back(i, reversed);
    // Adds one at the most significant bit and carries downwards.
    auto bit = static_cast<std::uint32_t>(points / 2);
    for (; (reversed & bit) != 0; bit /= 2) reversed ^= bit;
    reversed |= bit;
  }
}

template <class Real>
void SplitRadixComplexFft<Real>::forward(Real* re, Real* im) const {
  static constexpr auto kPasses = passes<Real>(std::make_integer_sequence<int, kMaxLogn + 1>());
  kPasses[static_cast<std::size_t>(logn_)](twiddles_.data(), re, im);
  for (const auto& [a, b] : swaps_) {
    std::swap(re[a], re[b]);
    std::swap(im[a], im[b]);
  }
}

template class SplitRadixComplexFft<float>;
template class SplitRadixComplexFft<double>;

}  // namespace sonivo
