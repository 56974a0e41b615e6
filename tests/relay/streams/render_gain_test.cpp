// The gain ramp at the start of a render stream, and the straight copy after it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "stream_bench.h"

namespace sonivo::test {
namespace {

/// Silence at the head: the lead of 30 ms, and 10 ms that were still waiting in the endpoint when it was complete.
constexpr std::size_t kSilentFrames = 4 * 480;

/// Frames until the gain is nearer than 0.001 to 1: the smallest n with 0.999^n < 0.001.
const auto kRampFrames = static_cast<std::size_t>(std::ceil(std::log(0.001) / std::log(0.999)));

/// Gain of the n-th frame, n = 1, 2, ...: g += 0.001 (1 - g), from 0.
double reference_gain(std::size_t n) { return 1.0 - std::pow(1.0 - 0.001, static_cast<double>(n)); }

std::int32_t sample(const std::vector<std::byte>& pcm, std::size_t i, std::uint16_t bits) {
  if (bits == 16) {
    std::int16_t value = 0;
    std::memcpy(&value, pcm.data() + 2 * i, sizeof value);
    return value;
  }
  std::uint32_t value = 0;
  std::memcpy(reinterpret_cast<std::byte*>(&value) + 1, pcm.data() + 3 * i, 3);
  return static_cast<std::int32_t>(value) >> 8;
}

struct Played {
  std::vector<std::byte> source;
  std::vector<std::byte> played;  ///< from the first frame of the source on
};

/// What the physical speaker plays of a signal within the first 300 ms.
Played play(const WAVEFORMATEXTENSIBLE& format, std::vector<std::byte> source) {
  StreamBench bench(DataFlow::render, {.pins = {.trim_ppm = 0}});
  bench.machine.driver().open_player(format, sim::memory_source(source));
  bench.start();
  bench.machine.run_for(300);
  std::vector<std::byte> played = bench.physical().played();
  const auto silence = static_cast<std::ptrdiff_t>(kSilentFrames * format.nBlockAlign);
  EXPECT_EQ(leading_zero_frames(played, format.nBlockAlign) / 480, kSilentFrames / 480);
  played.erase(played.begin(), played.begin() + silence);
  source.resize(played.size());
  return {std::move(source), std::move(played)};
}

/// The gain after each packet of 480 frames that was ramped.
std::vector<double> traced_gains(const StreamBench& bench) {
  std::vector<double> gains;
  for (const std::string& text : bench.log.traces()) {
    double gain = 0;
    if (std::sscanf(text.c_str(), "[ren] (480) m_currentGain: %lf", &gain) == 1) gains.push_back(gain);
  }
  return gains;
}

class RenderGain : public ::testing::TestWithParam<WAVEFORMATEXTENSIBLE> {
 protected:
  std::uint16_t bits() const { return GetParam().wBitsPerSample; }
  std::size_t channels() const { return GetParam().nChannels; }
  Played play_noise() const { return play(GetParam(), numbered_pcm(24000, bits(), GetParam().nChannels)); }
};

std::string format_name(const ::testing::TestParamInfo<WAVEFORMATEXTENSIBLE>& test) {
  return std::to_string(test.param.wBitsPerSample) + "bits" + std::to_string(test.param.nChannels) + "channels";
}

INSTANTIATE_TEST_SUITE_P(Of, RenderGain,
                         ::testing::Values(pcm_format(48000, 16, 2), pcm_format(48000, 24, 2), pcm_format(48000, 16, 1),
                                           pcm_format(48000, 24, 4)),
                         format_name);

TEST_P(RenderGain, FollowsTheRecursionInEveryFrameAlikeForAllChannels) {
  const Played sound = play_noise();
  for (std::size_t f = 0; f < kRampFrames; ++f) {
    for (std::size_t c = 0; c < channels(); ++c) {
      const std::size_t i = f * channels() + c;
      const double wanted = sample(sound.source, i, bits()) * reference_gain(f + 1);
      const double tolerance = 1.0 + 1e-5 * std::fabs(wanted);  // truncation, and single precision
      ASSERT_NEAR(sample(sound.played, i, bits()), wanted, tolerance) << "frame " << f << " channel " << c;
    }
  }
}

TEST_P(RenderGain, EndsInACopyOfEveryBit) {
  const Played sound = play_noise();
  const std::size_t whole_packets = (kRampFrames + 479) / 480 * 480;
  const auto from = static_cast<std::ptrdiff_t>(whole_packets * GetParam().nBlockAlign);
  ASSERT_GT(sound.played.size(), static_cast<std::size_t>(from));
  EXPECT_TRUE(std::equal(sound.played.begin() + from, sound.played.end(), sound.source.begin() + from));
  EXPECT_FALSE(std::equal(sound.played.begin(), sound.played.begin() + from, sound.source.begin()));
}

class RenderOfAnotherWidth : public RenderGain {};
INSTANTIATE_TEST_SUITE_P(Of, RenderOfAnotherWidth,
                         ::testing::Values(pcm_format(48000, 8, 2), pcm_format(48000, 32, 1), pcm_format(48000, 32, 2)),
                         format_name);

TEST_P(RenderOfAnotherWidth, PlaysEveryByteAsItIsWhileTheGainRises) {
  const Played sound = play_noise();
  ASSERT_GT(sound.played.size(), kRampFrames * GetParam().nBlockAlign);
  EXPECT_EQ(sound.played, sound.source);
}

TEST_P(RenderOfAnotherWidth, TracesTheRisingGainOfEachPacketOfTheRamp) {
  StreamBench bench(DataFlow::render, {.pins = {.trim_ppm = 0}});
  bench.start();
  bench.open_application(GetParam());
  bench.machine.run_for(600);
  const std::vector<double> gains = traced_gains(bench);
  ASSERT_EQ(gains.size(), (kRampFrames + 479) / 480);
  for (std::size_t n = 0; n < gains.size(); ++n) EXPECT_NEAR(gains[n], reference_gain(480 * (n + 1)), 1e-5) << n;
}

/// Frames that the ramp changes when the physical speaker takes packets of `packet` frames.
std::size_t ramped_frames(std::uint32_t packet) {
  constexpr std::int32_t kSample = 0x700000;
  const WAVEFORMATEXTENSIBLE format = pcm_format(48000, 24, 1);
  std::vector<std::byte> constant(3 * 24000);
  for (std::size_t i = 0; i < constant.size(); i += 3) constant[i + 2] = static_cast<std::byte>(kSample >> 16);

  StreamBench bench(DataFlow::render, {.hardware_period = packet, .pins = {.trim_ppm = 0}});
  bench.machine.driver().open_player(format, sim::memory_source(constant));
  bench.start();
  bench.machine.run_for(300);
  const std::vector<std::byte> played = bench.physical().played();
  const std::size_t first_full_packet = 30 * 48 + 480 - packet;  // refilled as the lead of 30 ms became complete
  std::size_t frames = 0;
  while (sample(played, first_full_packet + frames, 24) != kSample) ++frames;
  return frames;
}

TEST(RenderRamp, LastsUntilTheGainIsNearerThanAThousandthToOne) {
  EXPECT_EQ(kRampFrames, 6905u);
  EXPECT_EQ(ramped_frames(1), kRampFrames);
}

TEST(RenderRamp, IsLeftAtThePacketAfterThat) {
  EXPECT_EQ(ramped_frames(48), 144u * 48);
  EXPECT_EQ(ramped_frames(240), 29u * 240);
}

TEST(RenderRamp, IsTracedPacketByPacket) {
  StreamBench bench(DataFlow::render, {.hardware_period = 1, .pins = {.trim_ppm = 0}});
  bench.start_streaming();
  bench.machine.run_for(26);
  // One frame of 0.001 of the way, two of the next.
  EXPECT_EQ(bench.log.count("[ren] (1) m_currentGain: 0.001000 (1.000000)\n"), 1u);
  EXPECT_EQ(bench.log.count("[ren] (1) m_currentGain: 0.001999 (1.000000)\n"), 1u);
}

TEST(RenderRamp, IsNotTracedAnyMoreOnceThePacketsAreCopied) {
  StreamBench bench(DataFlow::render, {.pins = {.trim_ppm = 0}});
  bench.start_streaming();
  bench.machine.run_for(600);
  EXPECT_EQ(traced_gains(bench).size(), (kRampFrames + 479) / 480);
}

}  // namespace
}  // namespace sonivo::test
