#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "counting_audio.h"

namespace sonivo::test {

/// Stereo of 48 kHz with room above and below what 16 bits hold.
using Sound = std::vector<std::array<double, 2>>;

inline Sound sound_of_wav(const std::string& path) {
  Sound sound;
  for (const StereoFrame& each : frames_of_wav(path)) sound.push_back({each[0] / 32768.0, each[1] / 32768.0});
  return sound;
}

inline std::string wav_of_sound(const Sound& sound) {
  std::vector<StereoFrame> frames;
  const auto sample = [](double value) {
    return static_cast<std::int16_t>(std::lround(std::clamp(value * 32768.0, -32768.0, 32767.0)));
  };
  for (const auto& each : sound) frames.push_back({sample(each[0]), sample(each[1])});
  return wav_of(frames);
}

/// The noise of a fan, which both microphones hear at other phases: white below 1 kHz and falling by 6 dB an octave
/// above.
inline Sound fan(std::size_t frames, double level) {
  std::mt19937 random(5);
  std::normal_distribution<double> normal;
  Sound sound(frames);
  std::array<double, 2> state{};
  const double kept = std::exp(-2 * std::numbers::pi * 1000 / 48000);
  for (auto& frame : sound) {
    for (std::size_t c = 0; c < 2; ++c) {
      state[c] = kept * state[c] + (1 - kept) * normal(random);
      frame[c] = level * state[c] / std::sqrt((1 - kept) / (1 + kept));
    }
  }
  return sound;
}

/// A key is struck and let go every 300 ms: bursts of noise with the ring of the housing, gone within 30 ms.
inline Sound typing(std::size_t frames) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(0, 1);
  Sound sound(frames);
  const auto strike = [&](std::size_t at, double strength) {
    const double ring_hz = 1500 + 3000 * unit(random);
    for (std::size_t n = 0; n < 1440 && at + n < frames; ++n) {
      const double t = static_cast<double>(n);
      const double value = strength * (std::exp(-t / 90) * (2 * unit(random) - 1) +
                                       0.4 * std::exp(-t / 300) * std::sin(2 * std::numbers::pi * ring_hz * t / 48000));
      for (double& sample : sound[at + n]) sample += value;
    }
  };
  for (std::size_t at = 4800; at + 4800 < frames; at += 14400) {
    strike(at, 0.25);
    strike(at + 3360, 0.08);
  }
  return sound;
}

inline void add(Sound& to, const Sound& what, std::size_t at = 0) {
  for (std::size_t n = 0; n < what.size() && at + n < to.size(); ++n) {
    for (std::size_t c = 0; c < 2; ++c) to[at + n][c] += what[n][c];
  }
}

/// Frames by which `heard` starts later than `played`, to 10 ms: where the levels of the two go along best.
inline std::size_t frames_behind(const Sound& played, const Sound& heard) {
  constexpr std::size_t kHop = 480;
  const auto levels = [](const Sound& sound) {
    std::vector<double> all;
    double mean = 0;
    for (std::size_t at = 0; at + kHop <= sound.size(); at += kHop) {
      double sum = 0;
      for (std::size_t n = at; n < at + kHop; ++n) sum += sound[n][0] * sound[n][0];
      all.push_back(std::sqrt(sum / kHop));
      mean += all.back();
    }
    for (double& each : all) each -= mean / static_cast<double>(all.size());
    return all;
  };
  const auto a = levels(played);
  const auto b = levels(heard);
  double best = 0;
  std::size_t best_lag = 0;
  for (std::size_t lag = 0; lag + a.size() <= b.size(); ++lag) {
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[lag + i];
    if (sum > best) {
      best = sum;
      best_lag = lag;
    }
  }
  return best_lag * kHop;
}

}  // namespace sonivo::test
