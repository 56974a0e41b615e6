// What the crossfade of the third chain follows.

#include <cmath>
#include <utility>

#include "ai_bench.h"

namespace sonivo::test {
namespace {

/// The chain answers half scale and the microphone is silent, so that what is heard is the share of the chain, halved.
class AISpeechFade : public AIBench, public ::testing::Test {
 protected:
  /// `at_block` runs inside each Execute with the number of the block, from 1.
  void fade(std::function<void(int)> at_block) {
    chain_.process = [at_block = std::move(at_block), block = 0](float* samples, std::size_t frames,
                                                                 std::size_t channels) mutable {
      std::fill_n(samples, frames * channels, 0.5f);
      at_block(++block);
    };
    start();
    bench_.record(pcm_format(48000, 24, 1), {});
    bench_.machine.run_for(155);
    heard_ = bench_.machine.driver().recording();
  }
  /// Share of the chain at a frame of the processed stream.
  double share(std::size_t frame) const {
    const std::size_t i = 3 * (7 * 480 + frame);
    std::uint32_t bits = 0;
    for (std::size_t b = 0; b < 3; ++b) bits |= std::to_integer<std::uint32_t>(heard_[i + b]) << (8 * b + 8);
    return (static_cast<std::int32_t>(bits) >> 8) / 8388608.0 / 0.5;
  }
  /// The share falls from `from` at frame `first` on, over three blocks.
  void expect_fall(std::size_t first, double from) const {
    for (std::size_t f = 0; f < 3 * 480; ++f) {
      ASSERT_NEAR(share(first + f), from * std::pow(0.999, static_cast<double>(f + 1)), 3.1e-5) << f;
    }
  }

  std::vector<std::byte> heard_;
};

TEST_F(AISpeechFade, GoesFromTheChainToTheDrySignalAtFirstSinceTheEnhancementIsOff) {
  fade([](int) {});
  expect_fall(0, 1.0);
}

TEST_F(AISpeechFade, StaysWithTheChainWhenTheEnhancementIsOn) {
  relay_.ChangeAISpeechEnhanceState(true);
  fade([](int) {});
  for (std::size_t f = 0; f < 480; ++f) ASSERT_EQ(share(f), 1.0);
}

TEST_F(AISpeechFade, FollowsTheEnhancement) {
  relay_.ChangeAISpeechEnhanceState(true);
  fade([this](int block) {
    if (block == 2) relay_.UpdateAISpeechEnhanceState(false);
  });
  expect_fall(2 * 480, 1.0);
}

TEST_F(AISpeechFade, RisesAgainWithTheEnhancement) {
  fade([this](int block) {
    if (block == 2) relay_.UpdateAISpeechEnhanceState(true);
  });
  const double lowest = std::pow(0.999, 2 * 480);
  for (std::size_t f = 0; f < 480; ++f) {
    ASSERT_NEAR(share(2 * 480 + f), 1 - (1 - lowest) * std::pow(0.999, static_cast<double>(f + 1)), 3.1e-5) << f;
  }
}

TEST_F(AISpeechFade, DoesntFollowKeyCancellationOrBeam) {
  relay_.ChangeAISpeechEnhanceState(true);
  relay_.ChangeAISpeechEnhanceBeamFormingKeyCancelState(true);
  fade([this](int block) {
    if (block != 2) return;
    relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(false);
    relay_.UpdateAISpeechEnhanceBeamFormingState(true);
  });
  EXPECT_EQ(chain_.count("SetKeyReductionActive(0)"), 1u);
  for (std::size_t f = 0; f < 4 * 480; ++f) ASSERT_EQ(share(f), 1.0);
}

}  // namespace
}  // namespace sonivo::test
