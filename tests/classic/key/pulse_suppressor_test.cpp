#include "classic/pulse_suppressor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "key_parameters.h"
#include "reference_suppressor.h"

namespace sonivo::classic::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatNear;
using testing::Pointwise;

using Bands = std::vector<float>;

template <std::size_t N>
void all(float (&field)[N], float value) {
  std::fill(field, field + N, value);
}

/// Six pulse bands in two prm bands and two ui bands. Levels are not smoothed, nor is the gain; the whole peak T is
/// taken out and nothing put back, so that the gain is 1 - T / P. A jump counts from 2 on and in full above 4; peaks
/// halve.
PulsePath bare() {
  PulsePath path = key_parameters();
  set_pulse_bands(path, {0, 4, 8, 12, 16, 20, 24});
  set_prm_bands(path, {0, 3, 6});
  set_ui_bands(path, {0, 2, 6});
  PulseSupBlock& sup = path.pulse_sup;
  for (auto* field : {&sup.g_floor, &sup.pwc_g_up, &sup.pwc_g_up_tail, &sup.pwc_g_dn, &sup.mask_coef})
    all(*field, 0.0f);
  for (auto* field : {&sup.sig_np_sub_coef_voice, &sup.sig_np_sub_coef_noise, &sup.np_mgn_voice, &sup.np_mgn_noise}) {
    all(*field, 1.0f);
  }
  all(sup.min_diff_p, 2.0f);
  all(sup.pwc_np_dn, 0.5f);
  all(sup.pwc_npm_dn, 0.5f);
  sup.min_diff_p2max_diff_p = 2.0f;
  sup.pwc_g_up2pwc_in_up = sup.pwc_g_dn2pwc_in_dn = 0.0f;
  sup.g_enf_coef_noise = sup.g_enf_coef_voice = 1.0f;
  sup.npm_num = 0;
  sup.sup_det_fnum_th = 0;
  std::fill(sup.det_keep_num, sup.det_keep_num + 5, std::uint16_t{1});
  return path;
}

class SuppressorTest : public testing::Test {
 protected:
  /// The gain at a level of 8 in all bands.
  static Bands frame(PulseSuppressor& suppressor, const Bands& R) {
    suppressor.process(Bands(6, 8.0f), R);
    return {suppressor.gain().begin(), suppressor.gain().end()};
  }
  static Bands frame(PulseSuppressor& suppressor, float R) { return frame(suppressor, Bands(6, R)); }

  static auto near(Bands expected) { return Pointwise(FloatNear(1e-5f), expected); }

  PulsePath path = bare();
  PulseSupBlock& sup = path.pulse_sup;
};

TEST_F(SuppressorTest, LeavesASteadyLevelAlone) {
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 1.0f), near(Bands(6, 1.0f)));
  EXPECT_THAT(frame(suppressor, 1.99f), near(Bands(6, 1.0f)));
}

TEST_F(SuppressorTest, AJumpCountsInProportionFromItsThresholdToTwiceThat) {
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, {0.0f, 2.0f, 2.5f, 3.0f, 4.0f, 4.1f}), near({1.0f, 1.0f, 0.75f, 0.5f, 0.0f, 0.0f}));
}

TEST_F(SuppressorTest, AJumpExactlyAtTheUpperThresholdIsNotKept) {
  std::fill(sup.det_keep_num, sup.det_keep_num + 5, std::uint16_t{3});
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, {0.0f, 0.0f, 0.0f, 0.0f, 4.0f, 4.01f}), near({1.0f, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f}));
  EXPECT_THAT(frame(suppressor, 0.0f), near({1.0f, 1.0f, 1.0f, 1.0f, 0.5f, 0.0f}));
  EXPECT_THAT(frame(suppressor, 0.0f), near({1.0f, 1.0f, 1.0f, 1.0f, 0.75f, 0.0f}));
  EXPECT_THAT(frame(suppressor, 0.0f), near({1.0f, 1.0f, 1.0f, 1.0f, 0.875f, 0.5f}));
}

TEST_F(SuppressorTest, WithBothThresholdsInOneAJumpCountsInFullAboveItAndNotAtAllUpToIt) {
  sup.min_diff_p2max_diff_p = 1.0f;
  PulseSuppressor suppressor(path);
  const float above = std::nextafter(2.0f, 3.0f);
  EXPECT_THAT(frame(suppressor, {0.0f, 1.99f, 2.0f, above, above, 9.0f}), near({1.0f, 1.0f, 1.0f, 0.0f, 0.0f, 0.0f}));
  EXPECT_THAT(frame(suppressor, {2.0f, 1.0f, above, 2.0f, 1.0f, 2.0f}), near({1.0f, 1.0f, 0.0f, 0.5f, 0.5f, 0.5f}));
}

TEST_F(SuppressorTest, AJumpIsKeptForTheSubBlocksOfItsUiBand) {
  sup.det_keep_num[0] = 1;
  sup.det_keep_num[1] = 2;
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 9.0f), near(Bands(6, 0.0f)));
  EXPECT_THAT(frame(suppressor, 0.0f), near({0.5f, 0.5f, 0.0f, 0.0f, 0.0f, 0.0f}));
  EXPECT_THAT(frame(suppressor, 0.0f), near({0.75f, 0.75f, 0.5f, 0.5f, 0.5f, 0.5f}));
}

TEST_F(SuppressorTest, ThresholdsGoByUiBandAndDecayByPrmBand) {
  sup.min_diff_p[1] = 4.0f;
  sup.pwc_np_dn[1] = 0.25f;
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 6.0f), near({0.0f, 0.0f, 0.5f, 0.5f, 0.5f, 0.5f}));
  EXPECT_THAT(frame(suppressor, 0.0f), near({0.5f, 0.5f, 0.75f, 0.875f, 0.875f, 0.875f}));
}

TEST_F(SuppressorTest, TheLevelIsSmoothedByTheCoefficientsOfTheGain) {
  sup.pwc_g_up2pwc_in_up = 0.8f;
  sup.pwc_g_dn2pwc_in_dn = 0.5f;
  all(sup.pwc_g_up, 0.6f);  // level: 1 - 0.4 / 0.8 = 0.5
  all(sup.pwc_g_dn, 0.9f);  // level: 1 - 0.1 / 0.5 = 0.8
  all(sup.pwc_np_dn, 1.0f);
  PulseSuppressor suppressor(path);
  // P rises to 4, T = 4 and stays; P rises to 6, falls to 0.8 * 6
  Bands R(6, 5.0f);
  suppressor.process(Bands(6, 8.0f), R);
  R.assign(6, 0.0f);
  EXPECT_THAT(suppressor.gain(), Each(FloatNear(0.0f, 1e-6f)));
  suppressor.process(Bands(6, 8.0f), R);  // r = 2 / 6
  EXPECT_THAT(suppressor.gain(), Each(FloatNear(0.4f * 2.0f / 6.0f, 1e-5f)));
  const float g = suppressor.gain()[0];
  suppressor.process(Bands(6, 0.0f), R);  // r = 0.8 / 4.8
  const float r = 0.8f / 4.8f;
  EXPECT_THAT(suppressor.gain(), Each(FloatNear(0.6f * g + 0.4f * r, 1e-5f)));
}

TEST_F(SuppressorTest, ACoefficientBelowTheRatioSmoothsNotAtAll) {
  sup.pwc_g_up2pwc_in_up = sup.pwc_g_dn2pwc_in_dn = 0.5f;  // 1 - 1 / 0.5 < 0
  all(sup.pwc_np_dn, 1.0f);
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 3.0f), near(Bands(6, 0.5f)));
  EXPECT_THAT(frame(suppressor, 0.0f), near(Bands(6, 0.5f)));
}

TEST_F(SuppressorTest, ProductsAreThoseOfTheGroups) {
  sup.npm_num = 3;
  sup.npm_band_num[0] = 3;
  sup.npm_band_num[1] = 0;
  sup.npm_band_num[2] = 1;
  sup.npm_band[0][0] = 0;
  sup.npm_band[0][1] = 2;
  sup.npm_band[0][2] = 5;
  sup.npm_band[2][0] = 4;
  PulseSuppressor suppressor(path);
  EXPECT_THAT(suppressor.products(), ElementsAre(0.0f, 0.0f, 0.0f));
  frame(suppressor, {1.5f, 9.0f, 2.0f, 9.0f, 0.25f, 3.0f});
  EXPECT_THAT(suppressor.products(), ElementsAre(9.0f, 1.0f, 0.25f));
}

class WideStroke : public SuppressorTest {
 protected:
  WideStroke() {
    sup.npm_num = 1;
    sup.npm_band_num[0] = 2;
    sup.npm_band[0][0] = 0;
    sup.npm_band[0][1] = 5;
    sup.min_npm_det[0] = 0.5f;
    sup.min_npm_det2max_npm_det = 4.0f;  // above a product of 2
    sup.det_keep_npm_num[0] = 3;
  }
  const Bands jump = {1.5f, 1.0f, 1.0f, 1.0f, 1.0f, 1.5f};  // product 2.25, no band jumps by itself
};

TEST_F(WideStroke, RaisesAllBandsForItsSubBlocks) {
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, jump), near(Bands(6, 0.0f)));
  EXPECT_THAT(frame(suppressor, 1.0f), near(Bands(6, 0.0f)));
  EXPECT_THAT(frame(suppressor, 1.0f), near(Bands(6, 0.0f)));
  EXPECT_THAT(frame(suppressor, 1.0f), near(Bands(6, 0.5f)));
  EXPECT_THAT(frame(suppressor, 1.0f), near(Bands(6, 0.75f)));
}

TEST_F(WideStroke, MustExceedTheThreshold) {
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, {2.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f}), near(Bands(6, 1.0f)));
}

TEST_F(WideStroke, DecaysByPrmBand) {
  sup.pwc_npm_dn[1] = 0.25f;
  sup.det_keep_npm_num[0] = 1;
  PulseSuppressor suppressor(path);
  frame(suppressor, jump);
  EXPECT_THAT(frame(suppressor, 1.0f), near({0.5f, 0.5f, 0.5f, 0.75f, 0.75f, 0.75f}));
}

TEST_F(WideStroke, RaisesBandsOfNoPrmBandToo) {
  set_prm_bands(path, {0, 3});
  sup.det_keep_npm_num[0] = 1;
  all(sup.g_floor, 0.25f);
  PulseSuppressor suppressor(path);
  // Without a prm band there is no clean level: the gain is the floor, or 1 where nothing was raised at all.
  frame(suppressor, jump);
  EXPECT_THAT(frame(suppressor, 1.0f), near({0.625f, 0.625f, 0.625f, 0.25f, 0.25f, 0.25f}));
}

TEST_F(SuppressorTest, BandsOfNoUiBandStaySilent) {
  set_ui_bands(path, {1, 2, 4});
  PulseSuppressor suppressor(path);
  frame(suppressor, 1.0f);
  EXPECT_THAT(frame(suppressor, 1.0f), near({0.0f, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f}));
}

TEST_F(SuppressorTest, FloorAndMaskingGiveBack) {
  sup.g_floor[0] = 0.1f;
  sup.g_floor[1] = 0.2f;
  PulseSuppressor floored(path);
  EXPECT_THAT(frame(floored, 9.0f), near({0.1f, 0.1f, 0.2f, 0.2f, 0.2f, 0.2f}));
  all(sup.g_floor, 0.0f);
  all(sup.mask_coef, 0.5f);
  all(sup.mask_pwc_up, 0.5f);
  all(sup.mask_pwc_dn, 0.25f);
  PulseSuppressor masked(path);
  // clean level 8 in band 2 only, spread to 4 and 2 above, 2 and 0.5 below, halved; band 2 gets its own half beside it
  EXPECT_THAT(frame(masked, {9.0f, 9.0f, 0.0f, 9.0f, 9.0f, 9.0f}),
              near({0.03125f, 0.125f, 1.0f, 0.25f, 0.125f, 0.0625f}));
}

TEST_F(SuppressorTest, TheWeightsOfVoiceComeFromTheLatestAverageGain) {
  sup.avg_g_thi1 = 0.25f;
  sup.avg_g_thi2 = 0.75f;
  sup.avg_g_tho1 = 0.25f;
  sup.avg_g_tho2 = 0.75f;
  all(sup.avg_g_slope, 1.0f);  // the average itself
  all(sup.sig_np_sub_coef_noise, 1.0f);
  all(sup.sig_np_sub_coef_voice, 0.0f);
  all(sup.g_floor, 0.5f);
  all(sup.np_mgn_noise, 1.0f);
  all(sup.np_mgn_voice, 3.0f);
  sup.g_enf_coef_voice = 0.5f;
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 9.0f), near(Bands(6, 0.5f))) << "average 0: noise alone";
  // average 0.5: C = 8 - 0.5 * 8, T = 2 * 8, e = 0.75; (4 + 8) * 0.75 / (16 + 4)
  EXPECT_THAT(frame(suppressor, 9.0f), near(Bands(6, 0.45f)));
}

TEST_F(SuppressorTest, FallsRisesAndCreepsByTheCoefficientsOfTheUiBand) {
  all(sup.pwc_g_up, 0.5f);
  all(sup.pwc_g_up_tail, 0.75f);
  all(sup.pwc_g_up_tail_th, 0.5f);
  all(sup.pwc_g_dn, 0.25f);
  sup.pwc_g_up[0] = 0.75f;
  sup.g_enf_coef_noise = sup.g_enf_coef_voice = 2.0f;  // an open band's raw gain is 1 exactly
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 1.0f), near({0.25f, 0.25f, 0.5f, 0.5f, 0.5f, 0.5f}));
  // 0.5 is not above the threshold of the tail
  EXPECT_THAT(frame(suppressor, 1.0f), near({0.4375f, 0.4375f, 0.75f, 0.75f, 0.75f, 0.75f}));
  EXPECT_NEAR(frame(suppressor, 1.0f)[5], 0.8125f, 1e-5f);
  EXPECT_NEAR(frame(suppressor, 9.0f)[5], 0.203125f, 1e-5f);
}

TEST_F(SuppressorTest, AfterLongSuppressionNothingOpensBeyondItsFloor) {
  sup.sup_det_gn_th = 0.5f;
  sup.sup_det_fnum_th = 3;
  sup.sup_det_count_th = 2;
  all(sup.g_floor, 0.25f);
  PulseSuppressor suppressor(path);
  // two open bands are too few
  const Bands few = {1.0f, 1.0f, 9.0f, 9.0f, 9.0f, 9.0f};
  const Bands open = {1.0f, 1.0f, 0.25f, 0.25f, 0.25f, 0.25f};
  EXPECT_THAT(frame(suppressor, few), near(open));
  EXPECT_THAT(frame(suppressor, few), near(open));
  EXPECT_THAT(frame(suppressor, few), near(Bands(6, 0.25f)));
  EXPECT_THAT(frame(suppressor, few), near(Bands(6, 0.25f)));
  // three are enough and start the count again
  const Bands enough = {1.0f, 1.0f, 1.0f, 9.0f, 9.0f, 9.0f};
  EXPECT_NEAR(frame(suppressor, enough)[0], 1.0f, 1e-5f);
  EXPECT_NEAR(frame(suppressor, few)[0], 1.0f, 1e-5f);
  EXPECT_NEAR(frame(suppressor, few)[0], 1.0f, 1e-5f);
  EXPECT_NEAR(frame(suppressor, few)[0], 0.25f, 1e-5f);
}

TEST_F(SuppressorTest, AGainAtTheGuardsThresholdIsNotOpen) {
  sup.g_enf_coef_noise = sup.g_enf_coef_voice = 2.0f;
  sup.sup_det_gn_th = 1.0f;
  sup.sup_det_fnum_th = 1;
  sup.sup_det_count_th = 0;
  all(sup.g_floor, 0.25f);
  PulseSuppressor suppressor(path);
  EXPECT_THAT(frame(suppressor, 1.0f), Each(0.25f));
}

TEST_F(SuppressorTest, BypassGivesUnityAndMovesNothing) {
  PulseSuppressor suppressor(path);
  frame(suppressor, 9.0f);
  sup.bypass = 1;
  EXPECT_THAT(frame(suppressor, 9.0f), Each(1.0f));
  sup.bypass = 0;
  EXPECT_THAT(frame(suppressor, 0.0f), near(Bands(6, 0.5f)));
}

TEST_F(SuppressorTest, ResetStartsFromSilence) {
  PulseSuppressor suppressor(path);
  EXPECT_THAT(suppressor.gain(), Each(0.0f));
  frame(suppressor, 9.0f);
  suppressor.reset();
  EXPECT_THAT(suppressor.gain(), Each(0.0f));
  EXPECT_THAT(frame(suppressor, 0.0f), near(Bands(6, 1.0f)));
}

class SuppressorReference : public testing::TestWithParam<KeySet> {};

TEST_P(SuppressorReference, AgreesOnRandomJumps) {
  const PulsePath& path = GetParam().path;
  PulseSuppressor suppressor(path);
  reference::Suppressor expected(path);
  const std::size_t bands = path.pulse_sup.pulse_nbin;
  std::mt19937 random(13);
  std::lognormal_distribution<float> level(5.0f, 1.0f);
  std::lognormal_distribution<float> calm(-0.5f, 0.5f), jumping(0.8f, 0.6f);
  Bands X(bands), R(bands);
  for (int i = 0; i < 4000; ++i) {
    for (float& x : X) x = level(random);
    const bool jump = random() % 15 == 0;
    const bool long_jump = i % 1000 > 900;
    for (float& ratio : R) ratio = jump || long_jump ? jumping(random) : calm(random);
    suppressor.process(X, R);
    expected.process({X.begin(), X.end()}, {R.begin(), R.end()});
    for (std::size_t k = 0; k < bands; ++k) {
      ASSERT_NEAR(suppressor.gain()[k], expected.g[k], 1e-4) << i << ", band " << k;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sets, SuppressorReference, testing::ValuesIn(key_sets()),
                         [](const auto& set) { return set.param.name; });

}  // namespace
}  // namespace sonivo::classic::test
