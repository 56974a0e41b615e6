#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>

#include "chain_models.h"

// The least that an enrolment needs.

namespace sonivo::test {

/// A row of samples, times the voice.
inline std::string base_model() { return model_of(e2e::test::scales_network("prod1", {1.0f})); }

/// The mean of the recording for a voice.
inline std::string voice_encoder() {
  return e2e::test::model_bytes({.magic = "spkb",
                                 .network = gains_network({1.0f}),
                                 .symbols = {{"sample-frequency", "16000"},
                                             {"frame-length", "10"},
                                             {"frame-shift", "10"},
                                             {"feature-extractor-type", "none"}}});
}

/// Words of a gliding voice at 48 kHz, one channel, 16 bits, with pauses between them.
inline std::string spoken_wav(double seconds) {
  using e2e::test::bytes_of;
  constexpr double kRate = 48000.0, kWord = 0.4, kPause = 0.15;
  std::string samples;
  double phase = 0.0;
  for (int n = 0; n < static_cast<int>(seconds * kRate); ++n) {
    const double t = std::fmod(n / kRate, kWord + kPause);
    phase += 2 * std::numbers::pi * (140.0 + 60.0 * t) / kRate;
    double x = 0.0;
    for (int h = 1; t < kWord && h <= 12; ++h) x += std::sin(h * phase) / h;
    samples += bytes_of(static_cast<std::int16_t>(6000.0 * x * std::sin(std::numbers::pi * std::min(t / kWord, 1.0))));
  }
  const auto size = static_cast<std::uint32_t>(samples.size());
  return "RIFF" + bytes_of(size + 36) + "WAVEfmt " + bytes_of<std::uint32_t>(16) + bytes_of<std::uint16_t>(1) +
         bytes_of<std::uint16_t>(1) + bytes_of<std::uint32_t>(48000) + bytes_of<std::uint32_t>(96000) +
         bytes_of<std::uint16_t>(2) + bytes_of<std::uint16_t>(16) + "data" + bytes_of(size) + samples;
}

}  // namespace sonivo::test
