#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <vector>

namespace sonivo::test {

inline std::vector<float> noise(std::size_t count, float peak, unsigned seed = 1) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<float> of(-peak, peak);
  std::vector<float> x(count);
  for (float& sample : x) sample = of(generator);
  return x;
}

inline std::vector<short> noise_of_16_bits(std::size_t count, unsigned seed = 1) {
  std::mt19937 generator(seed);
  std::uniform_int_distribution<int> of(-32768, 32767);
  std::vector<short> x(count);
  for (short& sample : x) sample = static_cast<short>(of(generator));
  return x;
}

template <class T>
std::vector<double> in_double(const std::vector<T>& x) {
  return {x.begin(), x.end()};
}

inline std::vector<float> sine(std::size_t count, double hz, double rate, double peak = 1) {
  std::vector<float> x(count);
  for (std::size_t n = 0; n < count; ++n) {
    x[n] = static_cast<float>(peak * std::sin(2 * std::numbers::pi * hz * static_cast<double>(n) / rate));
  }
  return x;
}

inline double decibels(double amplitude) { return 20 * std::log10(amplitude); }

}  // namespace sonivo::test
