#include "feature_extractor/split_radix_fft.h"

#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "feature_extractor/split_radix_passes.h"

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

double angle(std::size_t i, std::size_t n) {
  return 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n);
}

// Of a pass of n points.
template <class Real>
void append_twiddles(std::size_t n, std::vector<Real>& twiddles) {
  for (const double times : {1.0, 3.0}) {
    for (std::size_t i = 0; i < n / 4; ++i) twiddles.push_back(static_cast<Real>(std::cos(times * angle(i, n))));
    for (std::size_t i = 0; i < n / 4; ++i) twiddles.push_back(static_cast<Real>(std::sin(times * angle(i, n))));
  }
}

template <class Real>
using Transform = void (*)(const Real* twiddles, Real* re, Real* im);

template <class Real, int... logn>
constexpr std::array<Transform<Real>, sizeof...(logn)> transforms(std::integer_sequence<int, logn...>) {
  return {split_radix<std::size_t{1} << logn, Real, Real>...};
}

}  // namespace

template <class Real>
SplitRadixComplexFft<Real>::SplitRadixComplexFft(std::size_t points) : logn_(checked_logn(points, kMaxLogn)) {
  for (std::size_t n = 8; n <= points; n *= 2) append_twiddles(n, twiddles_);
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
  static constexpr auto kTransforms = transforms<Real>(std::make_integer_sequence<int, kMaxLogn + 1>());
  kTransforms[static_cast<std::size_t>(logn_)](twiddles_.data(), re, im);
  for (const auto& [a, b] : swaps_) {
    std::swap(re[a], re[b]);
    std::swap(im[a], im[b]);
  }
}

template class SplitRadixComplexFft<float>;
template class SplitRadixComplexFft<double>;

}  // namespace sonivo
