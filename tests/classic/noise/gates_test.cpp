#include <tuple>
#include <vector>

#include "classic/compressor.h"
#include "classic/recursive_level.h"
#include "classic/spectrum_line.h"
#include "classic/voice_gate.h"
#include "classic/wide_noise.h"
#include "noise_parameters.h"

namespace sonivo::classic {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatEq;

/// Two coarse bands of two fine bands each.
const std::vector<std::uint16_t> kBounds = {0, 2, 4};

FineBands bands(std::initializer_list<float> values) {
  FineBands result{};
  std::copy(values.begin(), values.end(), result.begin());
  return result;
}

const FineBands kLoud = bands({1, 1, 1, 1});
const FineBands kQuiet = bands({});

class VoiceGateTest : public testing::Test {
 protected:
  VoiceGateTest() {
    param.vad_det_gn_th_on = 0.5f;
    param.vad_det_weight_on[0] = 1.0f;
    param.vad_det_weight_on[1] = 2.0f;
    param.vad_det_weight_th_on = 3.0f;
    param.vad_det_count_th_on = 3;
    param.vad_det_gn_th_off = 0.25f;
    param.vad_det_weight_off[0] = 4.0f;
    param.vad_det_weight_off[1] = 1.0f;
    param.vad_det_weight_th_off = 5.0f;
    param.vad_det_count_th_off = 2;
  }

  /// Whether the gate is open after each of the frames.
  std::vector<bool> states(const std::vector<FineBands>& gains) {
    VoiceGate gate(param, kBounds);
    std::vector<bool> open;
    for (const FineBands& gain : gains) {
      gate.process(gain);
      open.push_back(gate.open());
    }
    return open;
  }

  NsNrCommon param{};
};

TEST_F(VoiceGateTest, OpensAtTheCountOfLoudFrames) {
  EXPECT_THAT(states({kLoud, kLoud, kLoud}), ElementsAre(false, false, true));
}

TEST_F(VoiceGateTest, AQuietFrameTakesOneLoudFrameBack) {
  EXPECT_THAT(states({kLoud, kLoud, kQuiet, kLoud, kLoud}), ElementsAre(false, false, false, false, true));
}

TEST_F(VoiceGateTest, QuietFramesCountNothingBelowZero) {
  EXPECT_THAT(states({kQuiet, kQuiet, kLoud, kLoud, kLoud}), ElementsAre(false, false, false, false, true));
}

TEST_F(VoiceGateTest, ClosesAtTheCountOfQuietFramesAndStartsBothCountsAtZero) {
  EXPECT_THAT(states({kLoud, kLoud, kLoud, kQuiet, kLoud, kQuiet, kQuiet, kLoud, kLoud, kLoud}),
              ElementsAre(false, false, true, true, true, true, false, false, false, true));
}

TEST_F(VoiceGateTest, WithCountsOfZeroChangesAtTheFirstFrameThatCallsForIt) {
  param.vad_det_count_th_on = param.vad_det_count_th_off = 0;
  EXPECT_THAT(states({kQuiet, kLoud, kLoud, kQuiet, kQuiet, kLoud}),
              ElementsAre(false, true, true, false, false, true));
}

TEST_F(VoiceGateTest, OpensOnlyAboveTheWeightWithGainsAboveTheThreshold) {
  param.vad_det_count_th_on = 1;
  EXPECT_THAT(states({bands({1, 0, 1, 0})}), ElementsAre(false));        // weight 3, the threshold
  EXPECT_THAT(states({bands({1, 1, 1, 0})}), ElementsAre(true));         // weight 4
  EXPECT_THAT(states({bands({0.5f, 0.5f, 1, 1})}), ElementsAre(true));   // weight 4
  EXPECT_THAT(states({bands({1, 1, 0.5f, 0.5f})}), ElementsAre(false));  // weight 2
}

TEST_F(VoiceGateTest, ClosesOnlyBelowTheWeight) {
  param.vad_det_count_th_on = param.vad_det_count_th_off = 1;
  EXPECT_THAT(states({kLoud, bands({1, 0, 1, 0})}), ElementsAre(true, true));           // weight 5, the threshold
  EXPECT_THAT(states({kLoud, bands({1, 0, 0.25f, 0.25f})}), ElementsAre(true, false));  // weight 4
}

TEST_F(VoiceGateTest, IsClosedAndForgetsItsCountAfterReset) {
  VoiceGate gate(param, kBounds);
  for (int n = 0; n < 5; ++n) gate.process(kLoud);
  gate.process(kQuiet);
  gate.reset();
  EXPECT_FALSE(gate.open());
  gate.process(kLoud);
  gate.process(kLoud);
  EXPECT_FALSE(gate.open());
  gate.process(kLoud);
  EXPECT_TRUE(gate.open());
}

class SuppressionGuardTest : public testing::Test {
 protected:
  SuppressionGuardTest() {
    param.sup_det_gn_th = 0.5f;
    param.sup_det_count_th = 2;
    param.sup_det_weight[0] = 1.0f;
    param.sup_det_weight[1] = 3.0f;
    param.sup_det_weight_th = 4.0f;
  }

  std::vector<bool> answers(const std::vector<FineBands>& gains) {
    SuppressionGuard guard(param, kBounds);
    std::vector<bool> replaced;
    for (const FineBands& gain : gains) replaced.push_back(guard.process(gain));
    return replaced;
  }

  NsNrCommon param{};
};

TEST_F(SuppressionGuardTest, ActsBehindTheCountForAsLongAsTheSuppressionLasts) {
  EXPECT_THAT(answers({kQuiet, kQuiet, kQuiet, kQuiet, kQuiet}), ElementsAre(false, false, true, true, true));
}

TEST_F(SuppressionGuardTest, AFrameThatPassesStartsTheCountAgain) {
  EXPECT_THAT(answers({kQuiet, kQuiet, kQuiet, kLoud, kQuiet, kQuiet, kQuiet}),
              ElementsAre(false, false, true, false, false, false, true));
}

TEST_F(SuppressionGuardTest, TakesTheThresholdItselfForPassing) {
  param.sup_det_count_th = 0;
  EXPECT_THAT(answers({bands({1, 0, 1, 0})}), ElementsAre(false));  // weight 4, the threshold
  EXPECT_THAT(answers({bands({1, 0.5f, 1, 0})}), ElementsAre(false));
  EXPECT_THAT(answers({bands({0.5f, 0, 1, 0})}), ElementsAre(true));  // weight 3
}

TEST_F(SuppressionGuardTest, ForgetsItsCountOnReset) {
  SuppressionGuard guard(param, kBounds);
  for (int n = 0; n < 4; ++n) guard.process(kQuiet);
  guard.reset();
  EXPECT_FALSE(guard.process(kQuiet));
}

class CompressorTest : public testing::Test {
 protected:
  CompressorTest() {
    param.comp_gain = 4.0f;
    param.comp_pwc_up = 0.5f;
    param.comp_pwc_dn = 0.75f;
    param.comp_clip_th = 100.0f;
    param.comp_clip_gain = 0.25f;
  }

  NsNrCommon param{};
};

TEST_F(CompressorTest, MovesFromUnityTowardsItsGainInSpeech) {
  Compressor compressor(param);
  EXPECT_FLOAT_EQ(compressor.process(10.0f, true), 2.5f);      // 0.5 * 4 + 0.5 * 1
  EXPECT_FLOAT_EQ(compressor.process(10.0f, true), 3.25f);     // 0.5 * 4 + 0.5 * 2.5
  EXPECT_FLOAT_EQ(compressor.process(10.0f, false), 2.6875f);  // 0.25 * 1 + 0.75 * 3.25
}

TEST_F(CompressorTest, StaysAtUnityOutsideOfSpeech) {
  Compressor compressor(param);
  EXPECT_EQ(compressor.process(10000.0f, false), 1.0f);
}

TEST_F(CompressorTest, RisesBySlopeBeyondTheClippingThreshold) {
  param.comp_pwc_up = param.comp_pwc_dn = 0.0f;
  Compressor compressor(param);
  EXPECT_FLOAT_EQ(compressor.process(25.0f, true), 4.0f);            // exactly at the threshold
  EXPECT_FLOAT_EQ(compressor.process(50.0f, true), 125.0f / 50.0f);  // (200 - 100) * 0.25 + 100
  EXPECT_FLOAT_EQ(compressor.process(400.0f, true), 475.0f / 400.0f);
}

TEST_F(CompressorTest, FallsToUnityWithTheDownwardCoefficientWhenEqual) {
  param.comp_gain = 1.0f;
  param.comp_pwc_up = NAN;
  Compressor compressor(param);
  EXPECT_EQ(compressor.process(10.0f, true), 1.0f);
}

TEST_F(CompressorTest, StartsAtUnityAgainAfterReset) {
  Compressor compressor(param);
  compressor.process(10.0f, true);
  compressor.reset();
  EXPECT_FLOAT_EQ(compressor.process(10.0f, true), 2.5f);
}

TEST(SpectrumLine, GivesBackTheSpectrumOfTheDelayAgo) {
  for (const std::size_t delay : {0u, 1u, 2u, 5u}) {
    SpectrumLine line(delay);
    for (std::size_t f = 0; f < 12; ++f) {
      std::fill(line.newest().begin(), line.newest().end(), ComplexFloat{float(f + 1), -1.0f});
      const auto O = line.advance();
      ASSERT_EQ(O.size(), std::size_t(kBins));
      const float expected = f < delay ? 0.0f : float(f - delay + 1);
      EXPECT_EQ(O.front().re, expected) << f;
      EXPECT_EQ(O.back().re, expected) << f;
      O.front().re = 1000.0f;  // the caller may change it
    }
    line.reset();
    EXPECT_EQ(line.advance().front().re, 0.0f);
  }
}

class WideNoiseTest : public testing::Test {
 protected:
  /// Thresholds 10, 20 and 40 on the mean of bands 0 and 1.
  static NsNrCommon parameters() {
    NsNrCommon param{};
    param.nw_det_band_min = 5;
    param.nw_det_band_max = 7;
    for (int i = 0; i < kWideLevels; ++i) {
      param.nw_det_th[i] = 10.0f * float(1 << i);
      param.nw_start_nbin[i] = 1;
      param.nw_end_nbin_param[i] = std::uint16_t(i == 2 ? 2 : 1);
      param.freq_dh_pwc[i] = 0.5f;
      param.g_floor_nw[i][0] = float(i + 1);
      param.nw_ns_sub_coef[i][0] = 0.5f;
      param.nw_ns_sub_coef[i][1] = 0.25f;
    }
    return param;
  }

  void process(const FineBands& signal, const FineBands& noise = kQuiet) { wide.process({signal, noise}, kLoud); }
  std::vector<float> component() const { return {wide.component().begin(), wide.component().begin() + 5}; }

  NsNrCommon param = parameters();
  WideNoise wide{param, kBounds};
};

TEST_F(WideNoiseTest, IsNotFoundBelowTheLowestThreshold) {
  process(bands({9.9f, 9.9f, 1000, 1000}));
  EXPECT_FALSE(wide.detected());
  EXPECT_EQ(wide.end(), 0u);
  EXPECT_THAT(wide.component(), Each(0.0f));
}

TEST_F(WideNoiseTest, HasNoComponentAtTheLowestThreshold) {
  process(bands({5, 15}));
  EXPECT_TRUE(wide.detected());
  EXPECT_EQ(wide.end(), 0u);
  EXPECT_THAT(wide.component(), Each(0.0f));
}

TEST_F(WideNoiseTest, TakesTheHighestThresholdExceeded) {
  process(bands({11, 11}));
  EXPECT_EQ(wide.floor()[0], 1.0f);
  process(bands({20, 20}));
  EXPECT_EQ(wide.floor()[0], 1.0f);
  process(bands({40, 40}));
  EXPECT_EQ(wide.floor()[0], 2.0f);
  EXPECT_EQ(wide.end(), 2u);
  process(bands({41, 41}));
  EXPECT_EQ(wide.floor()[0], 3.0f);
  EXPECT_EQ(wide.end(), 4u);
}

TEST_F(WideNoiseTest, TakesAHighThresholdEvenWhenAMiddleOneIsHigher) {
  param.nw_det_th[1] = 1000.0f;
  process(bands({50, 50}));
  EXPECT_EQ(wide.floor()[0], 3.0f);
}

TEST_F(WideNoiseTest, FollowsTheLowBandsAndFallsFromTheirMaximum) {
  param.nw_start_nbin[2] = 2;
  process(bands({100, 60, 80, 40, 70}));
  EXPECT_THAT(component(), ElementsAre(100, 60, 80, 70, 0));  // 0.5 * 100 + 0.5 * 40
}

TEST_F(WideNoiseTest, NeverRises) {
  param.nw_start_nbin[2] = 1;
  process(bands({50, 60, 90, 30}));
  EXPECT_THAT(component(), ElementsAre(50, 60, 50, 40, 0));
}

TEST_F(WideNoiseTest, StartsFromNothingWithoutLowBands) {
  param.nw_start_nbin[2] = 0;
  process(bands({100, 60, 80, 40}));
  EXPECT_THAT(component(), ElementsAre(100, 0, 0, 0, 0));
}

TEST_F(WideNoiseTest, HasNothingToFollowWhenItStartsAtItsEndOrBehind) {
  for (const int start : {2, 3}) {
    process(bands({100, 100, 100, 100}));
    param.nw_start_nbin[2] = std::uint16_t(start);
    param.nw_end_nbin_param[2] = 1;  // two fine bands
    process(bands({50, 60, 90, 30, 70}));
    EXPECT_EQ(wide.end(), 2u);
    EXPECT_THAT(component(), ElementsAre(50, 60, 0, 0, 0)) << start;
    param = parameters();
  }
}

TEST_F(WideNoiseTest, ThatEndsWithTheFirstBandIsFoundAndHasNoComponent) {
  process(bands({100, 100, 100, 100}));
  param.nw_start_nbin[2] = 3;
  param.nw_end_nbin_param[2] = 0;
  process(bands({50, 60, 90, 30}));
  EXPECT_TRUE(wide.detected());
  EXPECT_EQ(wide.end(), 0u);
  EXPECT_THAT(wide.component(), Each(0.0f));
}

/// Levels have 60 places, with zeros behind their bands, and the mean takes as many places as it is told.
TEST_F(WideNoiseTest, IsTheMeanOfMoreBandsThanThereAre) {
  const PwrBlock twenty_bands{.nbin = 20, .pad = 0, .Pin_init = 30.0f, .PWCup = 0.0f, .PWCdn = 0.0f};
  RecursiveLevel level(twenty_bands);
  FineBands input;
  input.fill(30.0f);
  level.process(input);
  FineBands signal;
  std::copy(level.level().begin(), level.level().end(), signal.begin());
  param.nw_det_band_min = 3;
  param.nw_det_band_max = 43;
  for (const auto& [threshold, detected, end] : {std::tuple(14.0f, true, 2u), {15.0f, true, 0u}, {16.0f, false, 0u}}) {
    param.nw_det_th[0] = threshold;  // on a mean of 20 * 30 / 40
    process(signal);
    EXPECT_EQ(wide.detected(), detected) << threshold;
    EXPECT_EQ(wide.end(), end) << threshold;
  }
}

TEST_F(WideNoiseTest, LosesThePartThatIsSteadyNoise) {
  param.nw_start_nbin[2] = 2;
  process(bands({100, 60, 80, 40}), bands({20, 200, 40, 40}));
  EXPECT_THAT(component(), ElementsAre(90, 0, 70, 60, 0));
}

TEST_F(WideNoiseTest, IsGoneWhenTheNextFrameIsQuiet) {
  process(bands({100, 100}));
  process(kQuiet);
  EXPECT_FALSE(wide.detected());
  EXPECT_EQ(wide.end(), 0u);
  EXPECT_THAT(wide.component(), Each(0.0f));
}

TEST_F(WideNoiseTest, ScalesItsComponent) {
  process(bands({50, 60, 90, 30}));
  wide.scale(2.0f);
  EXPECT_THAT(component(), ElementsAre(100, 120, 100, 80, 0));
}

TEST_F(WideNoiseTest, IsGoneAfterReset) {
  process(bands({50, 60, 90, 30}));
  wide.reset();
  EXPECT_FALSE(wide.detected());
  EXPECT_EQ(wide.end(), 0u);
  EXPECT_THAT(wide.component(), Each(0.0f));
}

}  // namespace
}  // namespace sonivo::classic
