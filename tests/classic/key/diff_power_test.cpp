#include "classic/diff_power.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "reference_key_stage.h"

namespace sonivo::classic::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

float ratio(DiffPower& power, float X) {
  std::vector<float> R(1);
  power.process(std::vector<float>{X}, R);
  return R[0];
}

TEST(DiffPower, IsZeroUntilTheWindowHoldsALevel) {
  const DiffPowerBlock param = {1, 2, 3};
  DiffPower power(param);
  EXPECT_EQ(ratio(power, 4.0f), 0.0f);
  EXPECT_EQ(ratio(power, 4.0f), 0.0f);
  EXPECT_EQ(ratio(power, 4.0f), 0.0f);
  EXPECT_EQ(ratio(power, 8.0f), 2.0f);
}

TEST(DiffPower, ComparesWithTheLoudestOfTheWindowBehindTheDelay) {
  const DiffPowerBlock param = {1, 2, 3};
  DiffPower power(param);
  for (const float X : {8.0f, 1.0f, 2.0f, 4.0f, 64.0f, 64.0f}) ratio(power, X);
  // the latest two are skipped, then come 4, 2, 1
  EXPECT_EQ(ratio(power, 16.0f), 4.0f);
  // 64, 4, 2
  EXPECT_EQ(ratio(power, 16.0f), 0.25f);
}

TEST(DiffPower, ALevelOfZeroInTheWindowGivesZero) {
  const DiffPowerBlock param = {1, 1, 1};
  DiffPower power(param);
  ratio(power, 1.0f);
  ratio(power, 0.0f);
  EXPECT_EQ(ratio(power, 5.0f), 5.0f);
  EXPECT_EQ(ratio(power, 5.0f), 0.0f);
}

TEST(DiffPower, ResetForgets) {
  const DiffPowerBlock param = {1, 1, 4};
  DiffPower power(param);
  for (int i = 0; i < 7; ++i) ratio(power, 9.0f);
  power.reset();
  EXPECT_EQ(ratio(power, 1.0f), 0.0f);
  EXPECT_EQ(ratio(power, 1.0f), 0.0f);
  EXPECT_EQ(ratio(power, 1.0f), 1.0f);
}

class DiffPowerShape : public testing::TestWithParam<DiffPowerBlock> {};

TEST_P(DiffPowerShape, AgreesWithTheMaximumOverShiftedRows) {
  const DiffPowerBlock param = GetParam();
  DiffPower power(param);
  reference::DiffPower expected(param);
  std::mt19937 random(5);
  std::exponential_distribution<float> level(0.1f);
  const std::size_t bands = static_cast<std::size_t>(param.nbin);
  std::vector<float> X(bands), R(bands);
  for (int i = 0; i < 1200; ++i) {
    for (float& x : X) x = level(random);
    power.process(X, R);
    const reference::Vector ratio = expected.process({X.begin(), X.end()});
    for (std::size_t k = 0; k < bands; ++k) ASSERT_FLOAT_EQ(R[k], static_cast<float>(ratio[k])) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, DiffPowerShape,
                         testing::Values(DiffPowerBlock{1, 1, 1}, DiffPowerBlock{7, 1, 2}, DiffPowerBlock{60, 2, 1},
                                         DiffPowerBlock{20, 3, 5}, DiffPowerBlock{60, 1, 255},
                                         DiffPowerBlock{16, 200, 56}));

}  // namespace
}  // namespace sonivo::classic::test
