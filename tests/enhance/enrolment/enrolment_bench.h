#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <future>
#include <numbers>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "../../apps/wav_bytes.h"
#include "../../classic/chain/chain_params.h"
#include "../../e2easr_model/support/models.h"
#include "../fifo/log_capture.h"
#include "e2easr_model/se_model.h"
#include "enhance/ai_speech_enhance.h"
#include "enhance/result.h"
#include "support/temporary_folder.h"

// Recordings and models for enrolments, small enough for the result to be reckoned by hand.

namespace sonivo::test {

inline constexpr std::size_t kEmbeddingRows = 4;
inline constexpr std::size_t kEncoderFrame = 160;  // samples at 16 kHz

/// Weight of sample k in row j of the encoder: a cosine of 170 (j + 1) Hz.
inline float encoder_weight(std::size_t j, std::size_t k) {
  return static_cast<float>(std::cos(2 * std::numbers::pi * 170.0 * static_cast<double>((j + 1) * k) / 16000));
}

using ModelSymbols = std::vector<std::pair<std::string, std::string>>;

/// A waveform in frames of so many ms, in the order in which a model saves them.
inline ModelSymbols waveform_symbols(const std::string& frame_ms = "10") {
  return {{"feature-extractor-type", "none"},
          {"frame-length", frame_ms},
          {"frame-shift", frame_ms},
          {"sample-frequency", "16000"}};
}

/// Row j: max(0, sum of a frame's samples times the weights of row j), as many frames as there are whole ones in
/// `span` frames, one from another.
inline std::string encoder_network(std::size_t rows = kEmbeddingRows, std::size_t span = 1) {
  using e2e::test::bytes_of;
  std::vector<float> taps;
  for (std::size_t k = 0; k < span * kEncoderFrame; ++k) {
    for (std::size_t j = 0; j < rows; ++j) taps.push_back(encoder_weight(j, k));
  }
  const auto kernel = static_cast<std::int32_t>(span * kEncoderFrame);
  const std::string record = "TDNN" + bytes_of<std::int32_t>(0) + bytes_of<std::int32_t>(0) +
                             bytes_of<std::int32_t>(0) + bytes_of<std::int32_t>(1) +
                             bytes_of<std::int32_t>(kEncoderFrame) + bytes_of<std::int32_t>(kernel) +
                             e2e::test::matrix_bytes(static_cast<std::int64_t>(taps.size()), 1, taps) +
                             e2e::test::matrix_bytes(static_cast<std::int64_t>(rows), 1, std::vector<float>(rows));
  return e2e::test::network_bytes(1, rows,
                                  {e2e::test::layer_bytes("a", "TDNN", record), meridane::test::relu_bytes("b")},
                                  {{"_input", "a"}, {"a", "b"}, {"b", "_output"}});
}

inline std::string encoder_bytes(const std::string& network = encoder_network(),
                                 ModelSymbols symbols = waveform_symbols()) {
  return e2e::test::model_bytes({.magic = "spkb", .network = network, .symbols = std::move(symbols)});
}

/// Each sample times the sum of the embedding, through a layer of that name.
inline std::string base_bytes(const std::vector<float>& embedding = std::vector<float>(kEmbeddingRows, 0.25f),
                              const std::string& layer = "prod1") {
  using namespace e2e::test;
  const std::size_t rows = embedding.size();
  const std::string network =
      network_bytes(1, 1,
                    {dense_bytes("a", std::vector<float>(rows, 1.0f), std::vector<float>(rows)),
                     layer_bytes(layer, "Prod", "Prod" + matrix_bytes(static_cast<std::int64_t>(rows), 1, embedding)),
                     dense_bytes("c", std::vector<float>(rows, 1.0f), {0.0f})},
                    {{"_input", "a"}, {"a", layer}, {layer, "c"}, {"c", "_output"}});
  return model_bytes({.network = network, .symbols = waveform_symbols()});
}

/// Lets the sound pass.
inline std::string plain_bytes() {
  return e2e::test::model_bytes({.network = e2e::test::gains_network({1.0f}), .symbols = waveform_symbols()});
}

struct Talk {
  double seconds = 2;
  double pitch_hz = 120;
  int rate_hz = 48000;
  std::uint16_t channels = 1;
  double peak = 0.3;
  double noise = 0.0003;  ///< highest
  double share = 0.9;     ///< of a channel in the next one
};

/// One period, at most 1 high: harmonics up to 3.5 kHz, each as much weaker as it is higher.
inline std::vector<double> voice_period(double pitch_hz, int rate_hz) {
  std::vector<double> period(static_cast<std::size_t>(std::lround(rate_hz / pitch_hz)));
  for (std::size_t i = 0; i < period.size(); ++i) {
    const double phase = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(period.size());
    for (int h = 1; h * pitch_hz < 3500; ++h) period[i] += std::sin(h * phase) / h / 1.9;
  }
  return period;
}

/// A voice in syllables of 300 ms that swell and fade, with pauses of 100 ms; interleaved.
inline std::vector<std::int16_t> talk(const Talk& how) {
  const std::vector<double> period = voice_period(how.pitch_hz, how.rate_hz);
  std::mt19937 generator(7);
  std::uniform_real_distribution<double> noise(-how.noise, how.noise);
  std::vector<std::int16_t> samples;
  const auto frames = static_cast<std::size_t>(how.seconds * how.rate_hz);
  for (std::size_t i = 0; i < frames; ++i) {
    const double in_syllable = std::fmod(static_cast<double>(i) / how.rate_hz, 0.4) / 0.3;
    const double swell = in_syllable < 1 ? std::sin(std::numbers::pi * in_syllable) : 0;
    double x = how.peak * swell * period[i % period.size()] + noise(generator);
    for (int c = 0; c < how.channels; ++c, x *= how.share) {
      samples.push_back(static_cast<std::int16_t>(std::clamp(std::lround(x * 32768), -32768L, 32767L)));
    }
  }
  return samples;
}

inline tool::WavBytes wav(const std::vector<std::int16_t>& samples, int rate_hz = 48000, std::uint16_t channels = 1) {
  tool::WavBytes bytes;
  bytes.channels = channels;
  bytes.rate_hz = static_cast<std::uint32_t>(rate_hz);
  bytes.audio.resize(samples.size() * sizeof(std::int16_t));
  std::memcpy(bytes.audio.data(), samples.data(), bytes.audio.size());
  return bytes;
}

inline tool::WavBytes wav(const Talk& how) { return wav(talk(how), how.rate_hz, how.channels); }

/// An open third chain, models and a place for the result.
class Enrolment : public testing::Test {
 protected:
  int open(int rate_hz = 48000, std::uint16_t channels = 1, std::uint16_t length = 0) {
    const auto param = classic::test::beam_forming_params();
    const auto frames = static_cast<std::uint16_t>(length != 0 ? length : rate_hz / 100);
    return enhancer_.Open(reinterpret_cast<const std::uint16_t*>(&param), plain_.c_str(), static_cast<float>(rate_hz),
                          channels, frames, 20.0f, 20.0f);
  }

  int make(const tool::WavBytes& recording, std::uint16_t preprocess_on = 0) {
    return make(folder_.write("voice.wav", recording.text()), preprocess_on);
  }
  int make(const std::string& voice, std::uint16_t preprocess_on = 0) {
    return enhancer_.MakeAIModel(base_.c_str(), encoder_.c_str(), voice.c_str(), out_.c_str(), preprocess_on);
  }

  /// The same on a thread of its own, from the first block that went into the encoder on.
  std::future<int> start_making(const Talk& how) {
    const std::string voice = folder_.write("voice.wav", wav(how).text());
    auto result = std::async(std::launch::async, [this, voice] { return make(voice); });
    while (enhancer_.MakeAIModelProgress() == 0.0f && result.wait_for(kLook) == std::future_status::timeout) {
    }
    return result;
  }

  bool has_result() const { return std::filesystem::exists(out_); }

  /// Lines of the log that begin so, but for those of the facade; what came before is forgotten.
  std::vector<std::string> lines(std::string_view beginning = "MakeAIModel: ") {
    std::vector<std::string> found;
    for (const auto& [level, text] : log_.take()) {
      if (text.starts_with(beginning) && !text.starts_with("MakeAIModel: return (")) found.push_back(text);
    }
    return found;
  }

  static constexpr std::chrono::milliseconds kLook{1};

  TemporaryFolder folder_;
  std::string plain_ = folder_.write("plain.bin", plain_bytes());
  std::string base_ = folder_.write("base.bin", base_bytes());
  std::string encoder_ = folder_.write("encoder.bin", encoder_bytes());
  std::string out_ = folder_ / "out.bin";
  LogCapture log_;
  CAISpeechEnhance enhancer_;
};

}  // namespace sonivo::test
