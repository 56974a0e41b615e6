#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "classic/noise_reduction.h"
#include "noise_parameters.h"
#include "reference_stage.h"
#include "signals.h"

namespace sonivo::classic {
namespace {

using testing::Each;
using testing::Ge;

using signals::operator*;
using signals::operator+;
using signals::Samples;

constexpr std::size_t kFrames = 400;
constexpr std::size_t kLength = kFrames * kHop;

struct Input {
  std::vector<Samples> clean, raw;  ///< of each beam
};

/// The named signal as the target, with more noise before the key stage than behind it.
Input one_signal(const std::string& name) {
  const Samples x = signals::by_name(name, kLength);
  return {{x}, {x + signals::clicks(kLength, 3000.0, 5) + signals::noise(kLength, 15.0, 6)}};
}

/// The same with a second beam that hears some of the target and noise of its own.
Input two_signals(const std::string& name) {
  Input input = one_signal(name);
  const Samples elsewhere = signals::swelling_noise(kLength, 600.0, 7);
  const Samples reference = 0.2f * input.clean[0] + elsewhere;
  input.clean[0] = input.clean[0] + 0.3f * elsewhere;
  input.clean.push_back(reference);
  input.raw.push_back(reference + signals::clicks(kLength, 2000.0, 8));
  return input;
}

/// Sines in the middle of the band: bin 0 has half the scale of the others, and bin N / 2 never comes through.
Samples mid_band(double amplitude) {
  Samples x(kLength);
  for (std::size_t n = 0; n < kLength; ++n) {
    for (const double hz : {3170.0, 5010.0, 8830.0, 14300.0}) {
      x[n] += float(amplitude * std::sin(signals::kTurn * hz * signals::seconds(n)));
    }
  }
  return x;
}

std::span<const float> frame(const Samples& x, std::size_t index) { return std::span(x).subspan(index * kHop, kHop); }

/// A frame of one signal; the interface of the two-beam stage.
struct OneSignal {
  explicit OneSignal(const KeyCancelParam& param) : stage(param) {}
  void process(const Input& input, std::size_t f, std::span<float> out) {
    stage.process(frame(input.clean[0], f), frame(input.raw[0], f), out);
  }
  NoiseReduction stage;
};

struct TwoSignals {
  explicit TwoSignals(const BeamFormingKeyCancelParam& param) : stage(param) {}
  void process(const Input& input, std::size_t f, std::span<float> out) {
    stage.process({frame(input.clean[0], f), frame(input.clean[1], f)},
                  {frame(input.raw[0], f), frame(input.raw[1], f)}, out);
  }
  TwoBeamNoiseReduction stage;
};

template <typename Stage>
Samples run(Stage& stage, const Input& input, std::size_t frames, std::vector<bool>* voice = nullptr) {
  Samples out(frames * kHop);
  for (std::size_t f = 0; f < frames; ++f) {
    stage.process(input, f, std::span(out).subspan(f * kHop, kHop));
    if (voice != nullptr) voice->push_back(stage.stage.voice());
  }
  return out;
}

template <typename Blob>
std::vector<double> run_reference(reference::NoiseStage<Blob>& stage, const Input& input, std::vector<bool>& voice) {
  std::vector<double> out;
  for (std::size_t f = 0; f < kFrames; ++f) {
    std::vector<reference::Signal> clean, raw;
    for (std::size_t j = 0; j < input.clean.size(); ++j) {
      const auto c = frame(input.clean[j], f), r = frame(input.raw[j], f);
      clean.emplace_back(c.begin(), c.end());
      raw.emplace_back(r.begin(), r.end());
    }
    const reference::Signal y = stage.process(clean, raw);
    out.insert(out.end(), y.begin(), y.end());
    voice.push_back(stage.voice);
  }
  return out;
}

/// Energy of expected over that of the difference, in dB.
double agreement_db(const Samples& actual, const std::vector<double>& expected) {
  double energy = 0.0, difference = 0.0;
  for (std::size_t n = 0; n < actual.size(); ++n) {
    energy += expected[n] * expected[n];
    difference += std::pow(actual[n] - expected[n], 2.0);
  }
  return 10.0 * std::log10(energy / difference);
}

constexpr double kAgreementDb = 90.0;

/// A way to change a parameter set of either form.
struct Variation {
  const char* name;
  parameters::Bands bands;
  int dly_frame;
  void (*change)(CommonHead& head, NoisePath& path, NsNrCommon& param);
};

void PrintTo(const Variation& variation, std::ostream* out) { *out << variation.name; }

std::vector<Variation> variations() {
  return {
      {"FullBands", parameters::full_bands(), 0, [](auto&, auto&, auto&) {}},
      {"InnerBandsTwoFramesLate", parameters::inner_bands(), 2,
       [](auto&, NoisePath& path, NsNrCommon& param) {
         path.vds.th_coef = 1.3f;
         path.nl_bf.init_wait = path.nl2_bf.init_wait = path.nl_snd.init_wait = 0;
         param.nw_det_band_max = 5;
         param.comp_clip_th = 60.0f;
         param.comp_on = 1;
       }},
      {"FewBandsFewBins", parameters::few_bands(), 1,
       [](auto&, NoisePath& path, NsNrCommon& param) {
         path.ana.fnum_base_out = 1;
         path.ana.fnum_out = 490;
         path.vds.dnc_fb = 2;
         param.nw_end_nbin_param[0] = 1;
         param.nw_end_nbin_param[2] = 5;
         param.vad_det_weight_th_on = 7.3f;
         param.vad_det_weight_th_off = 3.1f;
         param.sup_det_weight_th = 1.7f;
         param.sup_det_count_th = 4;
         param.g_enf_coef_voice = 1.5f;
       }},
  };
}

/// The clicks lead through all states of the stage, in each variation.
void expect_every_state(const reference::History& history) {
  EXPECT_GE(history.voice_changes, 8);
  EXPECT_GE(history.gate_changes, 8);
  EXPECT_GE(history.guarded_frames, 50);
  EXPECT_THAT(history.wide_frames, Each(Ge(15)));
  EXPECT_GT(history.largest_compressor_gain, 1.3);
  EXPECT_LT(history.smallest_compressor_gain, 0.9);
}

class NoiseStageAgrees : public testing::TestWithParam<std::tuple<Variation, std::string>> {
 protected:
  template <typename Stage, typename Blob>
  void expect_agreement(const Blob& param, const Input& input) {
    Stage stage(param);
    reference::NoiseStage<Blob> formulas(param);
    std::vector<bool> voice, expected_voice;
    const Samples out = run(stage, input, kFrames, &voice);
    const std::vector<double> expected = run_reference(formulas, input, expected_voice);
    EXPECT_GT(agreement_db(out, expected), kAgreementDb);
    EXPECT_EQ(voice, expected_voice);
    if (std::get<1>(GetParam()) == "clicks") expect_every_state(formulas.history);
  }
};

TEST_P(NoiseStageAgrees, WithTheFormulasForOneSignal) {
  const auto& [variation, name] = GetParam();
  const auto param = parameters::one_channel(variation.bands, variation.dly_frame);
  variation.change(param->head, param->noise, param->ns_nr.common);
  expect_agreement<OneSignal>(*param, one_signal(name));
}

TEST_P(NoiseStageAgrees, WithTheFormulasForTwoBeams) {
  const auto& [variation, name] = GetParam();
  const auto param = parameters::two_beams(variation.bands, variation.dly_frame);
  variation.change(param->head, param->noise, param->ns_nr.common);
  expect_agreement<TwoSignals>(*param, two_signals(name));
}

INSTANTIATE_TEST_SUITE_P(Variations, NoiseStageAgrees,
                         testing::Combine(testing::ValuesIn(variations()),
                                          testing::Values("noise", "sweep", "clicks", "speech")),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
                         });

class NoiseStage : public testing::TestWithParam<Variation> {
 protected:
  std::unique_ptr<KeyCancelParam> one_channel() const {
    auto param = parameters::one_channel(GetParam().bands, GetParam().dly_frame);
    GetParam().change(param->head, param->noise, param->ns_nr.common);
    return param;
  }

  std::unique_ptr<BeamFormingKeyCancelParam> two_beams() const {
    auto param = parameters::two_beams(GetParam().bands, GetParam().dly_frame);
    GetParam().change(param->head, param->noise, param->ns_nr.common);
    return param;
  }
};

TEST_P(NoiseStage, RepeatsExactlyAfterReset) {
  const auto one = one_channel();
  OneSignal alone(*one);
  const Input signal = one_signal("clicks");
  const Samples first = run(alone, signal, 150);
  alone.stage.reset();
  EXPECT_FALSE(alone.stage.voice());
  EXPECT_EQ(run(alone, signal, 150), first);

  const auto two = two_beams();
  TwoSignals beams(*two);
  const Input signals = two_signals("clicks");
  const Samples target = run(beams, signals, 150);
  beams.stage.reset();
  EXPECT_FALSE(beams.stage.voice());
  EXPECT_EQ(run(beams, signals, 150), target);
}

TEST_P(NoiseStage, ASilentReferenceBeamChangesNothing) {
  const auto one = one_channel();
  const auto two = two_beams();
  two->ns_nr.nbin_avg_g_L = 0;
  two->ns_nr.nbin_avg_g_H = two->ns_nr.fine_nbin;
  Input input = one_signal("speech");
  OneSignal alone(*one);
  const Samples expected = run(alone, input, kFrames);
  input.clean.push_back(Samples(kLength));
  input.raw.push_back(Samples(kLength));
  // The levels of the silent beam still fall from where they start: they must be silent from the start.
  two->ns_nr.noise_mix_w[1] = 1e-20f;
  TwoSignals beams(*two);
  EXPECT_EQ(run(beams, input, kFrames), expected);
}

TEST_P(NoiseStage, InBypassTheSignalComesOutOneFrameLater) {
  const auto param = one_channel();
  param->ns_nr.bypass = 1;
  param->noise.ana.fnum_base_out = 0;
  param->noise.ana.fnum_out = kBins;
  const Input input = {{mid_band(2000.0)}, {signals::noise(kLength, 300.0, 31)}};
  OneSignal stage(*param);
  const Samples out = run(stage, input, kFrames);
  double energy = 0.0, difference = 0.0;
  for (std::size_t n = kFft; n + kHop < kLength; ++n) {
    energy += std::pow(input.clean[0][n], 2.0);
    difference += std::pow(input.clean[0][n] - out[n + kHop], 2.0);
  }
  EXPECT_GT(10.0 * std::log10(energy / difference), kAgreementDb);
}

TEST_P(NoiseStage, CompressorRunsWhateverCompOnSays) {
  const auto param = one_channel();
  const Input input = one_signal("speech");
  OneSignal stage(*param);
  const Samples first = run(stage, input, kFrames);
  param->ns_nr.common.comp_on = param->ns_nr.common.comp_on == 0 ? 1 : 0;
  OneSignal other(*param);
  EXPECT_EQ(run(other, input, kFrames), first);
}

TEST_P(NoiseStage, InputAndOutputMayBeTheSame) {
  const auto param = one_channel();
  const Input input = one_signal("clicks");
  OneSignal stage(*param), in_place(*param);
  for (std::size_t f = 0; f < 50; ++f) {
    std::array<float, kHop> out, inout;
    stage.process(input, f, out);
    const auto clean = frame(input.clean[0], f);
    std::copy(clean.begin(), clean.end(), inout.begin());
    in_place.stage.process(inout, frame(input.raw[0], f), inout);
    ASSERT_EQ(out, inout) << f;
  }
}

INSTANTIATE_TEST_SUITE_P(Variations, NoiseStage, testing::ValuesIn(variations()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(NoiseStageDelay, DlyFrameDelaysTheSignalByWholeFramesBehindTheGain) {
  // With a gain that is the same in all frames the delay is all that dly_frame does.
  for (const int dly_frame : {0, 1, 2, 5}) {
    const auto param = parameters::one_channel(parameters::full_bands(), dly_frame);
    NsNrCommon& common = param->ns_nr.common;
    for (float& c : common.sig_ns_sub_coef_noise) c = 0.0f;
    for (float& c : common.sig_ns_sub_coef_voice) c = 0.0f;
    common.ns_mgn_noise = common.ns_mgn_voice = 0.0f;
    for (float& th : common.nw_det_th) th = 1e9f;
    common.g_enf_coef_noise = common.g_enf_coef_voice = 2.0f;
    for (float* c : {common.pwc_g_up_noise, common.pwc_g_up_voice, common.pwc_g_dn_noise, common.pwc_g_dn_voice}) {
      std::fill_n(c, kCoarseBands, 0.0f);
    }
    common.gn_nl_slope[2] = 0.0f;
    common.gn_nl_tho2 = common.vol = common.comp_gain = 1.0f;
    common.comp_clip_th = 1e9f;
    std::fill_n(param->noise.ns_nr_eq, kMaxBands, 1.0f);
    const Input input = {{mid_band(1000.0)}, {signals::noise(kLength, 1000.0, 33)}};
    OneSignal stage(*param);
    const Samples out = run(stage, input, 60);
    const std::size_t delay = std::size_t(dly_frame + 1) * kHop;
    for (std::size_t n = kFft; n + delay < out.size(); ++n) {
      ASSERT_NEAR(out[n + delay], input.clean[0][n], 0.5f) << dly_frame << ", " << n;
    }
  }
}

}  // namespace
}  // namespace sonivo::classic
