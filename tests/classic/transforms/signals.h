#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "classic/kernels.h"

namespace sonivo::classic::test {

using Samples = std::vector<float>;

/// Noise of the scale of 16-bit samples.
inline Samples noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal(0.0f, 3000.0f);
  Samples samples(count);
  for (float& sample : samples) sample = normal(random);
  return samples;
}

/// From 50 Hz to 20 kHz.
inline Samples sweep(std::size_t count) {
  Samples samples(count);
  double phase = 0.0;
  for (std::size_t n = 0; n < count; ++n) {
    samples[n] = static_cast<float>(10000.0 * std::sin(phase));
    phase += 2.0 * std::numbers::pi * 50.0 / 48000.0 * std::pow(400.0, static_cast<double>(n) / double(count));
  }
  return samples;
}

/// Quiet noise with a full-scale sample now and then.
inline Samples clicks(std::size_t count, unsigned seed) {
  Samples samples = noise(count, seed);
  for (std::size_t n = 0; n < count; ++n) samples[n] = n % 977 == 500 ? 32767.0f : samples[n] * 0.01f;
  return samples;
}

/// Energy of wanted over energy of the difference, in dB.
template <class Wanted, class Given>
double agreement_db(const Wanted& wanted, const Given& given) {
  double signal = 0.0, difference = 0.0;
  for (std::size_t n = 0; n < wanted.size(); ++n) {
    signal += std::norm(wanted[n]);
    difference += std::norm(wanted[n] - static_cast<typename Wanted::value_type>(given[n]));
  }
  if (std::isnan(difference) || wanted.size() != given.size()) return -std::numeric_limits<double>::infinity();
  return 10.0 * std::log10(signal / difference);
}

/// All kernels that this machine can run.
inline std::vector<const Kernels*> kernels_here() {
  std::vector<const Kernels*> kernels;
  for (const Kernels* each : kAllKernels) {
    if (runs_here(*each)) kernels.push_back(each);
  }
  return kernels;
}

}  // namespace sonivo::classic::test
