#include "classic/pulse_noise.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "key_parameters.h"
#include "reference_key_stage.h"

namespace sonivo::classic::test {
namespace {

PulseSpectrum frame(PulseNoise& noise, const std::vector<float>& g, const std::vector<float>& Nl) {
  noise.process(g, Nl);
  return noise.spectrum();
}

TEST(NoiseGenerator, GivesTheSameSamplesOneByOneAndSixtyFourAtATime) {
  NoiseGenerator single, block;
  for (int i = 0; i < 2000; ++i) {
    const std::uint64_t bits = block.next64();
    for (int n = 63; n >= 0; --n) ASSERT_EQ(single.next(), (bits >> n & 1u) != 0 ? 1 : -1) << i;
  }
}

class PulseNoiseTest : public testing::Test {
 protected:
  PulseNoiseTest() {
    path.ngen_f_pulse.init_wait = 0;
    for (float& floor : path.ngen_f_pulse.min_nl) floor = 0.0f;
  }

  /// The sum of |re| + |im| over the bins of each band, after ten sub-blocks.
  std::vector<float> loudness(const std::vector<float>& g, const std::vector<float>& Nl) {
    PulseNoise noise(path);
    PulseSpectrum Q;
    for (int i = 0; i < 10; ++i) Q = frame(noise, g, Nl);
    std::vector<float> sums(16);
    for (std::size_t bin = 0; bin < kPulseBins; ++bin) sums[bin / 4] += std::abs(Q[bin].re) + std::abs(Q[bin].im);
    return sums;
  }

  PulsePath path = key_parameters();
  const std::vector<float> closed = std::vector<float>(16, 0.0f);
  const std::vector<float> open = std::vector<float>(16, 1.0f);
  const std::vector<float> level = std::vector<float>(16, 1000.0f);
};

TEST_F(PulseNoiseTest, IsSilentDuringInitWaitAndThenStartsItsSequence) {
  path.ngen_f_pulse.init_wait = 2;
  PulseNoise late(path);
  for (int i = 0; i < 2; ++i) {
    for (const ComplexFloat& bin : frame(late, closed, level)) EXPECT_TRUE(bin.re == 0.0f && bin.im == 0.0f);
  }
  PulsePath early_path = path;
  early_path.ngen_f_pulse.init_wait = 0;
  PulseNoise early(early_path);
  const PulseSpectrum Q = frame(late, closed, level), expected = frame(early, closed, level);
  for (std::size_t k = 0; k < kPulseBins; ++k) EXPECT_TRUE(Q[k].re == expected[k].re && Q[k].im == expected[k].im);
}

TEST_F(PulseNoiseTest, IsSilentWhereTheGainReachesItsTarget) {
  std::vector<float> g(16, 0.2f);
  g[3] = 0.5f;  // target of the first prm band
  const std::vector<float> sums = loudness(g, level);
  EXPECT_GT(sums[2], 0.0f);
  EXPECT_EQ(sums[3], 0.0f);
}

TEST_F(PulseNoiseTest, GrowsWithTheCutAndWithTheNoiseLevel) {
  const std::vector<float> full = loudness(closed, level);
  const std::vector<float> half = loudness(std::vector<float>(16, 0.25f), level);
  const std::vector<float> louder = loudness(closed, std::vector<float>(16, 3000.0f));
  EXPECT_NEAR(half[0], 0.5f * full[0], 1e-5f * full[0]);    // 0.5 - 0.25 over 0.5
  EXPECT_NEAR(half[5], 0.375f * full[5], 1e-5f * full[5]);  // 0.4 - 0.25 over 0.4
  EXPECT_NEAR(louder[9], 3.0f * full[9], 1e-5f * louder[9]);
}

TEST_F(PulseNoiseTest, NeverFallsBelowItsFloor) {
  for (float& floor : path.ngen_f_pulse.min_nl) floor = 250.0f;
  const std::vector<float> floor = loudness(open, level);
  path.ngen_f_pulse.min_nl[0] = 500.0f;
  const std::vector<float> raised = loudness(open, level);
  EXPECT_NEAR(raised[0], 2.0f * floor[0], 1e-5f * raised[0]);
  EXPECT_EQ(raised[1], floor[1]);
  // 0.5 * 1000 * 1.0 reaches beyond 250
  EXPECT_NEAR(loudness(closed, level)[1], 2.0f * floor[1], 1e-4f * floor[1]);
}

TEST_F(PulseNoiseTest, BinsOfNoBandStayWhite) {
  set_pulse_bands(path, {4, 8, 12});
  set_prm_bands(path, {0, 1});
  PulseNoise noise(path), white(path);
  const PulseSpectrum Q = frame(noise, open, level);
  for (std::size_t k = 0; k < kPulseBins; ++k) {
    const float magnitude = std::abs(Q[k].re) + std::abs(Q[k].im);
    if (k >= 4 && k < 8) {
      EXPECT_EQ(magnitude, 0.0f) << k;
    } else {
      EXPECT_GT(magnitude, 0.0f) << k;
    }
  }
}

TEST_F(PulseNoiseTest, ResetStartsTheSequenceAnew) {
  path.ngen_f_pulse.init_wait = 1;
  PulseNoise noise(path);
  std::vector<PulseSpectrum> first(5), second(5);
  for (PulseSpectrum& Q : first) Q = frame(noise, closed, level);
  noise.reset();
  for (PulseSpectrum& Q : second) Q = frame(noise, closed, level);
  for (std::size_t i = 0; i < 5; ++i) {
    for (std::size_t k = 0; k < kPulseBins; ++k) {
      EXPECT_EQ(first[i][k].re, second[i][k].re);
      EXPECT_EQ(first[i][k].im, second[i][k].im);
    }
  }
}

/// What a level means in samples: cut towards 0, held within 16 bits, silence for what is no number.
struct Amplitude {
  float lvl;
  float plus, minus;
};

class PulseNoiseAmplitude : public testing::TestWithParam<Amplitude> {};

TEST_P(PulseNoiseAmplitude, IsThatOfSixteenBitSamples) {
  PulsePath path = key_parameters();
  path.ngen_f_pulse.init_wait = 0;
  path.ngen_f_pulse.lvl = GetParam().lvl;
  for (float& floor : path.ngen_f_pulse.min_nl) floor = 1000.0f;  // as it comes
  PulseNoise noise(path);
  reference::History history;
  NoiseGenerator generator;
  const std::vector<float> open(16, 1.0f);
  for (int i = 0; i < 4; ++i) {
    reference::Vector samples(64);
    for (double& x : samples) x = static_cast<double>(generator.next() == 1 ? GetParam().plus : GetParam().minus);
    history.push(samples);
    const reference::Spectrum expected = reference::one_signal(path.ana_pulse, history);
    const PulseSpectrum Q = frame(noise, open, open);
    const double tolerance = 1e-5 * std::abs(static_cast<double>(GetParam().plus));
    for (std::size_t k = 0; k < kPulseBins; ++k) {
      ASSERT_NEAR(Q[k].re, expected[k].real(), tolerance) << k;
      ASSERT_NEAR(Q[k].im, expected[k].imag(), tolerance) << k;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, PulseNoiseAmplitude,
                         testing::Values(Amplitude{100.0f, 100.0f, -100.0f}, Amplitude{99.9f, 99.0f, -99.0f},
                                         Amplitude{0.9f, 0.0f, 0.0f}, Amplitude{-7.5f, -7.0f, 7.0f},
                                         Amplitude{32767.5f, 32767.0f, -32767.0f},
                                         Amplitude{40000.0f, 32767.0f, -32768.0f},
                                         Amplitude{-1e30f, -32768.0f, 32767.0f},
                                         Amplitude{std::numeric_limits<float>::infinity(), 32767.0f, -32768.0f},
                                         Amplitude{std::numeric_limits<float>::quiet_NaN(), 0.0f, 0.0f}));

}  // namespace
}  // namespace sonivo::classic::test
