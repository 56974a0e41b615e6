#include "apps/tool/resample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <tuple>

namespace sonivo::tool {
namespace {

std::vector<double> sine(double hz, std::uint32_t rate_hz, std::size_t frames) {
  std::vector<double> signal(frames);
  for (std::size_t n = 0; n < frames; ++n)
    signal[n] = std::sin(2 * std::numbers::pi * hz * static_cast<double>(n) / rate_hz);
  return signal;
}

/// The largest difference, away from the ends.
double largest_difference(const std::vector<double>& a, const std::vector<double>& b) {
  constexpr std::size_t kEnds = 400;
  double largest = 0;
  for (std::size_t n = kEnds; n + kEnds < std::min(a.size(), b.size()); ++n)
    largest = std::max(largest, std::abs(a[n] - b[n]));
  return largest;
}

using Rates = std::tuple<std::uint32_t, std::uint32_t>;

class Resample : public testing::TestWithParam<Rates> {};

TEST_P(Resample, GivesASineInTheBandBackAtTheOtherRate) {
  const auto [from, to] = GetParam();
  const double edge = std::min(from, to) / 2.0;
  for (const double share : {0.003, 0.1, 0.5, 0.9}) {
    const auto out = resample(sine(share * edge, from, from), from, to);
    EXPECT_LT(largest_difference(out, sine(share * edge, to, to)), 1e-3) << share;
  }
}

TEST_P(Resample, TakesOutWhatTheLowerRateCannotHold) {
  const auto [from, to] = GetParam();
  if (from < to) return;
  for (const double share : {1.1, 1.5, 1.9}) {
    const double hz = share * to / 2;
    if (hz >= from / 2.0) continue;
    const auto out = resample(sine(hz, from, from), from, to);
    EXPECT_LT(largest_difference(out, std::vector<double>(out.size())), 1e-4) << share;  // 80 dB
  }
}

TEST_P(Resample, KeepsTheLengthInSeconds) {
  const auto [from, to] = GetParam();
  EXPECT_EQ(resample(std::vector<double>(from), from, to).size(), to);
  EXPECT_EQ(resample(std::vector<double>(1001), from, to).size(), std::size_t{1001} * to / from);
  EXPECT_TRUE(resample({}, from, to).empty());
}

TEST_P(Resample, TreatsWhatLiesBeforeAndBehindAsSilence) {
  const auto [from, to] = GetParam();
  const auto signal = sine(0.2 * std::min(from, to), from, 3000);
  std::vector<double> padded(from, 0.0);  // a second, so that both grids meet
  padded.insert(padded.end(), signal.begin(), signal.end());
  padded.resize(padded.size() + 1000, 0.0);
  const auto alone = resample(signal, from, to);
  const auto inside = resample(padded, from, to);
  for (std::size_t n = 0; n < alone.size(); ++n) EXPECT_NEAR(alone[n], inside[to + n], 1e-12) << n;
}

INSTANTIATE_TEST_SUITE_P(Rates, Resample,
                         testing::Values(Rates{48000, 10000}, Rates{44100, 10000}, Rates{44100, 48000},
                                         Rates{22050, 48000}, Rates{48000, 44100}, Rates{16000, 10000}));

TEST(ResampleToTheSameRate, ChangesNothing) {
  const auto signal = sine(7777, 48000, 100);
  EXPECT_EQ(resample(signal, 48000, 48000), signal);
}

}  // namespace
}  // namespace sonivo::tool
