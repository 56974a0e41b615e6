#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <span>
#include <vector>

#include "../fifo/signals.h"
#include "enhance/section_pair.h"
#include "voice_band_reference.h"

namespace sonivo::test {
namespace {

/// The filter amplifies what float rounds: its poles are 0.013 away from 1.
TEST(VoiceBand, IsTheDifferenceEquationInDouble) {
  std::vector<float> x = noise(48000, 1.0f);
  const std::vector<double> expected = VoiceBandReference().process(in_double(x));
  VoiceBand filter;
  filter.process(x);
  for (std::size_t n = 0; n < x.size(); ++n) ASSERT_NEAR(x[n], expected[n], 3e-5) << "sample " << n;
}

TEST(VoiceBand, GoesOnWhereTheCallBeforeEnded) {
  std::vector<float> whole = noise(1600, 1.0f), pieces = whole;
  VoiceBand one, other;
  one.process(whole);
  other.process(std::span(pieces).first(777));
  other.process(std::span(pieces).subspan(777));
  EXPECT_EQ(pieces, whole);
}

/// Gain of both sections at a frequency, from their transfer functions.
double stated_gain(double hz) {
  const std::complex<double> z = std::polar(1.0, -2 * std::numbers::pi * hz / 48000);
  const auto section = [&](double b0, double b1, double b2, double a1, double a2) {
    return (b0 + b1 * z + b2 * z * z) / (1.0 - a1 * z - a2 * z * z);
  };
  return std::abs(section(0.05683659, -0.05683659, 0.0, 0.97040838, -0.0) *
                  section(8.0999937, -16.1997, 8.0999937, 1.9872345, -0.98752278));
}

TEST(VoiceBand, HasItsGainAtEachFrequency) {
  for (const double hz : {30.0, 60.0, 100.0, 150.0, 300.0, 1000.0, 4000.0, 12000.0, 20000.0}) {
    std::vector<float> x = sine(96000, hz, 48000);
    VoiceBand filter;
    filter.process(x);
    double power = 0;
    for (std::size_t n = 48000; n < x.size(); ++n) power += double{x[n]} * double{x[n]};
    EXPECT_NEAR(std::sqrt(power / 24000), stated_gain(hz), 2e-4) << hz << " Hz";
  }
}

}  // namespace
}  // namespace sonivo::test
