#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "feature_extractor/input.h"
#include "feature_extractor/options.h"

// The formulas of feature extraction, written down slowly and in double precision.
namespace sonivo::reference {

using Samples = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;

inline constexpr double kPi = std::numbers::pi;
inline constexpr double kEpsilon = 1.1920929e-7;

/// X[k] = sum over n of x[n] exp(-j 2 pi k n / N)
inline Spectrum dft(const Spectrum& x) {
  const std::size_t n = x.size();
  Spectrum turn(n), X(n);
  for (std::size_t i = 0; i < n; ++i) turn[i] = std::polar(1.0, -2.0 * kPi * static_cast<double>(i) / double(n));
  for (std::size_t k = 0; k < n; ++k) {
    for (std::size_t i = 0; i < n; ++i) X[k] += x[i] * turn[k * i % n];
  }
  return X;
}

inline double window(const FeatureOptions& o, std::size_t i, std::size_t n) {
  const double ai = 2.0 * kPi / static_cast<double>(n - 1) * static_cast<double>(i);
  if (o.window_type == "hanning") return 0.5 - 0.5 * std::cos(ai);
  if (o.window_type == "sine") return std::sin(0.5 * ai);
  if (o.window_type == "hamming") return 0.54 - 0.46 * std::cos(ai);
  if (o.window_type == "povey") return std::pow(0.5 - 0.5 * std::cos(ai), 0.85);
  if (o.window_type == "rectangular") return 1.0;
  const double b = o.blackman_coeff;
  return b - 0.5 * std::cos(ai) + (0.5 - b) * std::cos(2.0 * ai);
}

inline double log_energy(const Samples& x) {
  double s = 0.0;
  for (const double v : x) s += v * v;
  return std::log(std::max(s, kEpsilon));
}

/// A frame of samples (without dither) as it goes into the transform.
inline Samples processed(const FeatureOptions& o, Samples x, double* raw_log_energy) {
  const std::size_t n = x.size();
  if (o.remove_dc_offset) {
    double mean = 0.0;
    for (const double v : x) mean += v / static_cast<double>(n);
    for (double& v : x) v -= mean;
  }
  *raw_log_energy = log_energy(x);
  const double c = o.preemphasis_coefficient;
  for (std::size_t i = n - 1; i > 0; --i) x[i] -= c * x[i - 1];
  x[0] -= c * x[0];
  for (std::size_t i = 0; i < n; ++i) x[i] *= window(o, i, n);
  return x;
}

inline double mel(double f) { return 1127.0 * std::log(1.0 + f / 700.0); }

struct Range {
  double low, high, vtln_low, vtln_high;
};

inline Range range(const FeatureOptions& o) {
  const double nyquist = 0.5 * o.sample_frequency;
  return {o.low_freq, o.high_freq > 0 ? o.high_freq : nyquist + o.high_freq, o.vtln_low,
          o.vtln_high > 0 ? o.vtln_high : nyquist + o.vtln_high};
}

/// The warped frequency: straight lines through (low, low), (l, l / a), (h, h / a), (high, high).
inline double warped(const FeatureOptions& o, double f) {
  const auto [low, high, vtln_low, vtln_high] = range(o);
  const double a = o.vtln_warp, l = a > 1 ? a * vtln_low : vtln_low, h = a < 1 ? a * vtln_high : vtln_high;
  const double x[] = {low, l, h, high}, y[] = {low, l / a, h / a, high};
  for (int i = 0; i < 3; ++i) {
    if (x[i] <= f && f <= x[i + 1]) return y[i] + (y[i + 1] - y[i]) * (f - x[i]) / (x[i + 1] - x[i]);
  }
  return f;
}

/// Weight of FFT bin i of a transform of `padded` points in mel bin b.
inline double mel_weight(const FeatureOptions& o, int b, std::size_t i, std::size_t padded) {
  const double low = mel(range(o).low), d = (mel(range(o).high) - low) / (o.num_mel_bins + 1);
  double corner[3];
  for (int c = 0; c < 3; ++c) {
    corner[c] = low + (b + c) * d;
    if (o.vtln_warp != 1.0f) corner[c] = mel(warped(o, 700.0 * (std::exp(corner[c] / 1127.0) - 1.0)));
  }
  const double m = mel(static_cast<double>(i) * o.sample_frequency / static_cast<double>(padded));
  if (m <= corner[0] || m >= corner[2]) return 0.0;
  return m <= corner[1] ? (m - corner[0]) / (corner[1] - corner[0]) : (corner[2] - m) / (corner[2] - corner[1]);
}

/// The feature vector of a frame without dither.
inline Samples features(const FeatureOptions& o, const Samples& frame) {
  double energy = 0.0;
  Samples x = processed(o, frame, &energy);
  if (!o.raw_energy) energy = log_energy(x);
  if (o.energy_floor > 0.0f) energy = std::max(energy, std::log(double{o.energy_floor}));
  std::size_t padded = x.size();
  if (o.round_to_power_of_two) {
    for (padded = 1; padded < x.size();) padded *= 2;
  }
  Spectrum padded_frame(padded);
  for (std::size_t i = 0; i < x.size(); ++i) padded_frame[i] = x[i];
  const Spectrum X = dft(padded_frame);

  Samples out;
  for (int b = 0; b < o.num_mel_bins; ++b) {
    double value = 0.0;
    for (std::size_t i = 0; i < padded / 2; ++i) {
      value += mel_weight(o, b, i, padded) * (o.use_power ? std::norm(X[i]) : std::abs(X[i]));
    }
    out.push_back(o.use_log_fbank ? std::log(std::max(value, kEpsilon)) : value);
  }
  if (o.use_energy) out.insert(o.htk_compat ? out.end() : out.begin(), energy);
  return out;
}

/// Speech-like in level and slope: noise through a one-pole low-pass, on an offset.
inline std::vector<short> noise(std::size_t count) {
  std::vector<short> samples(count);
  std::uint32_t state = 7;
  double level = 0.0;
  for (short& sample : samples) {
    state = state * 1664525u + 1013904223u;
    level = 0.8 * level + 0.2 * (static_cast<double>(state >> 16) - 32768.0);
    sample = static_cast<short>(std::lround(level * 0.5 + 300.0));
  }
  return samples;
}

/// Serves `samples` in answers of the given sizes, over and over; without them as asked.
class CutInput : public Input<short> {
 public:
  explicit CutInput(std::vector<short> samples, std::vector<std::size_t> cuts = {})
      : samples_(std::move(samples)), cuts_(std::move(cuts)) {}

  int data(std::vector<short>& out, int require, bool) override {
    const std::size_t left = samples_.size() - position_;
    const std::size_t wanted = cuts_.empty() ? static_cast<std::size_t>(require) : cuts_[answers_++ % cuts_.size()];
    const std::size_t count = std::min(left, wanted);
    const auto begin = samples_.begin() + static_cast<std::ptrdiff_t>(position_);
    out.insert(out.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
    position_ += count;
    return static_cast<int>(count);
  }
  bool end() override { return position_ == samples_.size(); }

 private:
  const std::vector<short> samples_;
  const std::vector<std::size_t> cuts_;
  std::size_t position_ = 0, answers_ = 0;
};

/// Serves whole groups only, but answers any request with its size; 0 only when no whole group is left.
class GroupInput : public Input<short> {
 public:
  GroupInput(std::vector<short> samples, std::size_t group) : samples_(std::move(samples)), group_(group) {}

  int data(std::vector<short>& out, int require, bool) override {
    if (end()) return 0;
    for (auto asked = static_cast<std::size_t>(require); asked >= group_ && !end(); asked -= group_) {
      const auto begin = samples_.begin() + static_cast<std::ptrdiff_t>(position_);
      out.insert(out.end(), begin, begin + static_cast<std::ptrdiff_t>(group_));
      position_ += group_;
    }
    return require;
  }
  bool end() override { return samples_.size() - position_ < group_; }

 private:
  const std::vector<short> samples_;
  const std::size_t group_;
  std::size_t position_ = 0;
};

/// Text of the std::runtime_error that `work` throws.
template <class Work>
std::string message(Work work) {
  try {
    work();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

}  // namespace sonivo::reference
