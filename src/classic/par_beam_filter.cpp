#include "classic/par_beam_filter.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

namespace sonivo::classic {

static_assert(std::endian::native == std::endian::little, "filter files and blobs are images of memory");

namespace {

/// X[k] = sum over n of x[n] exp(-j 2 pi k n / 512), plainly: this runs once per file.
void transform(std::span<const float> x, ComplexFloat (&X)[kBeamBins]) {
  constexpr std::size_t N = kBeamFft;
  std::array<double, N> cosine;
  std::array<double, N> sine;
  for (std::size_t i = 0; i < N; ++i) {
    const double angle = 2 * std::numbers::pi * static_cast<double>(i) / N;
    cosine[i] = std::cos(angle);
    sine[i] = std::sin(angle);
  }
  for (std::size_t k = 0; k < kBeamBins; ++k) {
    double re = 0;
    double im = 0;
    for (std::size_t n = 0; n < x.size(); ++n) {
      re += x[n] * cosine[k * n % N];
      im -= x[n] * sine[k * n % N];
    }
    X[k] = {static_cast<float>(re), static_cast<float>(im)};
  }
}

}  // namespace

void make_filter_spectra(std::span<const std::byte> taps, ComplexFloat (&spectra)[kPartitions][kBeamBins]) {
  std::array<float, kBeamTaps> x;
  for (std::size_t i = 0; i < x.size(); ++i) {
    double tap = 0;
    std::memcpy(&tap, taps.data() + i * sizeof tap, sizeof tap);
    x[i] = static_cast<float>(tap);
  }
  for (std::size_t q = 0; q < kPartitions; ++q) {
    const std::size_t later_first = kPartitions - 1 - q;
    transform(std::span(x).subspan(later_first * kHop, kHop), spectra[q]);
  }
}

}  // namespace sonivo::classic
