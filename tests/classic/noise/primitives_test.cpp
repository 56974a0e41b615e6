#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "classic/band_level.h"
#include "classic/curve.h"
#include "classic/noise_generator.h"
#include "classic/recursive_level.h"
#include "classic/spreading.h"
#include "noise_parameters.h"

namespace sonivo::classic {
namespace {

using testing::ElementsAre;
using testing::FloatEq;

TEST(BandLevel, IsTheMeanMagnitudeOfTheBins) {
  BandTable table{};
  parameters::set_bands(table, {1, 2, 4});
  const std::array<ComplexFloat, 5> spectrum = {{{100, 100}, {3, -4}, {-1, 0}, {2, -5}, {100, 100}}};
  std::array<float, 2> level;
  band_level(table, std::span(spectrum), level);
  EXPECT_THAT(level, ElementsAre(FloatEq(7.0f), FloatEq(4.0f)));
}

TEST(BandLevel, OfSilenceIsATenBillionthOfABin) {
  BandTable table{};
  parameters::set_bands(table, {0, 1, 5});
  const std::array<ComplexFloat, 5> spectrum{};
  std::array<float, 2> level;
  band_level(table, std::span(spectrum), level);
  EXPECT_THAT(level, ElementsAre(FloatEq(1e-10f), FloatEq(0.25e-10f)));
}

TEST(BandLevel, CountsEachBinOfItsBandOnceWhateverTheWidth) {
  std::array<ComplexFloat, kBins> spectrum;
  std::array<float, 1> level;
  for (int first = 0; first < 9; ++first) {
    for (int width = 1; width <= 40; ++width) {
      BandTable table{};
      parameters::set_bands(table, {first, first + width});
      table.inv_width[0] = 1.0f;
      for (int k = 0; k < kBins; ++k) {
        const bool inside = k >= first && k < first + width;
        spectrum[std::size_t(k)] = {inside ? float(k) : 1e6f, inside ? -1.0f : NAN};
      }
      band_level(table, std::span(spectrum), level);
      EXPECT_EQ(level[0], float(width * (2 * first + width - 1) / 2 + width)) << first << " + " << width;
    }
  }
}

TEST(BandLevel, ReachesTheLastBin) {
  BandTable table{};
  parameters::set_bands(table, {0, 509, 512});
  std::array<ComplexFloat, kBins> spectrum{};
  spectrum[511] = {-3, 6};
  std::array<float, 2> level;
  band_level(table, std::span(spectrum), level);
  EXPECT_FLOAT_EQ(level[1], 3.0f);
}

PwrBlock level_block(std::uint16_t bands) { return {bands, 0, 10.0f, 0.5f, 0.9f}; }

TEST(RecursiveLevel, FallsWithPWCdnAndRisesWithPWCup) {
  const PwrBlock param = level_block(1);
  RecursiveLevel level(param);
  level.process(std::array{0.0f});
  EXPECT_FLOAT_EQ(level.level()[0], 9.0f);  // 0.9 * 10 + 0.1 * 0
  level.process(std::array{11.0f});
  EXPECT_FLOAT_EQ(level.level()[0], 10.0f);  // 0.5 * 9 + 0.5 * 11
}

TEST(RecursiveLevel, TreatsEqualityAsARise) {
  const PwrBlock param = {1, 0, 10.0f, NAN, 0.9f};
  RecursiveLevel level(param);
  level.process(std::array{10.0f});
  EXPECT_TRUE(std::isnan(level.level()[0]));
}

TEST(RecursiveLevel, StartsAtPinInitInItsBandsOnlyAndAgainAfterReset) {
  const PwrBlock param = level_block(3);
  RecursiveLevel level(param);
  const auto start = [&] { return std::vector(level.level().begin(), level.level().begin() + 4); };
  EXPECT_THAT(start(), ElementsAre(10, 10, 10, 0));
  level.process(std::array{1.0f, 2.0f, 3.0f});
  EXPECT_THAT(start(), ElementsAre(FloatEq(9.1f), FloatEq(9.2f), FloatEq(9.3f), 0));
  level.reset();
  EXPECT_THAT(start(), ElementsAre(10, 10, 10, 0));
}

TEST(FollowLevel, ReadsWhatEarlierBandsHaveBecomeWhereItsInputLiesOnItsState) {
  const PwrBlock param = {20, 0, 0.0f, 0.5f, 0.5f};
  std::array<float, 28> memory{};
  for (std::size_t n = 0; n < 8; ++n) memory[n] = 16.0f * float(n + 1);
  follow_level(param, memory.data(), memory.data() + 8);
  for (std::size_t n = 0; n < 8; ++n) {
    EXPECT_EQ(memory[8 + n], 8.0f * float(n + 1));
    EXPECT_EQ(memory[16 + n], 4.0f * float(n + 1));
    if (n < 4) {
      EXPECT_EQ(memory[24 + n], 2.0f * float(n + 1));
    }
  }
}

class SpreadingTest : public testing::Test {
 protected:
  std::vector<float> of(const std::vector<float>& level) {
    std::vector<float> M(level.size());
    spread({bounds, up.data(), dn.data(), coef.data()}, level, M);
    return M;
  }

  std::vector<std::uint16_t> bounds = {0, 2, 5};
  std::array<float, 2> up = {0.5f, 0.25f}, dn = {0.125f, 0.5f}, coef = {1.0f, 1.0f};
};

TEST_F(SpreadingTest, RisesByTheFactorOfTheBandReached) {
  EXPECT_THAT(of({64, 0, 0, 0, 0}), ElementsAre(64, 32, 8, 2, 0.5));
}

TEST_F(SpreadingTest, FallsByTheFactorOfTheBandReached) {
  EXPECT_THAT(of({0, 0, 0, 0, 64}), ElementsAre(1. / 4, 2, 16, 32, 64));
}

TEST_F(SpreadingTest, AGrowingFallLeavesTheHighestBandAlone) {
  dn = {0.125f, 2.0f};
  EXPECT_THAT(of({0, 0, 0, 0, 8}), ElementsAre(0.5, 4, 32, 16, 8));
}

TEST_F(SpreadingTest, TakesTheLouderOfBandAndNeighbours) {
  EXPECT_THAT(of({64, 40, 1, 0, 8}), ElementsAre(64, 40, 10, 4, 8));
}

TEST_F(SpreadingTest, WeighsTheResultByTheCoefficientOfTheBand) {
  coef = {0.5f, 2.0f};
  EXPECT_THAT(of({64, 0, 0, 0, 0}), ElementsAre(32, 16, 16, 4, 1));
}

TEST_F(SpreadingTest, LeavesFineBandsOutsideOfAllCoarseBandsAlone) {
  bounds = {1, 2, 3};
  EXPECT_THAT(of({64, 0, 8, 64}), ElementsAre(64, 1, 8, 64));
}

TEST_F(SpreadingTest, SkipsACoarseBandWithoutFineBands) {
  bounds = {0, 0, 3};
  EXPECT_THAT(of({64, 0, 0}), ElementsAre(64, 16, 4));
}

class CurveTest : public testing::Test {
 protected:
  // Knots at (0.25, 0.125) and (0.75, 0.5); slopes that meet nowhere tell which segment was taken.
  const std::array<float, 3> slope = {0.25f, 3.0f, 7.0f};
  const Curve curve{0.25f, 0.75f, 0.125f, 0.5f, slope.data()};
};

TEST_F(CurveTest, StartsAtTheOriginBelowTheFirstKnot) {
  EXPECT_EQ(curve(0.125f), 0.03125f);
  EXPECT_EQ(curve(-1.0f), -0.25f);
}

TEST_F(CurveTest, TakesTheSecondSegmentFromTheFirstKnotOn) {
  EXPECT_EQ(curve(0.25f), 0.125f);
  EXPECT_EQ(curve(0.5f), 0.125f + 0.25f * 3.0f);
}

TEST_F(CurveTest, TakesTheThirdSegmentFromTheSecondKnotOn) {
  EXPECT_EQ(curve(0.75f), 0.5f);
  EXPECT_EQ(curve(1.0f), 0.5f + 0.25f * 7.0f);
}

/// The same register bit by bit: index n of `bits` is bit n of the register.
std::vector<int> shift_register_samples(int count) {
  std::array<bool, 16> bits{};
  bits[0] = true;
  std::vector<int> samples;
  for (int n = 0; n < count; ++n) {
    const bool f = (bits[15] != bits[13]) != !bits[2];
    for (std::size_t b = 15; b > 0; --b) bits[b] = bits[b - 1];
    bits[0] = f;
    samples.push_back(f ? 1 : -1);
  }
  return samples;
}

TEST(NoiseGenerator, IsAShiftRegisterOf16BitsThatStartsAtOne) {
  NoiseGenerator generator;
  std::vector<int> samples;
  for (int n = 0; n < 70000; ++n) samples.push_back(generator.next());
  EXPECT_EQ(samples, shift_register_samples(70000));
}

TEST(NoiseGenerator, RepeatsAfterReset) {
  NoiseGenerator generator;
  std::vector<int> first, second;
  for (int n = 0; n < 100; ++n) first.push_back(generator.next());
  generator.reset();
  for (int n = 0; n < 100; ++n) second.push_back(generator.next());
  EXPECT_EQ(first, second);
}

}  // namespace
}  // namespace sonivo::classic
