#include "feature_extractor/dither.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>

namespace sonivo {
namespace {

TEST(Dither, FollowsItsFormulaWithAFreshPairForEachSample) {
  std::uint32_t s = 1;
  const auto u = [&s] {
    s = 1664525u * s + 1013904223u;
    return (s / 131072u + 1.0) / 32769.0;
  };
  std::vector<float> samples(1000, 100.0f);
  Dither().add(0.5f, samples);
  for (const float sample : samples) {
    const double u1 = u(), u2 = u();
    EXPECT_NEAR(sample, 100.0 + 0.5 * std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * std::numbers::pi * u2), 1e-5);
  }
}

TEST(Dither, IsNormallyDistributedWithTheAskedDeviation) {
  constexpr std::size_t kCount = 400000;
  std::vector<float> samples(kCount, 0.0f);
  Dither().add(2.0f, samples);
  double sum = 0.0, squares = 0.0, within_one = 0.0, products = 0.0;
  for (std::size_t i = 0; i < kCount; ++i) {
    ASSERT_TRUE(std::isfinite(samples[i]));
    sum += samples[i];
    squares += samples[i] * samples[i];
    within_one += std::abs(samples[i]) < 2.0f ? 1.0 : 0.0;
    if (i > 0) products += samples[i] * samples[i - 1];
  }
  // Four standard deviations of each estimate.
  EXPECT_NEAR(sum / kCount, 0.0, 4 * 2.0 / std::sqrt(kCount));
  EXPECT_NEAR(squares / kCount, 4.0, 4 * 4.0 * std::sqrt(2.0 / kCount));
  EXPECT_NEAR(within_one / kCount, 0.682689, 4 * std::sqrt(0.68 * 0.32 / kCount));
  EXPECT_NEAR(products / kCount, 0.0, 4 * 4.0 / std::sqrt(kCount));
}

TEST(Dither, GoesOnFromCallToCall) {
  std::vector<float> whole(20, 0.0f), first(7, 0.0f), rest(13, 0.0f);
  Dither().add(1.0f, whole);
  Dither dither;
  dither.add(1.0f, first);
  dither.add(1.0f, rest);
  first.insert(first.end(), rest.begin(), rest.end());
  EXPECT_EQ(first, whole);
}

}  // namespace
}  // namespace sonivo
