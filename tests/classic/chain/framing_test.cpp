// Blocks of any length against frames of 192 samples.

#include <gtest/gtest.h>

#include <vector>

#include "classic/block_framing.h"

namespace sonivo::classic {
namespace {

/// What a delay of so many frames makes of interleaved blocks: the framing around a process that copies.
std::vector<float> through(BlockFraming& framing, std::uint16_t channels, const std::vector<float>& in) {
  std::vector<float> out = in;
  const std::size_t block = std::size_t{framing.length()} * channels;
  for (std::size_t at = 0; at + block <= out.size(); at += block) {
    framing.execute(out.data() + at, channels, [&](const Frames& frames, Frames& result) {
      for (std::size_t c = 0; c < channels; ++c) result[c] = frames[c];
    });
  }
  return out;
}

/// Sample f of channel c; exact in float through the scaling by 32768.
float ramp(std::size_t f, std::size_t c) { return static_cast<float>(f + 1) / 65536.0f + static_cast<float>(c); }

std::vector<float> ramps(std::size_t frames, std::size_t channels) {
  std::vector<float> samples;
  for (std::size_t f = 0; f < frames; ++f) {
    for (std::size_t c = 0; c < channels; ++c) samples.push_back(ramp(f, c));
  }
  return samples;
}

/// The dry run in other words: the zeros that a queue must start with so that 192 calls never find it short.
std::size_t smallest_start(std::size_t length) {
  for (std::size_t start = 0;; ++start) {
    std::size_t taken = 0;
    bool dry = false;
    for (std::size_t call = 1; call <= 192 && !dry; ++call) {
      taken += length;
      dry = start + call * length / 192 * 192 < taken;
    }
    if (!dry) return start;
  }
}

TEST(Preroll, IsTheExamplesOfThreeBlockLengths) {
  EXPECT_EQ(BlockFraming::preroll(192), 0u);
  EXPECT_EQ(BlockFraming::preroll(480), 96u);
  EXPECT_EQ(BlockFraming::preroll(441), 189u);
}

TEST(Preroll, IsTheFewestZerosThatKeepTheQueueFromRunningDry) {
  for (const std::size_t length :
       {1u, 2u, 48u, 64u, 96u, 100u, 191u, 192u, 193u, 384u, 441u, 480u, 1000u, 1024u, 4410u}) {
    EXPECT_EQ(BlockFraming::preroll(static_cast<std::uint16_t>(length)), smallest_start(length)) << length;
  }
}

TEST(Preroll, OfTheLongestBlocksHasRoomForAllSums) {
  EXPECT_EQ(BlockFraming::preroll(65535), smallest_start(65535));
  EXPECT_EQ(BlockFraming::preroll(65472), 0u);  // 341 frames
}

class Framing : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Framing, DelaysEveryChannelByThePrerollAndNoMore) {
  const auto length = static_cast<std::uint16_t>(std::get<0>(GetParam()));
  const auto channels = static_cast<std::uint16_t>(std::get<1>(GetParam()));
  BlockFraming framing(length);
  const std::size_t frames = (4000u / length + 2u) * length;
  const auto out = through(framing, channels, ramps(frames, channels));
  const std::size_t delay = BlockFraming::preroll(length);
  for (std::size_t f = 0; f < frames; ++f) {
    for (std::size_t c = 0; c < channels; ++c) {
      const float expected = f < delay ? 0.0f : ramp(f - delay, c) * 32768.0f * 3.0517578e-5f;
      ASSERT_EQ(out[f * channels + c], expected) << "frame " << f << ", channel " << c;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(LengthsAndChannels, Framing,
                         testing::Combine(testing::Values(1, 192, 441, 480, 1000), testing::Values(1, 2, 3, 4)));

TEST(Framing, OfOneFrameBlocksRunsTheProcessOnEvery192ndCall) {
  BlockFraming framing(1);
  int processed = 0;
  for (int call = 1; call <= 1000; ++call) {
    float sample = 0.5f;
    framing.execute(&sample, 1, [&](const Frames&, Frames& result) {
      ++processed;
      result[0].fill(0.0f);
    });
    EXPECT_EQ(processed, call / 192);
  }
}

TEST(Framing, HandsOverSamplesOnThe16BitScale) {
  BlockFraming framing(192);
  std::vector<float> block(192, 0.5f);
  framing.execute(block.data(), 1, [&](const Frames& in, Frames& out) {
    EXPECT_EQ(in[0][0], 16384.0f);
    EXPECT_EQ(in[0][191], 16384.0f);
    out[0].fill(32768.0f);
  });
  EXPECT_EQ(block[0], 32768.0f * 3.0517578e-5f);
}

TEST(Framing, DropsAccumulatorsAndQueuesWhenItIsResized) {
  BlockFraming framing(480);
  through(framing, 1, ramps(480, 1));
  framing.resize(96);
  const auto out = through(framing, 1, ramps(960, 1));
  const std::size_t delay = BlockFraming::preroll(96);
  EXPECT_EQ(delay, 96u);
  for (std::size_t f = 0; f < 960; ++f) {
    ASSERT_EQ(out[f], f < delay ? 0.0f : ramp(f - delay, 0) * 32768.0f * 3.0517578e-5f) << f;
  }
}

TEST(Framing, LeavesChannelsAboveTheActiveOnesAlone) {
  BlockFraming framing(192);
  auto three = ramps(192, 3);
  framing.execute(three.data(), 3, [](const Frames&, Frames&) {});
  auto one = ramps(192, 1);
  framing.execute(one.data(), 1, [&](const Frames& in, Frames&) {
    EXPECT_EQ(in[0][0], ramp(0, 0) * 32768.0f);
    EXPECT_EQ(in[2][191], ramp(191, 2) * 32768.0f);  // still from the call of three channels
  });
}

}  // namespace
}  // namespace sonivo::classic
