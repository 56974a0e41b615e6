#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <vector>

#include "classic/param_blobs.h"

namespace sonivo::classic::test {

/// Noise of level 0.1 that never holds an exact zero; another seed gives another signal.
inline std::vector<float> noise(std::size_t samples, std::uint32_t seed = 1) {
  std::vector<float> out(samples);
  std::uint32_t s = seed * 2654435761u + 1u;
  for (float& x : out) {
    s = s * 1664525u + 1013904223u;
    x = 0.1f * (static_cast<float>((s >> 8 | 1u) & 0xffffffu) / 8388608.0f - 1.0f);
    if (x == 0.0f) x = 0.01f;
  }
  return out;
}

/// A few tones well away from both ends of the band: bin 0 of two signals in one transform counts half, and the last
/// bin is left out.
inline std::vector<float> tones(std::size_t samples) {
  std::vector<float> out(samples);
  for (std::size_t i = 0; i < samples; ++i) {
    const double t = static_cast<double>(i) / 48000.0;
    double sum = 0;
    for (const double hz : {4321.0, 6123.5, 9876.5, 13579.0}) sum += 0.1 * std::sin(2 * std::numbers::pi * hz * t + hz);
    out[i] = static_cast<float>(sum);
  }
  return out;
}

/// Signal and what differs from it, as their ratio in dB.
inline double agreement_db(const std::vector<float>& a, const std::vector<float>& b, std::size_t from = 0) {
  double signal = 0;
  double difference = 0;
  for (std::size_t i = from; i < a.size(); ++i) {
    signal += double{a[i]} * double{a[i]};
    difference += (double{a[i]} - double{b[i]}) * (double{a[i]} - double{b[i]});
  }
  return 10 * std::log10((signal + 1e-300) / (difference + 1e-300));
}

inline std::vector<float> interleave(const std::vector<std::vector<float>>& channels) {
  std::vector<float> out;
  for (std::size_t f = 0; f < channels[0].size(); ++f) {
    for (const auto& channel : channels) out.push_back(channel[f]);
  }
  return out;
}

inline std::vector<float> channel_of(const std::vector<float>& interleaved, std::size_t channels, std::size_t c) {
  std::vector<float> out;
  for (std::size_t i = c; i < interleaved.size(); i += channels) out.push_back(interleaved[i]);
  return out;
}

/// Blocks of interleaved audio through an open chain; what remains after the last whole block is left as it is.
template <class Chain>
std::vector<float> through(Chain& chain, std::vector<float> audio) {
  std::uint16_t channels = 0;
  std::uint16_t length = 0;
  chain.GetChannel(&channels);
  chain.GetDataLength(&length);
  const std::size_t block = std::size_t{channels} * length;
  for (std::size_t at = 0; at + block <= audio.size(); at += block) chain.Execute(audio.data() + at);
  return audio;
}

}  // namespace sonivo::classic::test
