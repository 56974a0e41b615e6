#include "relay/fade.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace sonivo {
namespace {

constexpr std::size_t kFrames = 480;

/// Relative error that single precision leaves after thousands of steps of the recursion.
constexpr double kTolerance = 2e-5;

/// The gain after n frames from `start`: target + (start - target) 0.999^n.
double gain_after(std::size_t n, double start, double target) {
  return target + (start - target) * std::pow(0.999, static_cast<double>(n));
}

TEST(Crossfade, MovesAThousandthOfTheWayBeforeEachFrame) {
  std::vector<float> wet{1.0f, 1.0f};
  const std::vector<float> dry{0.0f, 0.0f};
  float sel = 1.0f;
  crossfade(wet.data(), dry.data(), 2, 1, 0.0f, sel);
  EXPECT_FLOAT_EQ(wet[0], 0.999f);
  EXPECT_FLOAT_EQ(wet[1], 0.998001f);
  EXPECT_FLOAT_EQ(sel, 0.998001f);
}

TEST(Crossfade, BlendsAllChannelsOfAFrameAlike) {
  std::vector<float> wet{8.0f, -8.0f, 80.0f, 8.0f, -8.0f, 80.0f};
  const std::vector<float> dry{4.0f, 4.0f, 4.0f, 4.0f, 4.0f, 4.0f};
  float sel = 0.0f;
  crossfade(wet.data(), dry.data(), 2, 3, 1.0f, sel);
  const double first = 0.001;
  const double second = 0.001999;
  for (std::size_t c = 0; c < 3; ++c) {
    const double from[3] = {8.0, -8.0, 80.0};
    EXPECT_NEAR(wet[c], from[c] * first + 4.0 * (1 - first), 1e-6) << c;
    EXPECT_NEAR(wet[3 + c], from[c] * second + 4.0 * (1 - second), 1e-6) << c;
  }
}

TEST(Crossfade, AtItsTargetLeavesTheWetSignalUntouched) {
  std::vector<float> wet{0.1f, -0.7f, 0.3f};
  const std::vector<float> dry{0.9f, 0.9f, 0.9f};
  float sel = 1.0f;
  crossfade(wet.data(), dry.data(), 3, 1, 1.0f, sel);
  EXPECT_EQ(wet, (std::vector<float>{0.1f, -0.7f, 0.3f}));
  EXPECT_EQ(sel, 1.0f);
}

TEST(Crossfade, AtZeroGivesTheDrySignal) {
  std::vector<float> wet{0.1f, -0.7f, 0.3f};
  const std::vector<float> dry{0.9f, 0.8f, 0.7f};
  float sel = 0.0f;
  crossfade(wet.data(), dry.data(), 3, 1, 0.0f, sel);
  EXPECT_EQ(wet, dry);
}

TEST(Crossfade, OfEqualSignalsChangesNothing) {
  std::vector<float> wet(kFrames, 0.5f);
  const std::vector<float> dry = wet;
  float sel = 0.3f;
  crossfade(wet.data(), dry.data(), kFrames, 1, 1.0f, sel);
  for (const float sample : wet) EXPECT_FLOAT_EQ(sample, 0.5f);
}

TEST(Crossfade, FollowsTheClosedFormOverManyBlocks) {
  float sel = 1.0f;
  for (std::size_t block = 0; block < 20; ++block) {
    std::vector<float> wet(kFrames, 1.0f);
    const std::vector<float> dry(kFrames, 0.0f);
    crossfade(wet.data(), dry.data(), kFrames, 1, 0.0f, sel);
    for (std::size_t f = 0; f < kFrames; ++f) {
      const double expected = gain_after(block * kFrames + f + 1, 1.0, 0.0);
      ASSERT_NEAR(wet[f], expected, kTolerance * expected);
    }
  }
}

TEST(Crossfade, TheWetShareFallsByAFactorOfEPerThousandFrames) {
  std::vector<float> wet(1000, 1.0f);
  const std::vector<float> dry(1000, 0.0f);
  float sel = 1.0f;
  crossfade(wet.data(), dry.data(), 1000, 1, 0.0f, sel);
  EXPECT_NEAR(sel, std::exp(-1.0), 0.0005 * std::exp(-1.0) * 1.01);  // 0.999^1000 is 0.05 % below 1/e
}

TEST(Crossfade, IsTheSameInOneCallAndInMany) {
  std::vector<float> whole(kFrames, 0.25f);
  std::vector<float> parts = whole;
  const std::vector<float> dry(kFrames, -0.5f);
  float sel_whole = 0.2f;
  float sel_parts = 0.2f;
  crossfade(whole.data(), dry.data(), kFrames, 1, 1.0f, sel_whole);
  for (std::size_t f = 0; f < kFrames; f += 96) {
    crossfade(parts.data() + f, dry.data() + f, 96, 1, 1.0f, sel_parts);
  }
  EXPECT_EQ(whole, parts);
  EXPECT_EQ(sel_whole, sel_parts);
}

TEST(GainRamp, StartsWithAThousandthOnTheFirstFrame) {
  std::vector<float> samples{1.0f, 1.0f, 1.0f, 1.0f};
  float gain = 0.0f;
  gain_ramp(samples.data(), 2, 2, 1.0f, gain);
  EXPECT_FLOAT_EQ(samples[0], 0.001f);
  EXPECT_FLOAT_EQ(samples[1], 0.001f);
  EXPECT_FLOAT_EQ(samples[2], 0.001999f);
  EXPECT_FLOAT_EQ(samples[3], 0.001999f);
  EXPECT_FLOAT_EQ(gain, 0.001999f);
}

TEST(GainRamp, FollowsTheClosedFormOverManyBlocks) {
  float gain = 0.0f;
  for (std::size_t block = 0; block < 15; ++block) {
    std::vector<float> samples(kFrames, 0.5f);
    gain_ramp(samples.data(), kFrames, 1, 1.0f, gain);
    for (std::size_t f = 0; f < kFrames; ++f) {
      const double expected = 0.5 * gain_after(block * kFrames + f + 1, 0.0, 1.0);
      ASSERT_NEAR(samples[f], expected, kTolerance);
    }
  }
}

// 0.999^n falls below 0.001 at n = ln 0.001 / ln 0.999 = 6904.3.
TEST(GainRamp, NearsOneByAThousandthAfterAboutSixThousandNineHundredFrames) {
  float gain = 0.0f;
  std::size_t frames = 0;
  float sample = 0.0f;
  while (std::fabs(1.0f - gain) >= 0.001f) {
    gain_ramp(&sample, 1, 1, 1.0f, gain);
    ++frames;
  }
  EXPECT_NEAR(static_cast<double>(frames), std::log(0.001) / std::log(0.999), 0.005 * 6904);
}

TEST(GainRamp, FallsTowardsZeroAlike) {
  std::vector<float> samples(kFrames, 1.0f);
  float gain = 1.0f;
  gain_ramp(samples.data(), kFrames, 1, 0.0f, gain);
  EXPECT_NEAR(gain, gain_after(kFrames, 1.0, 0.0), kTolerance);
  EXPECT_EQ(samples.back(), gain);
}

TEST(GainRamp, AtItsTargetScalesByItExactly) {
  std::vector<float> samples{0.3f, -0.2f};
  float gain = 1.0f;
  gain_ramp(samples.data(), 2, 1, 1.0f, gain);
  EXPECT_EQ(samples, (std::vector<float>{0.3f, -0.2f}));
}

}  // namespace
}  // namespace sonivo
