#include "classic/biquad_design.h"

#include <cmath>
#include <numbers>
#include <utility>

#include "classic/param_blobs.h"

namespace sonivo::classic {

namespace {

/// Polynomial in z^-1.
struct Polynomial {
  double c0, c1, c2;
};

struct TransferFunction {
  Polynomial numerator, denominator;
};

BiquadCoefficients normalised(const TransferFunction& filter) {
  const auto& [b, a] = filter;
  const double n = 1 / a.c0;
  return {static_cast<float>(b.c0 * n), static_cast<float>(b.c1 * n), static_cast<float>(b.c2 * n),
          static_cast<float>(-(a.c1 * n)), static_cast<float>(-(a.c2 * n))};
}

}  // namespace

std::optional<BiquadCoefficients> design_biquad(const BiquadSpecification& wanted) {
  const double K = std::tan(std::numbers::pi * wanted.f0 / kRateHz);
  const double Q = wanted.Q;
  const double V = std::pow(10.0, std::abs(wanted.gain) / 20);
  const double W = std::sqrt(2 * V);
  const double R = std::numbers::sqrt2;
  const double K2 = K * K;
  const Polynomial resonance{1 + K / Q + K2, 2 * (K2 - 1), 1 - K / Q + K2};
  const Polynomial shelf{1 + R * K + K2, 2 * (K2 - 1), 1 - R * K + K2};

  TransferFunction filter{};
  switch (static_cast<BiquadType>(wanted.type)) {
    case BiquadType::pass:
      return BiquadCoefficients{1.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    case BiquadType::low_pass:
      return normalised({{K2, 2 * K2, K2}, resonance});
    case BiquadType::high_pass:
      return normalised({{1, -2, 1}, resonance});
    case BiquadType::band_pass:
      return normalised({{K / Q, 0, -K / Q}, resonance});
    case BiquadType::notch:
      return normalised({{1 + K2, 2 * (K2 - 1), 1 + K2}, resonance});
    case BiquadType::peak:
      filter = {{1 + V * K / Q + K2, 2 * (K2 - 1), 1 - V * K / Q + K2}, resonance};
      break;
    case BiquadType::low_shelf:
      filter = {{1 + W * K + V * K2, 2 * (V * K2 - 1), 1 - W * K + V * K2}, shelf};
      break;
    case BiquadType::high_shelf:
      filter = {{V + W * K + K2, 2 * (K2 - V), V - W * K + K2}, shelf};
      break;
    default:
      return std::nullopt;
  }
  const bool cut = wanted.gain < 0;  // the inverse of the boost by as much
  if (cut) std::swap(filter.numerator, filter.denominator);
  return normalised(filter);
}

}  // namespace sonivo::classic
