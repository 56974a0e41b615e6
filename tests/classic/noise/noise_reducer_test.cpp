#include "classic/noise_reducer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "classic/band_gain.h"
#include "noise_parameters.h"
#include "reference_gain.h"

namespace sonivo::classic {
namespace {

using testing::Each;

/// Signal and noise level of one beam.
struct Levels {
  FineBands signal{}, noise{};

  operator BeamLevels() const { return {signal, noise}; }
};

/// Frames of levels that swell and fade over frequency and time, loud enough for every step of the wide noise.
std::vector<Levels> level_frames(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  std::vector<Levels> frames(count);
  for (std::size_t f = 0; f < count; ++f) {
    const float loudness = 4.0f + 4.0f * std::sin(0.05f * float(f));
    for (std::size_t k = 0; k < kMaxBands; ++k) {
      const float tilt = 2.0f * std::cos(0.08f * float(k));
      frames[f].noise[k] = std::exp(2.5f + tilt + 0.3f * normal(random));
      frames[f].signal[k] = std::max(frames[f].noise[k] * 0.5f, std::exp(loudness + tilt + 0.8f * normal(random)));
    }
  }
  return frames;
}

reference::Signal wide(const FineBands& bands, std::size_t count) { return {bands.begin(), bands.begin() + count}; }

CoarseBounds bounds(const CommonHead& head) { return std::span(head.nbin_param_tbl).first(head.syk1.nbin + 1u); }

void expect_gain(const FineBands& actual, const reference::Signal& expected, std::size_t frame) {
  for (std::size_t k = 0; k < expected.size(); ++k) {
    ASSERT_NEAR(actual[k], expected[k], 2e-5) << "band " << k << " in frame " << frame;
  }
}

class NoiseReducerTest : public testing::TestWithParam<parameters::Bands> {};

TEST_P(NoiseReducerTest, GainOfOneSignalFollowsTheFormulas) {
  const auto param = parameters::one_channel(GetParam(), 0);
  const std::size_t fine = param->head.syk2.nbin;
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  reference::NoiseReducer expected(param->ns_nr.common, fine, param->head.syk1.nbin, param->head.nbin_param_tbl);
  const auto frames = level_frames(400, 21);
  for (std::size_t f = 0; f < frames.size(); ++f) {
    reducer.process(frames[f]);
    expected.one_channel(wide(frames[f].signal, fine), wide(frames[f].noise, fine));
    expect_gain(reducer.gain(), expected.G, f);
    ASSERT_EQ(reducer.speech(), expected.gate) << f;
  }
}

TEST_P(NoiseReducerTest, GainOfTwoBeamsFollowsTheFormulas) {
  const auto param = parameters::two_beams(GetParam(), 0);
  const std::size_t fine = param->head.syk2.nbin;
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  reference::NoiseReducer expected(param->ns_nr.common, fine, param->head.syk1.nbin, param->head.nbin_param_tbl);
  const auto target = level_frames(400, 22), elsewhere = level_frames(400, 23);
  for (std::size_t f = 0; f < target.size(); ++f) {
    reducer.process(target[f], elsewhere[f]);
    const reference::Signal Sg[2] = {wide(target[f].signal, fine), wide(elsewhere[f].signal, fine)};
    const reference::Signal Nl[2] = {wide(target[f].noise, fine), wide(elsewhere[f].noise, fine)};
    expected.two_beams(param->ns_nr, Sg, Nl);
    expect_gain(reducer.gain(), expected.G, f);
    ASSERT_EQ(reducer.speech(), expected.gate) << f;
  }
}

TEST_P(NoiseReducerTest, ASilentReferenceBeamChangesNothing) {
  const auto one = parameters::one_channel(GetParam(), 0);
  const auto two = parameters::two_beams(GetParam(), 0);
  two->ns_nr.nbin_avg_g_L = 0;
  two->ns_nr.nbin_avg_g_H = two->ns_nr.fine_nbin;
  NoiseReducer alone(one->ns_nr, bounds(one->head));
  NoiseReducer beside_silence(two->ns_nr, bounds(two->head));
  const Levels silence;
  for (const Levels& levels : level_frames(300, 24)) {
    alone.process(levels);
    beside_silence.process(levels, silence);
    ASSERT_EQ(alone.gain(), beside_silence.gain());
    ASSERT_EQ(alone.speech(), beside_silence.speech());
  }
}

TEST_P(NoiseReducerTest, RepeatsExactlyAfterReset) {
  const auto param = parameters::two_beams(GetParam(), 0);
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  const auto frames = level_frames(150, 25);
  std::vector<FineBands> first, second;
  for (const Levels& levels : frames) {
    reducer.process(levels, frames[0]);
    first.push_back(reducer.gain());
  }
  reducer.reset();
  EXPECT_THAT(reducer.gain(), Each(0.0f));
  EXPECT_FALSE(reducer.speech());
  for (const Levels& levels : frames) {
    reducer.process(levels, frames[0]);
    second.push_back(reducer.gain());
  }
  EXPECT_EQ(first, second);
}

INSTANTIATE_TEST_SUITE_P(Bands, NoiseReducerTest,
                         testing::Values(parameters::full_bands(), parameters::inner_bands(), parameters::few_bands()),
                         [](const auto& test) {
                           return std::to_string(test.param.fine.size() - 1) + "In" +
                                  std::to_string(test.param.coarse.size() - 1);
                         });

TEST(NoiseReducer, LetsEverythingPassInBypass) {
  const auto param = parameters::one_channel(parameters::full_bands(), 0);
  param->ns_nr.bypass = 1;
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  reducer.process(level_frames(1, 26)[0]);
  EXPECT_THAT(reducer.gain(), Each(1.0f));
  EXPECT_FALSE(reducer.speech());
}

TEST(NoiseReducer, IsBypassedByTheValueOneAlone) {
  const auto param = parameters::one_channel(parameters::full_bands(), 0);
  param->ns_nr.bypass = 2;
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  reducer.process(level_frames(1, 26)[0]);
  EXPECT_LT(reducer.gain()[0], 1.0f);
}

TEST(NoiseReducer, ShutsFineBandsOutsideOfAllCoarseBands) {
  const auto param = parameters::one_channel(parameters::inner_bands(), 0);
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  for (const Levels& levels : level_frames(100, 27)) reducer.process(levels);
  EXPECT_EQ(reducer.gain()[0], 0.0f);
  EXPECT_GT(reducer.gain()[1], 0.0f);
  EXPECT_GT(reducer.gain()[57], 0.0f);
  EXPECT_EQ(reducer.gain()[58], 0.0f);
}

TEST(NoiseReducer, FadesInFromZero) {
  const auto param = parameters::one_channel(parameters::full_bands(), 0);
  NsNrCommon& common = param->ns_nr.common;
  for (float& c : common.pwc_g_up_noise) c = 0.75f;
  for (float& c : common.pwc_g_up_voice) c = 0.75f;
  common.gn_nl_thi1 = common.gn_nl_tho1 = 0.25f;
  common.gn_nl_thi2 = common.gn_nl_tho2 = 0.5f;
  parameters::set_slopes(common);
  Levels clean;
  clean.signal.fill(100.0f);  // far above a noise of zero: the raw gain is 1
  for (float& c : common.nw_det_th) c = 1e6f;
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  for (const float expected : {0.25f, 0.4375f, 0.578125f}) {
    reducer.process(clean);
    EXPECT_NEAR(reducer.gain()[10], expected, 1e-6f);
  }
}

/// The gain of a band where all is signal: its raw gain is exactly 1, and the curve alone decides.
class GainCurve : public testing::Test {
 protected:
  float gain_of_one(float thi1, float thi2) {
    NsNrCommon& common = param->ns_nr.common;
    common.gn_nl_thi1 = thi1;
    common.gn_nl_thi2 = thi2;
    common.gn_nl_tho1 = 0.25f;
    common.gn_nl_tho2 = 0.5f;
    const float slope[] = {0.125f, 2.0f, 3.0f};  // segments that don't meet tell which one was taken
    std::copy_n(slope, 3, common.gn_nl_slope);
    for (float* c : {common.pwc_g_up_noise, common.pwc_g_up_voice}) std::fill_n(c, kCoarseBands, 0.0f);
    std::fill_n(common.nw_det_th, kWideLevels, 1e6f);
    NoiseReducer reducer(param->ns_nr, bounds(param->head));
    Levels clean;
    clean.signal.fill(100.0f);
    reducer.process(clean);
    return reducer.gain()[10];
  }

  std::unique_ptr<KeyCancelParam> param = parameters::one_channel(parameters::full_bands(), 0);
};

TEST_F(GainCurve, TakesTheFirstSegmentBelowTheFirstKnot) { EXPECT_EQ(gain_of_one(1.5f, 2.0f), 0.125f); }

TEST_F(GainCurve, TakesTheSecondSegmentFromTheFirstKnotOn) {
  EXPECT_EQ(gain_of_one(1.0f, 2.0f), 0.25f);
  EXPECT_EQ(gain_of_one(0.75f, 2.0f), 0.75f);  // 0.25 * 2 + 0.25
}

TEST_F(GainCurve, TakesTheThirdSegmentFromTheSecondKnotOn) {
  EXPECT_EQ(gain_of_one(0.5f, 1.0f), 0.5f);
  EXPECT_EQ(gain_of_one(0.5f, 0.75f), 1.25f);  // 0.25 * 3 + 0.5
}

TEST(NoiseReducer, VoiceGateSeesTheGainBeforeTheGuardReplacesIt) {
  const auto param = parameters::one_channel(parameters::full_bands(), 0);
  NsNrCommon& common = param->ns_nr.common;
  std::fill_n(common.nw_det_th, kWideLevels, 1e6f);
  common.sup_det_weight_th = 1e6f;  // the guard acts in all frames
  common.sup_det_count_th = 0;
  common.vad_det_count_th_on = 1;
  Levels clean;
  clean.signal.fill(100.0f);
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  reducer.process(clean);
  EXPECT_TRUE(reducer.speech());
  EXPECT_EQ(reducer.gain()[10], 0.0f);
}

TEST(NoiseReducer, BandsOfNoNumberEndNothing) {
  const auto param = parameters::two_beams(parameters::full_bands(), 0);
  param->ns_nr.common.nw_det_band_max = param->ns_nr.common.nw_det_band_min;
  NoiseReducer reducer(param->ns_nr, bounds(param->head));
  Levels levels;
  levels.signal.fill(NAN);
  levels.noise.fill(INFINITY);
  reducer.process(levels, levels);
  EXPECT_FALSE(reducer.speech());
}

TEST(BandGain, MultipliesEachBandAndSumsTheMagnitudes) {
  BandTable table{};
  parameters::set_bands(table, {1, 2, 5, 511});
  std::array<ComplexFloat, kBins> spectrum;
  spectrum.fill({1.0f, -2.0f});
  const float sum = apply_band_gain(table, std::array{2.0f, -3.0f, 0.5f}, spectrum);
  EXPECT_EQ(sum, 6.0f + 3 * 9.0f + 506 * 1.5f);
  for (std::size_t k = 0; k < kBins; ++k) {
    const float g = k < 1 ? 0.0f : k < 2 ? 2.0f : k < 5 ? -3.0f : k < 511 ? 0.5f : 0.0f;
    EXPECT_EQ(spectrum[k].re, g) << k;
    EXPECT_EQ(spectrum[k].im, -2.0f * g) << k;
  }
}

TEST(BandGain, ReachesAllBins) {
  for (int edge = 505; edge <= 511; ++edge) {
    BandTable table{};
    parameters::set_bands(table, {0, edge, 512});
    std::array<ComplexFloat, kBins> spectrum;
    spectrum.fill({1.0f, 1.0f});
    EXPECT_EQ(apply_band_gain(table, std::array{1.0f, 3.0f}, spectrum), float(2 * edge + 6 * (512 - edge)));
    EXPECT_EQ(spectrum[std::size_t(edge) - 1].im, 1.0f);
    EXPECT_EQ(spectrum[std::size_t(edge)].re, 3.0f);
    EXPECT_EQ(spectrum[511].im, 3.0f);
  }
}

}  // namespace
}  // namespace sonivo::classic
