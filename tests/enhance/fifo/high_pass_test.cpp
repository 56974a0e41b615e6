#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <span>

#include "enhance/section_pair.h"
#include "reference.h"
#include "signals.h"

namespace sonivo::test {
namespace {

/// The filter amplifies what float rounds: its poles are 0.01 away from 1.
TEST(HighPass, IsTheDifferenceEquationInDouble) {
  std::vector<float> x = noise(16000, 1.0f);
  const std::vector<double> expected = high_pass(in_double(x));
  HighPass filter;
  filter.process(x);
  for (std::size_t n = 0; n < x.size(); ++n) ASSERT_NEAR(x[n], expected[n], 3e-5) << "sample " << n;
}

TEST(HighPass, GivesTheSameInPieces) {
  std::vector<float> whole = noise(1600, 1.0f);
  std::vector<float> pieces = whole;
  HighPass one, other;
  one.process(whole);
  for (std::size_t from = 0, size = 1; from < pieces.size(); from += size, size = size * 7 % 160 + 1) {
    other.process(std::span(pieces).subspan(from, std::min(size, pieces.size() - from)));
  }
  EXPECT_EQ(pieces, whole);
}

TEST(HighPass, RepeatsExactlyAfterAReset) {
  const std::vector<float> x = noise(480, 1.0f);
  std::vector<float> first = x, second = x;
  HighPass filter;
  filter.process(first);
  filter.reset();
  filter.process(second);
  EXPECT_EQ(first, second);
}

TEST(HighPass, HasItsGainAtEachFrequency) {
  constexpr SectionNumbers kFirst{0.28520438, -0.57037133, 0.28520438, 1.9024411, -0.90729463};
  constexpr SectionNumbers kSecond{3.1321421, -6.2622056, 3.1321421, 1.9855428, -0.98762095};
  for (const double hz : {20.0, 50.0, 80.0, 100.0, 150.0, 300.0, 1000.0, 4000.0, 7000.0}) {
    EXPECT_NEAR(measured_gain<HighPass>(hz, 16000), gain_of_sections(kFirst, kSecond, hz, 16000), 2e-4) << hz << " Hz";
  }
}

TEST(HighPass, EndsInZerosWhenItHearsSilence) {
  std::vector<float> x(160, 1.0f);
  HighPass filter;
  filter.process(x);
  float smallest = 1.0f;  // that isn't 0
  for (int frame = 0; frame < 2000; ++frame) {
    x.assign(160, 0.0f);
    filter.process(x);
    for (const float y : x) {
      if (y != 0.0f) smallest = std::min(smallest, std::abs(y));
    }
  }
  EXPECT_EQ(x, std::vector<float>(160, 0.0f));
  EXPECT_GT(smallest, std::numeric_limits<float>::min()) << "numbers that are slow to reckon with";
}

TEST(HighPass, ForgetsWhatIsNoNumber) {
  for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 3e38f}) {
    HighPass filter;
    std::vector<float> x = noise(160, 1.0f);
    x[80] = bad;
    x[81] = bad;
    filter.process(x);
    for (int frame = 0; frame < 500; ++frame) {
      x.assign(160, 0.0f);
      filter.process(x);
    }
    EXPECT_EQ(x, std::vector<float>(160, 0.0f)) << bad;
  }
}

}  // namespace
}  // namespace sonivo::test
