#include "apps/tool/resample.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sonivo::tool {

namespace {

constexpr double kZeroCrossings = 32;
constexpr double kKaiserBeta = 8.0;

double kaiser(double x) { return std::abs(x) >= 1 ? 0 : std::cyl_bessel_i(0.0, kKaiserBeta * std::sqrt(1 - x * x)); }

double sinc(double x) { return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x); }

/// Weights of the input samples -reach + 1 to reach around an output that stands `phase` behind input sample 0.
std::vector<double> taps(double phase, double band, std::size_t reach) {
  const double gain = band / std::cyl_bessel_i(0.0, kKaiserBeta);
  std::vector<double> weights(2 * reach);
  for (std::size_t j = 0; j < weights.size(); ++j) {
    const double d = phase + static_cast<double>(reach) - 1 - static_cast<double>(j);
    weights[j] = gain * sinc(d * band) * kaiser(d * band / kZeroCrossings);
  }
  return weights;
}

/// Eight partial sums, so that an addition need not wait for the one before.
double product(const std::vector<double>& weights, const double* x) {
  std::array<double, 8> sums{};
  std::size_t j = 0;
  for (; j + sums.size() <= weights.size(); j += sums.size()) {
    for (std::size_t k = 0; k < sums.size(); ++k) sums[k] += weights[j + k] * x[j + k];
  }
  for (; j < weights.size(); ++j) sums[0] += weights[j] * x[j];
  return std::accumulate(sums.begin(), sums.end(), 0.0);
}

}  // namespace

std::vector<double> resample(std::span<const double> signal, std::uint32_t from_hz, std::uint32_t to_hz) {
  if (from_hz == to_hz) return {signal.begin(), signal.end()};
  const std::uint32_t common = std::gcd(from_hz, to_hz);
  const std::size_t from = from_hz / common;
  const std::size_t to = to_hz / common;  // so many outputs have a phase each, then the phases come again
  const double band = std::min(1.0, static_cast<double>(to) / static_cast<double>(from));  // of the input's
  const auto reach = static_cast<std::size_t>(std::ceil(kZeroCrossings / band));
  std::vector<double> padded(signal.size() + 2 * reach);
  std::copy(signal.begin(), signal.end(), padded.begin() + static_cast<std::ptrdiff_t>(reach) - 1);

  std::vector<double> out(signal.size() * to / from);
  for (std::size_t first = 0; first < std::min(to, out.size()); ++first) {
    const auto weights = taps(static_cast<double>(first * from % to) / static_cast<double>(to), band, reach);
    for (std::size_t n = first; n < out.size(); n += to) {
      out[n] = product(weights, padded.data() + n * from / to);
    }
  }
  return out;
}

}  // namespace sonivo::tool
