#include "classic/real_fft.h"

#include <array>
#include <cassert>
#include <cmath>
#include <numbers>

namespace sonivo::classic {
namespace {

template <std::size_t points>
struct Turns {
  Turns() {
    for (std::size_t k = 0; k <= points / 2; ++k) {
      const double angle = -2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(points);
      cosine[k] = static_cast<float>(std::cos(angle));
      sine[k] = static_cast<float>(std::sin(angle));
    }
  }
  static const Turns& table() {
    static const Turns turns;
    return turns;
  }

  std::array<float, points / 2 + 1> cosine, sine;
};

}  // namespace

RealFft::RealFft(std::size_t points, const Kernels& kernels)
    : fft_(points / 2, kernels),
      kernels_(kernels),
      cosine_(points == kFft ? Turns<kFft>::table().cosine.data() : Turns<kPulseFft>::table().cosine.data()),
      sine_(points == kFft ? Turns<kFft>::table().sine.data() : Turns<kPulseFft>::table().sine.data()) {
  assert(points == kFft || points == kPulseFft);
}

void RealFft::forward_doubled(float* even, float* odd, std::size_t first, std::size_t count, ComplexFloat* X) const {
  const std::size_t half = fft_.points();
  fft_.forward(even, odd);
  even[half] = even[0];
  odd[half] = odd[0];
  kernels_.untangle(even, odd, half, cosine_, sine_, first, count, X);
}

void RealFft::inverse(const ComplexFloat* X, float* even, float* odd) const {
  even[0] = odd[0] = X[0].re;
  kernels_.tangle(X, fft_.points(), cosine_, sine_, even, odd);
  fft_.inverse(even, odd);
}

}  // namespace sonivo::classic
