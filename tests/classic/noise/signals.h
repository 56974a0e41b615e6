#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "classic/param_blobs.h"

/// Signals on the scale of 16-bit samples, at 48 kHz.
namespace sonivo::classic::signals {

using Samples = std::vector<float>;

inline constexpr double kTurn = 2.0 * std::numbers::pi;

inline double seconds(std::size_t n) { return double(n) / double(kRateHz); }

/// White noise that swells from quiet to loud and back once a second.
inline Samples swelling_noise(std::size_t length, double loudest, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  Samples x(length);
  for (std::size_t n = 0; n < length; ++n) {
    const double swell = 0.5 - 0.5 * std::cos(kTurn * seconds(n));
    x[n] = float((0.02 + 0.98 * swell * swell) * loudest * normal(random));
  }
  return x;
}

inline Samples noise(std::size_t length, double deviation, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0.0, deviation);
  Samples x(length);
  for (float& sample : x) sample = float(normal(random));
  return x;
}

/// Sine from 20 Hz to 20 kHz, rising by the same ratio in the same time.
inline Samples sweep(std::size_t length, double amplitude) {
  const double duration = seconds(length), rise = std::log(1000.0);
  Samples x(length);
  for (std::size_t n = 0; n < length; ++n) {
    x[n] = float(amplitude * std::sin(kTurn * 20.0 * duration / rise * std::expm1(seconds(n) / duration * rise)));
  }
  return x;
}

/// Decaying clicks at uneven distances.
inline Samples clicks(std::size_t length, double amplitude, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  Samples x(length, 0.0f);
  for (std::size_t start = 3000; start < length; start += 5000 + random() % 9000) {
    for (std::size_t n = 0; n < 400 && start + n < length; ++n) {
      x[start + n] = float(amplitude * std::exp(-double(n) / 60.0) * normal(random));
    }
  }
  return x;
}

/// Harmonics of a gliding pitch under syllables, with pauses between the phrases.
inline Samples speech(std::size_t length, double amplitude) {
  Samples x(length);
  double phase = 0.0;
  for (std::size_t n = 0; n < length; ++n) {
    const double t = seconds(n);
    phase += kTurn * (140.0 + 30.0 * std::sin(kTurn * 0.7 * t)) / double(kRateHz);
    const double syllable = std::pow(std::sin(kTurn * 2.0 * t), 2.0);
    const double phrase = std::fmod(t, 1.1) < 0.6 ? 1.0 : 0.0;
    double sum = 0.0;
    for (int h = 1; h <= 30; ++h) sum += std::sin(h * phase) / std::pow(h, 0.8);
    x[n] = float(amplitude * phrase * syllable * sum);
  }
  return x;
}

inline Samples operator+(Samples a, const Samples& b) {
  for (std::size_t n = 0; n < a.size(); ++n) a[n] += b[n];
  return a;
}

inline Samples operator*(float factor, Samples a) {
  for (float& sample : a) sample *= factor;
  return a;
}

/// One of the test signals: "noise", "sweep", "clicks" or "speech".
inline Samples by_name(const std::string& name, std::size_t length) {
  if (name == "noise") return swelling_noise(length, 3000.0, 11);
  if (name == "sweep") return sweep(length, 4000.0) + noise(length, 20.0, 12);
  if (name == "clicks") return clicks(length, 12000.0, 13) + noise(length, 150.0, 14);
  return speech(length, 2500.0) + noise(length, 40.0, 15);
}

}  // namespace sonivo::classic::signals
