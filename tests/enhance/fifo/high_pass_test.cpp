#include <gtest/gtest.h>

#include <cmath>
#include <complex>
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

/// Gain of both sections at a frequency, from their transfer functions.
double stated_gain(double hz) {
  const std::complex<double> z = std::polar(1.0, -2 * std::numbers::pi * hz / 16000);
  const auto section = [&](double b0, double b1, double b2, double a1, double a2) {
    return (b0 + b1 * z + b2 * z * z) / (1.0 - a1 * z - a2 * z * z);
  };
  return std::abs(section(0.28520438, -0.57037133, 0.28520438, 1.9024411, -0.90729463) *
                  section(3.1321421, -6.2622056, 3.1321421, 1.9855428, -0.98762095));
}

TEST(HighPass, HasItsGainAtEachFrequency) {
  for (const double hz : {20.0, 50.0, 80.0, 100.0, 150.0, 300.0, 1000.0, 4000.0, 7000.0}) {
    std::vector<float> x = sine(32000, hz, 16000);
    HighPass filter;
    filter.process(x);
    double power = 0;
    for (std::size_t n = 16000; n < x.size(); ++n) power += static_cast<double>(x[n]) * static_cast<double>(x[n]);
    EXPECT_NEAR(std::sqrt(power / 8000), stated_gain(hz), 2e-4) << hz << " Hz";
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
