#include "apps/tool/quality.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace sonivo::tool {
namespace {

using Signal = std::vector<double>;

constexpr std::uint32_t kRateHz = 48000;
constexpr std::size_t kSecond = kRateHz;
constexpr std::size_t kSnrFrame = 1440;  // 30 ms
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Sines and cosines of whole hertz over whole seconds are orthogonal to each other.
Signal sine(double hz, double amplitude = 1, std::size_t frames = kSecond) {
  Signal signal(frames);
  for (std::size_t n = 0; n < frames; ++n)
    signal[n] = amplitude * std::sin(2 * std::numbers::pi * hz * static_cast<double>(n) / kRateHz);
  return signal;
}

Signal sum(const Signal& a, const Signal& b) {
  Signal result = a;
  for (std::size_t n = 0; n < a.size(); ++n) result[n] += b[n];
  return result;
}

Signal scaled(const Signal& signal, double gain) {
  Signal result = signal;
  for (double& x : result) x *= gain;
  return result;
}

Signal noise(std::size_t frames, double rms) {
  std::minstd_rand random(3);
  std::uniform_real_distribution<double> uniform(-1, 1);
  Signal signal(frames);
  double energy = 0;
  for (double& x : signal) {
    x = uniform(random);
    energy += x * x;
  }
  return scaled(signal, rms / std::sqrt(energy / static_cast<double>(frames)));
}

Signal then(Signal first, const Signal& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Signal silence(std::size_t frames) { return Signal(frames); }

TEST(SiSdr, IsTheRatioToAnErrorAtRightAngles) {
  const Signal s = sine(440);
  for (const double amplitude : {1.0, 0.1, 0.003}) {
    EXPECT_NEAR(si_sdr(s, sum(s, sine(1000, amplitude))).value(), -20 * std::log10(amplitude), 1e-9);
  }
}

TEST(SiSdr, CountsThePartOfAnErrorThatResemblesTheSignalAsSignal) {
  const Signal s = sine(440);
  const Signal error = sum(scaled(s, 0.5), sine(1000, 0.1));
  EXPECT_NEAR(si_sdr(s, sum(s, error)).value(), 20 * std::log10(1.5 / 0.1), 1e-9);
}

TEST(SiSdr, DoesNotDependOnLevelOrSign) {
  const Signal s = noise(5000, 0.2);
  const Signal x = sum(s, sine(300, 0.05, 5000));
  const double value = si_sdr(s, x).value();
  EXPECT_NEAR(si_sdr(s, scaled(x, 37)).value(), value, 1e-9);
  EXPECT_NEAR(si_sdr(s, scaled(x, -0.01)).value(), value, 1e-9);
  EXPECT_NEAR(si_sdr(scaled(s, 4), x).value(), value, 1e-9);
}

TEST(SiSdr, IsInfiniteForACopyAndMinusInfiniteForAStranger) {
  EXPECT_EQ(si_sdr(sine(440), scaled(sine(440), 0.5)), kInfinity);
  EXPECT_EQ(si_sdr(Signal{1, 0, 1, 0}, Signal{0, 1, 0, 1}), -kInfinity);
}

TEST(SiSdr, HasNoValueForSilence) {
  EXPECT_EQ(si_sdr(silence(100), sine(440, 1, 100)), std::nullopt);
  EXPECT_EQ(si_sdr(sine(440, 1, 100), silence(100)), std::nullopt);
  EXPECT_EQ(si_sdr({}, {}), std::nullopt);
}

TEST(SegmentalSnr, OfAScaledCopyIsTheLevelOfWhatIsMissing) {
  const Signal s = noise(kSecond, 0.1);
  for (const double g : {0.5, 0.9, 1.2, 2.0, -1.0}) {
    EXPECT_NEAR(segmental_snr(s, scaled(s, g), kRateHz).value(), -20 * std::log10(std::abs(1 - g)), 1e-9) << g;
  }
}

TEST(SegmentalSnr, IsLimitedInEveryFrame) {
  const Signal s = noise(kSecond, 0.1);
  EXPECT_EQ(segmental_snr(s, s, kRateHz), 35);
  EXPECT_EQ(segmental_snr(s, scaled(s, 1.001), kRateHz), 35);
  EXPECT_EQ(segmental_snr(s, scaled(s, 9), kRateHz), -10);
}

TEST(SegmentalSnr, IsAMeanOfDecibels) {
  // Frames of two seconds that lie in one of them see 20 or 0 dB; three see both.
  const Signal s = then(noise(kSecond, 0.1), noise(kSecond, 0.1));
  const Signal x = then(scaled(noise(kSecond, 0.1), 1.1), scaled(noise(kSecond, 0.1), 2));
  EXPECT_NEAR(segmental_snr(s, x, kRateHz).value(), 10, 0.1);
}

/// Sum of the squared weights of a frame: that of sin^4(pi i / (N + 1)) over i from 1 to N.
constexpr double kFrameWeight = 3 * (kSnrFrame + 1) / 8.0;

double squared_weight(std::size_t i) {
  return std::pow(std::sin(std::numbers::pi * static_cast<double>(i + 1) / (kSnrFrame + 1)), 4);
}

TEST(SegmentalSnr, WeighsAFrameWithAHannWindow) {
  const Signal s(kSnrFrame, 1.0);
  for (const std::size_t i : {400u, 700u, 1439u - 350u}) {
    Signal x = s;
    x[i] += 3;
    EXPECT_NEAR(segmental_snr(s, x, kRateHz).value(), 10 * std::log10(kFrameWeight / (9 * squared_weight(i))), 1e-9);
  }
}

TEST(SegmentalSnr, MovesOnByAQuarterOfAFrame) {
  constexpr std::size_t kHop = kSnrFrame / 4;
  const Signal s(kSnrFrame + kHop, 1.0);
  Signal x = s;
  x[700] += 3;
  const double first = 10 * std::log10(kFrameWeight / (9 * squared_weight(700)));
  const double second = 10 * std::log10(kFrameWeight / (9 * squared_weight(700 - kHop)));
  EXPECT_NEAR(segmental_snr(s, x, kRateHz).value(), (first + second) / 2, 1e-9);
}

TEST(SegmentalSnr, LeavesOutFramesOfDigitalSilence) {
  const Signal s = noise(kSecond, 0.1);
  const Signal louder = scaled(s, 1.1);
  const double alone = segmental_snr(s, louder, kRateHz).value();
  const Signal late = then(silence(kSecond), s);
  const double whole =
      segmental_snr(late, then(noise(kSecond - kSnrFrame, 1), then(silence(kSnrFrame), louder)), kRateHz).value();
  EXPECT_NEAR(whole, alone, 1e-9);
}

TEST(SegmentalSnr, HasNoValueWithoutAFrame) {
  EXPECT_EQ(segmental_snr(silence(kSecond), noise(kSecond, 1), kRateHz), std::nullopt);
  EXPECT_EQ(segmental_snr(noise(kSnrFrame - 1, 1), noise(kSnrFrame - 1, 1), kRateHz), std::nullopt);
}

TEST(PauseLevel, IsThatOfTheNoiseBetweenWords) {
  const Signal words = then(sine(500), then(silence(kSecond), sine(500)));
  for (const double rms : {0.1, 0.001}) {
    // The first and the last 10 ms of the pause stand beside words and do not count.
    const Signal inside = noise(kSecond - 960, rms);
    const Signal loud(480, 1.0);
    const Signal test = then(sine(500), then(loud, then(inside, then(loud, sine(500)))));
    EXPECT_NEAR(pause_level(words, test, kRateHz).value(), 20 * std::log10(rms), 1e-9);
  }
}

TEST(PauseLevel, TakesWhatIsMoreThan40DecibelsBelowTheLoudestForAPause) {
  const Signal test = sine(500, 1, 2 * kSecond);
  const double full = 10 * std::log10(0.5);
  EXPECT_NEAR(pause_level(then(sine(500), sine(500, 0.0099)), test, kRateHz).value(), full, 1e-6);
  EXPECT_EQ(pause_level(then(sine(500), sine(500, 0.0101)), test, kRateHz), std::nullopt);
}

TEST(StrokeLevel, IsThatOfThePausesFramesInWhichKeysAreStruck) {
  const Signal words = then(sine(500), then(silence(kSecond), sine(500)));
  const Signal stroke = then(silence(kSecond + 2400), then(noise(480, 0.5), silence(2 * kSecond - 2880)));
  Signal test =
      then(sine(500), then(noise(2400, 0.1), then(noise(480, 0.02), then(noise(kSecond - 2880, 0.1), sine(500)))));
  EXPECT_NEAR(stroke_level(words, test, stroke, kRateHz).value(), 20 * std::log10(0.02), 1e-9);
}

TEST(StrokeLevel, LeavesOutStrokesUnderWordsAndThose30DecibelsBelowTheLoudest) {
  const Signal words = then(sine(500), silence(kSecond));
  const Signal test = noise(2 * kSecond, 0.1);
  const Signal under_words = then(noise(480, 1), silence(2 * kSecond - 480));
  EXPECT_EQ(stroke_level(words, test, under_words, kRateHz), std::nullopt);
  const auto with_second = [&](double rms) {
    return then(noise(480, 1), then(silence(kSecond), then(noise(480, rms), silence(kSecond - 960))));
  };
  EXPECT_EQ(stroke_level(words, test, with_second(0.031), kRateHz), std::nullopt);
  EXPECT_TRUE(stroke_level(words, test, with_second(0.032), kRateHz).has_value());
}

TEST(PauseLevel, IsMinusInfinityForDigitalSilence) {
  const Signal words = then(sine(500), silence(kSecond));
  EXPECT_EQ(pause_level(words, words, kRateHz), -kInfinity);
}

TEST(PauseLevel, HasNoValueWithoutAPause) {
  EXPECT_EQ(pause_level(sine(500), sine(500), kRateHz), std::nullopt);
  EXPECT_EQ(pause_level(silence(kSecond), sine(500), kRateHz), std::nullopt);
  EXPECT_EQ(pause_level({}, {}, kRateHz), std::nullopt);
}

}  // namespace
}  // namespace sonivo::tool
