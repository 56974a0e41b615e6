#include "enhance/rate_kernel.h"

#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>

namespace sonivo {
namespace {

constexpr std::size_t kHalf = RateKernel::kTaps / 2;  // taps on either side of the centre
constexpr int kGrid = 1024;                           // points per tap
constexpr std::size_t kSpectrum = 32;                 // bins of the prototype

/// A symmetric prototype: the centre tap p[0], then p[1] = p[-1] to p[15] = p[-15].
using Prototype = std::array<double, kHalf + 1>;
constexpr Prototype kLowPass = {0.28,         0.24248166,    0.14934616,     0.046092749,  -0.02434154,  -0.045206882,
                                -0.029261267, -0.0031649829, 0.012458203,    0.012833402,  0.0051892097, -0.0014492853,
                                -0.00329783,  -0.0019084489, -0.00026829113, 0.00025430342};
constexpr Prototype kHighBand = {0.8,           0.18497689,     -0.14459786,    0.090994239,
                                 -0.038866188,  -2.3283847e-17, 0.020370452,    -0.024016595,
                                 0.017308459,   -0.0075581982,  -8.6490625e-18, 0.0034254249,
                                 -0.0034663228, 0.0020059554,   -0.00063411333, -6.3578643e-19};

/// sum over k = -15..15 of c[|k|] exp(j k angle), for the even coefficients c[0..15].
double even_sum(const Prototype& c, double angle) {
  const double x = std::cos(angle);
  double before = 1;
  double now = x;  // cos(k angle)
  double sum = c[0];
  for (std::size_t k = 1; k <= kHalf; ++k) {
    sum += 2 * c[k] * now;
    before = std::exchange(now, 2 * x * now - before);
  }
  return sum;
}

/// The prototype p on the fine grid: its transform H of 32 points, bin 16 left out, taken back with 32768 points,
///   K[j] = 1/32 sum over k = -15..15 of H[k] exp(j 2 pi j k / 32768).
/// H and K are real and even, so 16 cosines make each point.
class FineGrid {
 public:
  explicit FineGrid(const Prototype& p) {
    for (std::size_t k = 0; k <= kHalf; ++k) {
      H_[k] = even_sum(p, 2 * std::numbers::pi * static_cast<double>(k) / kSpectrum);
    }
  }
  float operator[](int j) const {
    return static_cast<float>(even_sum(H_, 2 * std::numbers::pi * j / (kSpectrum * kGrid)) / kSpectrum);
  }

 private:
  Prototype H_;
};

/// Step: input samples per output sample, in the precision that positions are reckoned in.
template <class Step>
RateKernel build(const Prototype& prototype, std::size_t in_frame, std::size_t out_frame, Step step) {
  const FineGrid K(prototype);
  const std::size_t rows = out_frame / std::gcd(in_frame, out_frame);
  RateKernel kernel{.in_frame = in_frame, .out_frame = out_frame, .phase = {}, .row = {}};
  for (std::size_t i = 0; i < out_frame; ++i) {
    const Step pos = static_cast<Step>(i) * step;
    const int base = static_cast<int>(pos + Step{0.5});
    const Step d = pos - static_cast<Step>(base) + Step{kHalf};
    kernel.phase[i] = {.row = static_cast<std::uint16_t>(i % rows), .start = static_cast<std::uint16_t>(base)};
    if (i >= rows) continue;
    for (std::size_t t = 0; t < RateKernel::kTaps; ++t) {
      kernel.row[i].tap[t] = K[static_cast<int>(std::abs(d - static_cast<Step>(t)) * Step{kGrid} + Step{0.5})];
    }
  }
  return kernel;
}

}  // namespace

const RateKernel& kernel_48000_to_16000() {
  static const RateKernel kernel = build(kLowPass, 480, 160, 3.0f);
  return kernel;
}

const RateKernel& kernel_44100_to_16000() {
  static const RateKernel kernel = build(kLowPass, 441, 160, 2.75625);
  return kernel;
}

const RateKernel& kernel_16000_to_48000() {
  static const RateKernel kernel = build(kHighBand, 160, 480, 0.33333334f);
  return kernel;
}

const RateKernel& kernel_16000_to_44100() {
  static const RateKernel kernel = build(kHighBand, 160, 441, 0.3628118f);
  return kernel;
}

}  // namespace sonivo
