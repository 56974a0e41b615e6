#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "../fifo/reference.h"
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

TEST(VoiceBand, HasItsGainAtEachFrequency) {
  constexpr SectionNumbers kFirst{0.05683659, -0.05683659, 0.0, 0.97040838, -0.0};
  constexpr SectionNumbers kSecond{8.0999937, -16.1997, 8.0999937, 1.9872345, -0.98752278};
  for (const double hz : {30.0, 60.0, 100.0, 150.0, 300.0, 1000.0, 4000.0, 12000.0, 20000.0}) {
    EXPECT_NEAR(measured_gain<VoiceBand>(hz, 48000), gain_of_sections(kFirst, kSecond, hz, 48000), 2e-4) << hz << " Hz";
  }
}

}  // namespace
}  // namespace sonivo::test
