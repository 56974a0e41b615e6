#include "classic/band_gain.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "classic/four_floats.h"

namespace sonivo::classic {
namespace {

constexpr std::size_t kAtOnce = 8;

/// A gain for each bin, and places for what is written too far.
using BinGains = std::array<float, kBins + kAtOnce>;

/// Eight places are written at once, however narrow the band: the next one writes over what is too much. This spares a
/// loop for all bands but the widest.
void expand(const BandTable& table, std::span<const float> gain, BinGains& gains) {
  std::fill_n(gains.begin(), table.f[0], 0.0f);
  for (std::size_t b = 0; b < table.nbin; ++b) {
    const FourFloats g = {gain[b], gain[b], gain[b], gain[b]};
    const std::size_t end = table.f[b + 1];
    std::size_t k = table.f[b];
    do {
      store_four(&gains[k], g);
      store_four(&gains[k + 4], g);
      k += kAtOnce;
    } while (k < end);
  }
  std::fill(gains.begin() + table.f[table.nbin], gains.end(), 0.0f);
}

}  // namespace

float apply_band_gain(const BandTable& table, std::span<const float> gain, std::span<ComplexFloat, kBins> spectrum) {
  BinGains gains;
  expand(table, gain, gains);
  float* parts = &spectrum.front().re;  // re and im by turns
  FourFloats even{}, odd{};
  for (std::size_t k = 0; k < kBins; k += 4, parts += 8) {
    const FourFloats g = load_four(&gains[k]);
    const FourFloats a = load_four(parts) * __builtin_shufflevector(g, g, 0, 0, 1, 1);
    const FourFloats b = load_four(parts + 4) * __builtin_shufflevector(g, g, 2, 2, 3, 3);
    store_four(parts, a);
    store_four(parts + 4, b);
    even += magnitude(a);
    odd += magnitude(b);
  }
  return sum(even + odd);
}

}  // namespace sonivo::classic
