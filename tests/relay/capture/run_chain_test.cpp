// The work that a chain does on a block: conversion, Execute, crossfade, conversion back.

#include <cmath>
#include <limits>
#include <utility>

#include "classic_bench.h"

namespace sonivo::test {
namespace {

constexpr double kFullScale24 = 8388608.0;
/// Each frame rounds the share of the chain by at most 2^-25 and forgets a thousandth of what was off, so that it is
/// off by 2^-25 / 0.001 at most; two steps of 24 bits come on top.
constexpr double kFadeTolerance = 3.0e-5 + 2 / kFullScale24;

/// PCM of which channel c holds values[c] at all times.
std::vector<std::byte> constant_pcm24(std::size_t frames, const std::vector<double>& values) {
  std::vector<std::byte> pcm;
  for (std::size_t f = 0; f < frames; ++f) {
    for (const double value : values) {
      const auto sample = static_cast<std::uint32_t>(static_cast<std::int32_t>(value * kFullScale24));
      for (int shift = 0; shift < 24; shift += 8) pcm.push_back(static_cast<std::byte>(sample >> shift));
    }
  }
  return pcm;
}

/// Sample i of packed 24-bit PCM.
double sample24(const std::vector<std::byte>& pcm, std::size_t i) {
  std::uint32_t bits = 0;
  for (std::size_t b = 0; b < 3; ++b) bits |= std::to_integer<std::uint32_t>(pcm[3 * i + b]) << (8 * b + 8);
  return (static_cast<std::int32_t>(bits) >> 8) / kFullScale24;
}

/// A chain that gives each channel its own constant, on a microphone that does so with others; 24 bits, stereo. What is
/// heard tells the share of the chain at each frame.
template <Notebook kNotebook>
class Fade : public ClassicBench, public ::testing::Test {
 protected:
  Fade() : ClassicBench(kNotebook) {}

  /// Records for so long; `at_block` runs inside each Execute with the number of the block, from 1.
  void fade(std::uint32_t ms, std::function<void(int)> at_block) {
    chain_.process = [at_block = std::move(at_block), block = 0](float* samples, std::size_t frames,
                                                                 std::size_t) mutable {
      for (std::size_t f = 0; f < frames; ++f) {
        samples[2 * f] = static_cast<float>(kWet[0]);
        samples[2 * f + 1] = static_cast<float>(kWet[1]);
      }
      at_block(++block);
    };
    start();
    bench_.record(pcm_format(48000, 24, 2), constant_pcm24(96000, kDry));
    bench_.machine.run_for(ms);
    heard_ = bench_.machine.driver().recording();
  }
  /// What is heard of block `block` on, against the target that each frame from there fades towards, from `sel` on.
  void expect_fade(std::size_t block, double sel, std::size_t frames,
                   const std::function<double(std::size_t)>& target) {
    for (std::size_t f = 0; f < frames; ++f) {
      sel += 0.001 * (target(f) - sel);
      for (std::size_t c = 0; c < 2; ++c) {
        const double dry = block == 1 && f < 144 ? 0.0 : kDry[c];  // the PRE buffer starts with 3 ms of silence
        const double expected = kWet[c] * sel + dry * (1 - sel);
        ASSERT_NEAR(sample24(heard_, (kSilentFrames + (block - 1) * 480 + f) * 2 + c), expected, kFadeTolerance)
            << "frame " << f << ", channel " << c;
      }
    }
  }

  inline static const std::vector<double> kWet{0.5, -0.25};
  inline static const std::vector<double> kDry{-0.5, 0.125};
  std::vector<std::byte> heard_;
};

using KeyCancelFade = Fade<Notebook::key_cancel>;
using BeamFormingFade = Fade<Notebook::beam_forming>;

TEST_F(KeyCancelFade, IsAllChainAtFirst) {
  fade(155, [](int) {});
  for (std::size_t f = 0; f < 480; ++f) ASSERT_EQ(sample24(heard_, (kSilentFrames + f) * 2), kWet[0]);
}

TEST_F(KeyCancelFade, GoesToTheDrySignalByAThousandthOfTheWayEachFrameForAllChannels) {
  fade(205, [this](int block) {
    if (block == 2) bench_.relay->UpdateKeyCancelState(false);
  });
  expect_fade(3, 1.0, 6 * 480, [](std::size_t) { return 0.0; });
}

TEST_F(KeyCancelFade, LosesAFactorOfEPer1000Frames) {
  fade(205, [this](int block) {
    if (block == 2) bench_.relay->UpdateKeyCancelState(false);
  });
  const std::size_t first = (kSilentFrames + 2 * 480) * 2;
  const auto share = [&](std::size_t frames) {
    return (sample24(heard_, first + 2 * (frames - 1)) - kDry[0]) / (kWet[0] - kDry[0]);
  };
  EXPECT_NEAR(share(1000), std::exp(-1.0), 0.001);
  EXPECT_NEAR(share(2000) / share(1000), std::exp(-1.0), 0.001);
}

TEST_F(KeyCancelFade, TurnsBackFromWhereItIs) {
  fade(205, [this](int block) {
    if (block == 2) bench_.relay->UpdateKeyCancelState(false);
    if (block == 4) bench_.relay->UpdateKeyCancelState(true);
  });
  expect_fade(3, 1.0, 6 * 480, [](std::size_t f) { return f < 2 * 480 ? 0.0 : 1.0; });
}

TEST_F(KeyCancelFade, StartsAtTheFirstBlockWhenTheStateChangedBeforeTheStream) {
  bench_.relay->UpdateKeyCancelState(false);
  fade(155, [](int) {});
  expect_fade(1, 1.0, 3 * 480, [](std::size_t) { return 0.0; });
}

TEST_F(KeyCancelFade, DoesntFollowThePlainStoreOfTheStart) {
  bench_.relay->ChangeKeyCancelState(false);
  fade(155, [](int) {});
  for (std::size_t f = 0; f < 480; ++f) ASSERT_EQ(sample24(heard_, (kSilentFrames + f) * 2), kWet[0]);
}

TEST_F(KeyCancelFade, GoesOnInTheNextStreamWhereItWasLeft) {
  fade(105, [this](int block) {
    if (block == 8) bench_.relay->UpdateKeyCancelState(false);
  });
  ASSERT_EQ(chain_.count("Execute"), 10u);
  bench_.machine.driver().open_recorder(pcm_format(48000, 24, 2));
  bench_.machine.run_for(155);
  heard_ = bench_.machine.driver().recording();
  const double left = std::pow(0.999, 2 * 480);
  expect_fade(1, left, 2 * 480, [](std::size_t) { return 0.0; });
}

TEST_F(BeamFormingFade, FollowsTheKeyCancelState) {
  fade(205, [this](int block) {
    if (block == 2) bench_.relay->UpdateBeamFormingKeyCancelState(false);
  });
  expect_fade(3, 1.0, 6 * 480, [](std::size_t) { return 0.0; });
}

TEST_F(BeamFormingFade, FollowsThePlainStoreOfTheStartToo) {
  bench_.relay->ChangeBeamFormingKeyCancelState(false);
  fade(155, [](int) {});
  expect_fade(1, 1.0, 3 * 480, [](std::size_t) { return 0.0; });
}

TEST_F(BeamFormingFade, DoesntFollowTheBeam) {
  bench_.relay->UpdateBeamFormingState(true);
  fade(155, [](int) {});
  for (std::size_t f = 0; f < 480; ++f) ASSERT_EQ(sample24(heard_, (kSilentFrames + f) * 2), kWet[0]);
}

class RunChain : public ClassicBench, public ::testing::Test {
 protected:
  RunChain() : ClassicBench(Notebook::key_cancel) {}
};

TEST_F(RunChain, HandsTheChainFloatsOfFullScaleOne) {
  std::vector<float> seen;
  chain_.process = [&](float* samples, std::size_t frames, std::size_t channels) {
    seen.insert(seen.end(), samples, samples + frames * channels);
  };
  start();
  bench_.record(pcm_format(48000, 24, 2), constant_pcm24(4800, {0.75, -1.0}));
  bench_.machine.run_for(15);
  ASSERT_EQ(seen.size(), 960u);
  EXPECT_EQ(seen[2 * 143], 0.0f);  // silence of the PRE buffer
  EXPECT_EQ(seen[2 * 144], 0.75f);
  EXPECT_EQ(seen[2 * 144 + 1], -1.0f);
}

TEST_F(RunChain, PassesEverySampleExactlyThroughAChainThatDoesNothing) {
  for (const std::uint16_t bits : {std::uint16_t{16}, std::uint16_t{24}}) {
    RelayBench bench(untrimmed(), Notebook::key_cancel);
    bench.store_key_cancel_parameters(1, 1);
    start_idle(bench);
    bench.record(pcm_format(48000, bits, 2), microphone(bits));
    bench.machine.run_for(155);
    const auto heard = bench.machine.driver().recording();
    const std::size_t align = bits / 8u * 2;
    EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144, align), cut(microphone(bits), 0, 8 * 480 - 144, align), align));
  }
}

TEST_F(RunChain, LimitsWhatTheChainDrivesBeyondFullScale) {
  chain_.process = [](float* samples, std::size_t frames, std::size_t) {
    for (std::size_t f = 0; f < frames; ++f) {
      samples[2 * f] = 1.5f;
      samples[2 * f + 1] = -1.5f;
    }
  };
  start();
  bench_.record(pcm_format(48000, 24, 2), constant_pcm24(4800, {0.0, 0.0}));
  bench_.machine.run_for(85);
  const auto heard = bench_.machine.driver().recording();
  EXPECT_EQ(sample24(heard, kSilentFrames * 2), 8388607 / kFullScale24);
  EXPECT_EQ(sample24(heard, kSilentFrames * 2 + 1), -1.0);
}

TEST_F(RunChain, ExecutesButChangesNothingOfSamplesOfAnotherWidth) {
  chain_.process = [](float* samples, std::size_t frames, std::size_t channels) {
    std::fill_n(samples, frames * channels, 0.5f);
  };
  start();
  bench_.record(pcm_format(48000, 32, 2), microphone(32));
  bench_.machine.run_for(155);
  EXPECT_EQ(chain_.count("Execute"), 15u);
  const auto heard = bench_.machine.driver().recording();
  EXPECT_TRUE(same_pcm(cut_from(heard, 7 * 480 + 144, 8), cut(microphone(32), 0, 8 * 480 - 144, 8), 8));
}

TEST_F(RunChain, PassesABlockWithASampleThatIsNoNumberAsSilenceAndCountsIt) {
  chain_.process = [block = 0](float* samples, std::size_t frames, std::size_t) mutable {
    std::fill_n(samples, 2 * frames, 0.5f);
    ++block;
    if (block == 3) samples[17] = std::numeric_limits<float>::quiet_NaN();
    if (block == 5) samples[2 * frames - 1] = std::numeric_limits<float>::infinity();
  };
  start();
  bench_.record(pcm_format(48000, 24, 2), constant_pcm24(4800, {0.25, 0.25}));
  bench_.machine.run_for(155);
  const auto heard = bench_.machine.driver().recording();
  for (std::size_t block = 1; block <= 6; ++block) {
    const double expected = block == 3 || block == 5 ? 0.0 : 0.5;
    for (const std::size_t frame : {std::size_t{0}, std::size_t{479}}) {
      const std::size_t at = kSilentFrames + (block - 1) * 480 + frame;
      EXPECT_NEAR(sample24(heard, 2 * at), expected, kFadeTolerance) << "block " << block;
      EXPECT_NEAR(sample24(heard, 2 * at + 1), expected, kFadeTolerance) << "block " << block;
    }
  }
  EXPECT_EQ(bench_.relay->CaptureStatistics().silenced, 2u);
}

}  // namespace
}  // namespace sonivo::test
