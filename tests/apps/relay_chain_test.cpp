#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <numeric>
#include <sstream>
#include <tuple>
#include <vector>

#include "../classic/chain/chain_params.h"
#include "apps/tool/command_line.h"
#include "apps/tool/enhancement.h"
#include "apps/tool/latency.h"
#include "apps/tool/quality.h"
#include "apps/tool/share_folder.h"
#include "apps/tool/wav_file.h"
#include "classic/blob_file.h"
#include "e2easr_model/se_model.h"
#include "relay/model_table.h"
#include "wav_bytes.h"

namespace sonivo::tool {
namespace {

using classic::BeamFormingKeyCancelParam;
using classic::KeyCancelParam;
using classic::test::beam_forming_params;
using classic::test::key_cancel_params;

constexpr std::size_t kSearchedFrames = 9600;  // longer than any way through the relay

/// White noise between -1 and 1, another one for each seed.
std::vector<float> white(std::size_t samples, std::uint32_t seed) {
  std::vector<float> noise(samples);
  std::uint32_t s = seed;
  for (float& sample : noise) {
    s = s * 1664525u + 1013904223u;
    sample = static_cast<float>(s >> 8) / 8388608.0f - 1.0f;
  }
  return noise;
}

/// A talker for every channel: unvoiced syllables of 200 ms that swell and fade, with pauses of 300 ms between them.
FloatAudio talk(std::uint32_t rate_hz, std::uint16_t channels, double seconds) {
  FloatAudio audio{rate_hz, channels, white(static_cast<std::size_t>(seconds * rate_hz) * channels, 1)};
  for (std::size_t i = 0; i < audio.samples.size(); ++i) {
    const double t = static_cast<double>(i / channels) / rate_hz;
    const double in_syllable = std::fmod(t + 0.2, 0.5) / 0.2;
    const double swell = in_syllable < 1 ? std::sin(std::numbers::pi * in_syllable) : 0;
    audio.samples[i] *= static_cast<float>(0.5 * swell * swell);
  }
  return audio;
}

/// The same without most of what lies above 2 kHz, as the network hears nothing above 8 kHz.
FloatAudio dull(FloatAudio audio) {
  constexpr float kKept = 0.75f;
  std::vector<float> state(audio.channels, 0.0f);
  for (int pass = 0; pass < 2; ++pass) {
    std::fill(state.begin(), state.end(), 0.0f);
    for (std::size_t i = 0; i < audio.samples.size(); ++i) {
      float& y = state[i % audio.channels];
      y = kKept * y + (1 - kKept) * audio.samples[i];
      audio.samples[i] = y;
    }
  }
  return audio;
}

FloatAudio with_noise(FloatAudio audio, float peak) {
  const std::vector<float> noise = white(audio.samples.size(), 2);
  for (std::size_t i = 0; i < noise.size(); ++i) audio.samples[i] += peak * noise[i];
  return audio;
}

PcmAudio to_pcm(const FloatAudio& audio, std::uint16_t bits) {
  PcmAudio pcm;
  pcm.rate_hz = audio.rate_hz;
  pcm.bits = bits;
  pcm.channels = audio.channels;
  for (const float sample : audio.samples) append_float(pcm, sample);
  return pcm;
}

FloatAudio first_channel(const FloatAudio& audio) {
  FloatAudio first{audio.rate_hz, 1, {}};
  for (std::size_t i = 0; i < audio.samples.size(); i += audio.channels) first.samples.push_back(audio.samples[i]);
  return first;
}

std::vector<double> channel(const FloatAudio& audio, std::size_t index, std::size_t from, std::size_t frames) {
  std::vector<double> samples;
  for (std::size_t i = 0; i < frames; ++i) samples.push_back(audio.samples[(from + i) * audio.channels + index]);
  return samples;
}

/// What a chain adds to the way: zeros in front of the frames of 192 that keep blocks of 10 ms whole, a sub-block and
/// the spectrum delay of the key stage (two floats a bin, 64 bins a sub-block), a frame and the spectra that the noise
/// stage keeps.
std::size_t chain_latency(std::uint32_t rate_hz) {
  const KeyCancelParam param = key_cancel_params();
  const std::size_t block = rate_hz / 100;
  const std::size_t framing = 192 - std::gcd(block, std::size_t{192});
  const std::size_t key = 64 + static_cast<std::size_t>(param.pulse.pulse_sup_delay.delay) / 2;
  return framing + key + 192 * (1u + param.ns_nr.dly_frame);
}

struct Outcome {
  int exit_code = 0;
  std::string table;
  std::string errors;
  FloatAudio output;
};

class RelayChain : public testing::Test {
 protected:
  void SetUp() override {
    // Without the filter at the input, whose phase would shift the peak of a correlation.
    KeyCancelParam one = key_cancel_params();
    BeamFormingKeyCancelParam two = beam_forming_params();
    one.head.ain.stage_num = two.head.ain.stage_num = 0;
    ASSERT_EQ(classic::store_blob(keycancel_, one), classic::BlobFileResult::done);
    ASSERT_EQ(classic::store_blob(beamforming_, two), classic::BlobFileResult::done);
  }

  Outcome relay(const FloatAudio& input, std::uint16_t bits, const std::vector<std::string>& options) {
    {
      OutputFile file(folder_ / "in.wav");
      write_wav(file, to_pcm(input, bits));
      file.commit();
    }
    std::vector<std::string> arguments{"relay", folder_ / "in.wav", folder_ / "out.wav"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::ostringstream output;
    std::ostringstream errors;
    const int exit_code = run_command_line(arguments, output, errors);
    if (exit_code != 0) return {exit_code, output.str(), errors.str(), {}};
    return {exit_code, output.str(), errors.str(), read_wav_float(folder_ / "out.wav")};
  }

  const std::string& blob(const std::string& chain) const { return chain == "keycancel" ? keycancel_ : beamforming_; }

  /// The relay refuses with this sentence and leaves what was there.
  void expect_refused(const std::vector<std::string>& options, const std::string& sentence,
                      std::uint16_t channels = 2) {
    std::vector<std::string> before = folder_.entries();
    before.insert(std::upper_bound(before.begin(), before.end(), "in.wav"), "in.wav");
    const Outcome run = relay(talk(48000, channels, 0.1), 16, options);
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(run.table, "");
    EXPECT_EQ(run.errors, "error: " + sentence + "\n");
    EXPECT_EQ(folder_.entries(), before);
    std::filesystem::remove(folder_ / "in.wav");
  }

  const TemporaryFolder folder_;
  const std::string keycancel_ = folder_ / "keycancel.bin";
  const std::string beamforming_ = folder_ / "beamforming.bin";
};

using Shape = std::tuple<std::string, unsigned, unsigned, unsigned, unsigned>;  // chain, rate, bits, channels, period

class RelayChainShapes : public RelayChain, public testing::WithParamInterface<Shape> {};

TEST_P(RelayChainShapes, AddsTheLatencyOfTheChainAndKeepsTheFormat) {
  const auto [chain, rate_hz, bits, channels, period] = GetParam();
  const std::vector<std::string> plain{"--period", std::to_string(period)};
  std::vector<std::string> processed = plain;
  for (const std::string& option : {std::string("--chain"), chain, std::string("--params"), blob(chain)}) {
    processed.push_back(option);
  }
  const FloatAudio input = talk(rate_hz, static_cast<std::uint16_t>(channels), 1.0);
  const Outcome with = relay(input, static_cast<std::uint16_t>(bits), processed);
  ASSERT_EQ(with.exit_code, 0) << with.errors;
  EXPECT_EQ(with.errors, "");
  EXPECT_EQ(with.output.rate_hz, rate_hz);
  EXPECT_EQ(with.output.channels, channels);
  EXPECT_NE(with.table.find(", " + std::to_string(bits) + " bits, "), std::string::npos) << with.table;
  EXPECT_NE(with.table.find("underruns         0\noverruns          0\n"), std::string::npos) << with.table;

  // The beams are the microphones themselves here, so the beamforming chain carries the first one.
  const FloatAudio heard = first_channel(input);
  const Latency before = measure_latency(heard, relay(heard, 16, plain).output, kSearchedFrames);
  const Latency after = measure_latency(heard, first_channel(with.output), kSearchedFrames);
  ASSERT_EQ(before.outcome, Latency::Outcome::measured);
  ASSERT_EQ(after.outcome, Latency::Outcome::measured);
  EXPECT_EQ(after.frames - before.frames, chain_latency(rate_hz));
  if (chain == "keycancel") {
    EXPECT_NE(with.table.find("latency           " + std::to_string(after.frames) + " frames, "), std::string::npos)
        << with.table;
  }
}

INSTANTIATE_TEST_SUITE_P(KeyCancel, RelayChainShapes,
                         testing::Combine(testing::Values("keycancel"), testing::Values(44100u, 48000u),
                                          testing::Values(16u, 24u), testing::Values(1u, 2u, 3u, 4u),
                                          testing::Values(480u)));
INSTANTIATE_TEST_SUITE_P(BeamForming, RelayChainShapes,
                         testing::Combine(testing::Values("beamforming"), testing::Values(44100u, 48000u),
                                          testing::Values(16u), testing::Values(2u, 3u, 4u), testing::Values(480u)));
INSTANTIATE_TEST_SUITE_P(Periods, RelayChainShapes,
                         testing::Combine(testing::Values("keycancel", "beamforming"), testing::Values(44100u, 48000u),
                                          testing::Values(24u), testing::Values(2u), testing::Values(48u, 2048u)));

TEST_F(RelayChain, KeyCancelHearsEveryMicrophoneForItself) {
  const FloatAudio input = talk(48000, 3, 1.5);
  const FloatAudio output = relay(input, 24, {"--chain", "keycancel", "--params", keycancel_}).output;
  const Latency latency = measure_latency(input, output, kSearchedFrames);
  ASSERT_EQ(latency.outcome, Latency::Outcome::measured);
  // After the first syllable, while the noise stage gets to know the room.
  const std::size_t from = 24000, frames = 40000;
  for (std::size_t mic = 0; mic < 3; ++mic) {
    for (std::size_t out = 0; out < 3; ++out) {
      const auto sdr = si_sdr(channel(input, mic, from, frames), channel(output, out, from + latency.frames, frames));
      ASSERT_TRUE(sdr);
      if (mic == out) {
        EXPECT_GT(*sdr, 10) << mic;
      } else {
        EXPECT_LT(*sdr, 0) << mic << " in " << out;
      }
    }
  }
}

TEST_F(RelayChain, BeamFormingGivesEveryChannelTheFirstBeam) {
  const FloatAudio output = relay(talk(48000, 4, 1.0), 16, {"--chain", "beamforming", "--params", beamforming_}).output;
  const auto first = channel(output, 0, 0, output.frames());
  for (std::size_t c = 1; c < 4; ++c) EXPECT_EQ(channel(output, c, 0, output.frames()), first) << c;
}

TEST_F(RelayChain, NoiseInPausesGoesDown) {
  const FloatAudio clean = talk(48000, 2, 4.0);
  const FloatAudio noisy = with_noise(clean, 0.01f);
  for (const std::string chain : {"keycancel", "beamforming"}) {
    const FloatAudio output = relay(noisy, 16, {"--chain", chain, "--params", blob(chain)}).output;
    const Latency latency = measure_latency(first_channel(noisy), first_channel(output), kSearchedFrames);
    ASSERT_EQ(latency.outcome, Latency::Outcome::measured) << chain;
    // The second half: by then the noise is known.
    const std::size_t from = 96000, frames = 96000;
    const auto talker = channel(clean, 0, from, frames);
    const auto before = pause_level(talker, channel(noisy, 0, from, frames), 48000);
    const auto after = pause_level(talker, channel(output, 0, from + latency.frames, frames), 48000);
    ASSERT_TRUE(before && after);
    EXPECT_LT(*after, *before - 6) << chain;
  }
}

TEST_F(RelayChain, HasTheSameOutputInEveryRun) {
  const FloatAudio input = with_noise(talk(48000, 2, 1.0), 0.01f);
  const std::vector<std::string> options{"--chain", "keycancel", "--params", keycancel_, "--drift", "-123.4"};
  EXPECT_EQ(relay(input, 16, options).output.samples, relay(input, 16, options).output.samples);
}

TEST_F(RelayChain, BeamFormingNeedsTwoMicrophones) {
  expect_refused({"--chain", "beamforming", "--params", beamforming_},
                 "'" + (folder_ / "in.wav") + "' has one channel; the beamforming chain needs two microphones", 1);
}

TEST_F(RelayChain, RefusesABlobOfTheOtherKind) {
  expect_refused({"--chain", "keycancel", "--params", beamforming_},
                 "'" + beamforming_ +
                     "' is no parameter blob of the keycancel chain, which has 15808 bytes; build one with sonivo "
                     "params build keycancel");
  expect_refused({"--chain", "beamforming", "--params", keycancel_},
                 "'" + keycancel_ +
                     "' is no parameter blob of the beamforming chain, which has 32636 bytes; build one with sonivo "
                     "params build beamforming");
}

TEST_F(RelayChain, RefusesABlobOfAnotherSize) {
  for (const std::size_t size : {0u, 15807u, 15809u}) {
    const std::string path = folder_.write("odd.bin", std::string(size, '\0'));
    expect_refused({"--chain", "keycancel", "--params", path},
                   "'" + path +
                       "' is no parameter blob of the keycancel chain, which has 15808 bytes; build one with sonivo "
                       "params build keycancel");
  }
}

TEST_F(RelayChain, RefusesABlobOfAnotherVersion) {
  KeyCancelParam one = key_cancel_params();
  one.version_major = 1;
  ASSERT_EQ(classic::store_blob(keycancel_, one), classic::BlobFileResult::done);
  expect_refused({"--chain", "keycancel", "--params", keycancel_},
                 "the parameter blob of the keycancel chain is damaged or of another version; build it again with "
                 "sonivo params build");
  BeamFormingKeyCancelParam two = beam_forming_params();
  two.version_major = 0;
  ASSERT_EQ(classic::store_blob(beamforming_, two), classic::BlobFileResult::done);
  expect_refused({"--chain", "beamforming", "--params", beamforming_},
                 "the parameter blob of the beamforming chain is damaged or of another version; build it again with "
                 "sonivo params build");
}

TEST_F(RelayChain, RefusesABlobThatNoChainCanRunOn) {
  KeyCancelParam param = key_cancel_params();
  param.pulse.pulse_sup_delay.delay = -1;
  ASSERT_EQ(classic::store_blob(keycancel_, param), classic::BlobFileResult::done);
  expect_refused({"--chain", "keycancel", "--params", keycancel_},
                 "the parameter blob of the keycancel chain is damaged or of another version; build it again with "
                 "sonivo params build");
}

TEST_F(RelayChain, RefusesABlobThatIsNotThere) {
  expect_refused(
      {"--chain", "keycancel", "--params", folder_ / "none.bin"},
      "cannot open '" + (folder_ / "none.bin") + "': No such file or directory; check its name and its permissions");
  expect_refused({"--chain", "keycancel", "--params", folder_ / ""},
                 "'" + (folder_ / "") + "' is a folder; give a parameter blob");
}

/// The third chain with the models that were built beside the program.
class RelayAIChain : public RelayChain {
 protected:
  void SetUp() override {
    RelayChain::SetUp();
    ASSERT_TRUE(std::filesystem::exists(model_)) << "the build makes the models beside the program";
  }

  Outcome enhance(const FloatAudio& input, std::vector<std::string> more = {}) {
    std::vector<std::string> options{"--chain", "ai", "--params", beamforming_};
    options.insert(options.end(), more.begin(), more.end());
    return relay(input, 16, options);
  }

  const std::string model_ = GetModelRow(share_folder() / "models", kLastModelNo).speech_enhancement;
};

TEST_F(RelayAIChain, AddsTheRingsAndTheModelToTheLatencyOfTheBeamformingChain) {
  e2e::initialize();
  e2e::SEModel model;
  model.load(model_, false);
  // Both rings of an open chain, the converters and the model, measured on a file.
  const std::size_t enhancement = measure_delay(model, 48000);
  const FloatAudio input = dull(talk(48000, 2, 2.0));
  const Outcome without = relay(input, 16, {"--chain", "beamforming", "--params", beamforming_});
  const Outcome with = enhance(input, {"--strength", "0"});
  ASSERT_EQ(with.exit_code, 0) << with.errors;
  const Latency before = measure_latency(first_channel(input), first_channel(without.output), kSearchedFrames);
  const Latency after = measure_latency(first_channel(input), first_channel(with.output), 2 * kSearchedFrames);
  ASSERT_EQ(after.outcome, Latency::Outcome::measured);
  // The high-pass of the model's input turns phases, so that the peak of speech is not quite that of noise.
  EXPECT_NEAR(static_cast<double>(after.frames - before.frames), static_cast<double>(enhancement), 10.0);
  EXPECT_NE(with.table.find("underruns         0\noverruns          0\n"), std::string::npos) << with.table;
}

TEST_F(RelayAIChain, HasTheSameOutputInEveryRunAndOnEveryChannel) {
  const FloatAudio input = with_noise(talk(48000, 3, 1.0), 0.01f);
  const Outcome first = enhance(input, {"--model", model_});
  ASSERT_EQ(first.exit_code, 0) << first.errors;
  EXPECT_EQ(enhance(input).output.samples, first.output.samples);
  const auto heard = channel(first.output, 0, 0, first.output.frames());
  for (std::size_t c = 1; c < 3; ++c) EXPECT_EQ(channel(first.output, c, 0, first.output.frames()), heard) << c;
  EXPECT_NE(enhance(input, {"--strength", "0"}).output.samples, first.output.samples);
}

TEST_F(RelayAIChain, RunsAt44100HertzToo) {
  const FloatAudio input = dull(talk(44100, 2, 1.5));
  const Outcome run = enhance(input);
  ASSERT_EQ(run.exit_code, 0) << run.errors;
  const Latency latency = measure_latency(first_channel(input), first_channel(run.output), 2 * kSearchedFrames);
  EXPECT_EQ(latency.outcome, Latency::Outcome::measured);
}

TEST_F(RelayAIChain, RefusesWhatIsNoModel) {
  expect_refused(
      {"--chain", "ai", "--params", beamforming_, "--model", folder_ / "gone"},
      "cannot open '" + (folder_ / "gone") + "': No such file or directory; check its name and its permissions");
  const std::string text = folder_.write("text.bin", "hello");
  const Outcome run = enhance(talk(48000, 2, 0.1), {"--model", text});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_EQ(run.errors.find("error: '" + text + "' is no speech enhancement model: "), 0u) << run.errors;
}

TEST_F(RelayAIChain, NeedsTwoMicrophones) {
  expect_refused({"--chain", "ai", "--params", beamforming_},
                 "'" + (folder_ / "in.wav") + "' has one channel; the ai chain needs two microphones", 1);
}

}  // namespace
}  // namespace sonivo::tool
