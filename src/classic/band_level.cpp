#include "classic/band_level.h"

#include <cmath>
#include <cstdint>

#include "classic/four_floats.h"

namespace sonivo::classic {
namespace {

constexpr std::array<std::int32_t, 16> kMask = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};

/// Sum of x[0] to x[count - 1]. Reads up to seven values more, so that narrow bands take no loop.
float band_sum(const float* x, std::size_t count) {
  FourFloats even{}, odd{};
  for (; count > 8; x += 8, count -= 8) {
    even += load_four(x);
    odd += load_four(x + 4);
  }
  const std::int32_t* const mask = kMask.data() + (8 - count);
  even += where(mask, load_four(x));
  odd += where(mask + 4, load_four(x + 4));
  return sum(even + odd);
}

}  // namespace

Magnitudes::Magnitudes(std::span<const ComplexFloat> spectrum) {
  const ComplexFloat* const bins = spectrum.data();
  const std::size_t count = spectrum.size();
  for (std::size_t k = 0; k < count; ++k) values_[k] = std::abs(bins[k].re) + std::abs(bins[k].im);
  for (std::size_t k = count; k < count + kBeyond; ++k) values_[k] = 0.0f;
}

void band_level(const BandTable& table, const Magnitudes& magnitudes, std::span<float> level) {
  for (std::size_t b = 0; b < table.nbin; ++b) {
    const std::size_t first = table.f[b], end = table.f[b + 1];
    level[b] = (1e-10f + band_sum(magnitudes.from(first), end - first)) * table.inv_width[b];
  }
}

void band_level(const BandTable& table, std::span<const ComplexFloat> spectrum, std::span<float> level) {
  band_level(table, Magnitudes(spectrum.first(table.f[table.nbin])), level);
}

}  // namespace sonivo::classic
