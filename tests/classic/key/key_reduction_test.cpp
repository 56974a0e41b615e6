// The key stage as a whole, against its double-precision form and by its promises.

#include "classic/key_reduction.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "key_parameters.h"
#include "reference_key_stage.h"

namespace sonivo::classic::test {
namespace {

using testing::Each;
using testing::ElementsAreArray;

constexpr std::size_t kFrames = 150;
constexpr std::size_t kSamples = kFrames * kHop;

using Signal = std::vector<float>;

/// Speech in the second and the fourth fifth.
bool voice_at(std::size_t frame) { return frame / (kFrames / 5) % 2 == 1; }

template <std::size_t Beams>
std::vector<Signal> run(KeyReduction<Beams>& stage, const std::vector<Signal>& in) {
  std::vector<Signal> out(Beams, Signal(in[0].size()));
  for (std::size_t frame = 0; frame < in[0].size() / kHop; ++frame) {
    std::array<std::span<const float>, Beams> from;
    std::array<std::span<float>, Beams> to;
    for (std::size_t i = 0; i < Beams; ++i) {
      from[i] = std::span(in[i]).subspan(frame * kHop, kHop);
      to[i] = std::span(out[i]).subspan(frame * kHop, kHop);
    }
    stage.process(from, voice_at(frame), to);
  }
  return out;
}

template <std::size_t Beams>
std::vector<Signal> processed(const PulsePath& path, const std::vector<Signal>& in) {
  KeyReduction<Beams> stage(path);
  return run(stage, in);
}

struct Expected {
  std::vector<reference::Vector> out;
  double lowest_gain = 1.0;  ///< of any band, once the stage has faded in
};

Expected expected(const PulsePath& path, std::size_t beams, const std::vector<Signal>& in) {
  reference::KeyStage stage(path, beams);
  Expected result{std::vector<reference::Vector>(beams)};
  std::vector<reference::Vector> from(beams, reference::Vector(64)), to = from;
  for (std::size_t start = 0; start < in[0].size(); start += 64) {
    for (std::size_t i = 0; i < beams; ++i) {
      std::copy_n(in[i].begin() + static_cast<std::ptrdiff_t>(start), 64, from[i].begin());
    }
    stage.sub_block(from, voice_at(start / kHop), to);
    for (std::size_t i = 0; i < beams; ++i) result.out[i].insert(result.out[i].end(), to[i].begin(), to[i].end());
    const std::size_t band = path.nbin_pulse_param_ui_tbl[0];
    if (start > 2400) result.lowest_gain = std::min(result.lowest_gain, stage.suppressor.g[band]);
  }
  return result;
}

double signal_to_difference_db(const reference::Vector& signal, const Signal& other) {
  double power = 0.0, difference = 0.0;
  for (std::size_t i = 0; i < signal.size(); ++i) {
    power += signal[i] * signal[i];
    difference += (signal[i] - static_cast<double>(other[i])) * (signal[i] - static_cast<double>(other[i]));
  }
  return 10.0 * std::log10(power / difference);
}

struct Source {
  std::string name;
  std::vector<Signal> beams;
};

std::vector<Source> sources() {
  return {
      {"Noise", {white_noise(kSamples, 500.0f, 1), white_noise(kSamples, 200.0f, 2)}},
      {"Sweep", {sweep(kSamples, 8000.0f), sweep(kSamples, 3000.0f)}},
      {"Clicks", {clicks_over_noise(kSamples, 100.0f, 6000.0f, 3), clicks_over_noise(kSamples, 150.0f, 4000.0f, 4)}}};
}

class KeyReductionReference : public testing::TestWithParam<std::tuple<KeySet, Source>> {
 protected:
  const PulsePath& path() const { return std::get<0>(GetParam()).path; }
  const std::vector<Signal>& beams() const { return std::get<1>(GetParam()).beams; }
};

INSTANTIATE_TEST_SUITE_P(Sets, KeyReductionReference,
                         testing::Combine(testing::ValuesIn(key_sets()), testing::ValuesIn(sources())),
                         [](const auto& set) { return std::get<0>(set.param).name + std::get<1>(set.param).name; });

TEST_P(KeyReductionReference, OneSignalAgrees) {
  const Expected reference = expected(path(), 1, beams());
  const std::vector<Signal> out = processed<1>(path(), beams());
  EXPECT_GT(signal_to_difference_db(reference.out[0], out[0]), 90.0);
}

TEST_P(KeyReductionReference, TwoBeamsAgree) {
  const Expected reference = expected(path(), 2, beams());
  const std::vector<Signal> out = processed<2>(path(), beams());
  EXPECT_GT(signal_to_difference_db(reference.out[0], out[0]), 90.0);
  EXPECT_GT(signal_to_difference_db(reference.out[1], out[1]), 90.0);
}

TEST_P(KeyReductionReference, ResetRepeatsExactly) {
  KeyReduction<2> stage(path());
  const std::vector<Signal> first = run(stage, beams());
  stage.reset();
  EXPECT_EQ(run(stage, beams()), first);
}

TEST(KeyReduction, PullsKeyStrokesDown) {
  for (const KeySet& set : key_sets()) {
    if (set.path.pulse_sup.bypass == 1) continue;
    const std::vector<Signal> clicks = {clicks_over_noise(kSamples, 100.0f, 6000.0f, 3)};
    EXPECT_LT(expected(set.path, 1, clicks).lowest_gain, 0.35) << set.name;
  }
}

/// Gain 1, no delay, no filling, no noise.
PulsePath transparent() {
  PulsePath path = key_parameters();
  path.pulse_sup.bypass = 1;
  path.pulse_sup_delay.delay = 0;
  path.pulse_sup_add_gn_th = 0.0f;
  path.ngen_f_pulse.init_wait = 65535;
  return path;
}

TEST(KeyReduction, BypassedWithoutNoiseDelaysBothBeamsByASubBlock) {
  const std::vector<Signal> in = {sweep(kSamples, 8000.0f), white_noise(kSamples, 0.0f, 1)};
  const std::vector<Signal> out = processed<2>(transparent(), in);
  // From 5 to 10 kHz: what is near bin 0 or bin 64 is not reconstructed.
  for (std::size_t i = kSamples / 4; i < kSamples / 2; ++i) {
    ASSERT_NEAR(out[0][i], in[0][i - 64], 0.002f * 8000.0f) << i;
    ASSERT_NEAR(out[1][i], 0.0f, 0.002f * 8000.0f) << i;
  }
}

TEST(KeyReduction, DelayOfTheSpectrumIsADelayOfTheSignal) {
  PulsePath later = transparent();
  later.pulse_sup_delay.delay = 3 * 128;
  const std::vector<Signal> in = {white_noise(kSamples, 500.0f, 1)};
  const Signal out = processed<1>(transparent(), in)[0];
  const Signal delayed = processed<1>(later, in)[0];
  for (std::size_t i = 192; i < kSamples; ++i) ASSERT_NEAR(delayed[i], out[i - 192], 0.01f) << i;
}

TEST(KeyReduction, BypassedStillFillsAboveUnityAndAddsNoise) {
  const std::vector<Signal> in = {white_noise(kSamples, 500.0f, 1)};
  const Signal plain = processed<1>(transparent(), in)[0];
  PulsePath filling = transparent();
  filling.pulse_sup_add_gn_th = 1.5f;
  filling.pulse_sup_add_delay.delay = 128;
  const Signal filled = processed<1>(filling, in)[0];
  for (std::size_t i = 64; i < kSamples; ++i) ASSERT_NEAR(filled[i], plain[i] + 0.5f * plain[i - 64], 0.01f) << i;
  filling.pulse_sup_add_gn_th = 1.0f;
  EXPECT_EQ(processed<1>(filling, in)[0], plain);
  PulsePath noisy = transparent();
  noisy.ngen_f_pulse.init_wait = 0;
  EXPECT_NE(processed<1>(noisy, in)[0], plain);
}

TEST(KeyReduction, AddsNoNoiseDuringInitWait) {
  PulsePath path = transparent();
  path.ngen_f_pulse.init_wait = 7;
  const std::vector<Signal> silence = {Signal(kSamples)};
  const Signal out = processed<1>(path, silence)[0];
  const std::span<const float> samples(out);
  EXPECT_THAT(samples.first(7 * 64), Each(0.0f));
  EXPECT_THAT(samples.subspan(7 * 64, 64), testing::Contains(testing::Ne(0.0f)));
}

TEST(KeyReduction, FadesInFromSilence) {
  PulsePath path = key_parameters();
  path.ngen_f_pulse.init_wait = 65535;
  path.pulse_sup_delay.delay = 0;
  path.pulse_sup_add_gn_th = 0.0f;
  const std::vector<Signal> in = {sweep(kSamples, 1000.0f)};
  const Signal out = processed<1>(path, in)[0];
  float early = 0.0f;
  for (std::size_t i = 0; i < 128; ++i) early = std::max(early, std::abs(out[i]));
  EXPECT_LT(early, 500.0f);
}

TEST(KeyReduction, BothBeamsTakeFillingAndNoiseOfTheFirst) {
  PulsePath path = key_parameters();
  std::vector<Signal> in = {clicks_over_noise(kSamples, 100.0f, 6000.0f, 3), Signal(kSamples)};
  const std::vector<Signal> out = processed<2>(path, in);
  double energy = 0.0;
  for (std::size_t i = 4 * kHop; i < kSamples; ++i)
    energy += static_cast<double>(out[1][i]) * static_cast<double>(out[1][i]);
  EXPECT_GT(std::sqrt(energy / kSamples), 1.0);

  path.pulse_sup_add_gn_th = 0.0f;
  path.ngen_f_pulse.init_wait = 65535;
  const std::vector<Signal> dry = processed<2>(path, in);
  for (std::size_t i = 0; i < kSamples; ++i) ASSERT_NEAR(dry[1][i], 0.0f, 0.05f) << i;
}

TEST(KeyReduction, TheSecondBeamDoesNotChangeTheFirst) {
  const PulsePath path = key_parameters();
  const Signal first = clicks_over_noise(kSamples, 100.0f, 6000.0f, 3);
  const std::vector<Signal> alone = processed<2>(path, {first, Signal(kSamples)});
  const std::vector<Signal> both = processed<2>(path, {first, white_noise(kSamples, 100.0f, 9)});
  reference::Vector expected(alone[0].begin(), alone[0].end());
  EXPECT_GT(signal_to_difference_db(expected, both[0]), 90.0);
}

TEST(KeyReduction, MayWriteOverItsInput) {
  const PulsePath path = key_parameters();
  const std::vector<Signal> in = {clicks_over_noise(kSamples, 100.0f, 6000.0f, 3), white_noise(kSamples, 100.0f, 9)};
  const std::vector<Signal> apart = processed<2>(path, in);
  std::vector<Signal> over = in;
  KeyReduction<2> stage(path);
  for (std::size_t frame = 0; frame < kFrames; ++frame) {
    const std::span<float> first = std::span(over[0]).subspan(frame * kHop, kHop);
    const std::span<float> second = std::span(over[1]).subspan(frame * kHop, kHop);
    stage.process({first, second}, voice_at(frame), {first, second});
  }
  EXPECT_EQ(over, apart);
}

TEST(KeyReduction, TheVoiceFlagReachesTheNoiseLevel) {
  PulsePath path = key_parameters();
  path.nl_pulse.update_cycle_voice = 400;
  KeyReduction<1> quiet(path), speaking(path);
  std::vector<float> in = white_noise(kSamples, 500.0f, 1), out(kSamples), other(kSamples);
  for (std::size_t i = kSamples / 4; i < kSamples; ++i) in[i] *= 4.0f;
  for (std::size_t start = 0; start < kSamples; start += kHop) {
    const std::span<const float> frame = std::span<const float>(in).subspan(start, kHop);
    quiet.process({frame}, false, {std::span(out).subspan(start, kHop)});
    speaking.process({frame}, true, {std::span(other).subspan(start, kHop)});
  }
  EXPECT_NE(out, other);
}

TEST(KeyReduction, StatisticsAreThoseOfTheLatestFrame) {
  PulsePath path = key_parameters();
  path.pulse_sup.min_npm_det[0] = path.pulse_sup.min_npm_det[1] = 0.5f;  // noise alone passes now and then
  reference::KeyStage reference(path, 1);
  KeyReduction<1> stage(path);
  EXPECT_EQ(stage.statistics().groups, 2);
  const Signal in = clicks_over_noise(kSamples, 100.0f, 6000.0f, 3);
  Signal out(kHop);
  std::vector<reference::Vector> from(1, reference::Vector(64)), to = from;
  int detections = 0;
  for (std::size_t start = 0; start < kSamples; start += kHop) {
    int count[2] = {};
    double peak[2] = {};
    for (std::size_t sub = 0; sub < kHop; sub += 64) {
      std::copy_n(in.begin() + static_cast<std::ptrdiff_t>(start + sub), 64, from[0].begin());
      reference.sub_block(from, false, to);
      for (std::size_t i = 0; i < 2; ++i) {
        if (reference.suppressor.prod[i] > path.pulse_sup.min_npm_det[i]) ++count[i];
        peak[i] = std::max(peak[i], reference.suppressor.prod[i]);
      }
    }
    stage.process({std::span(in).subspan(start, kHop)}, false, {std::span(out)});
    for (std::size_t i = 0; i < 2; ++i) {
      ASSERT_EQ(stage.statistics().count[i], count[i]) << start;
      ASSERT_NEAR(stage.statistics().peak[i], peak[i], 1e-3 * peak[i]) << start;
      detections += count[i];
    }
  }
  EXPECT_GT(detections, 20);
  stage.reset();
  EXPECT_THAT(stage.statistics().count, Each(0));
  EXPECT_THAT(stage.statistics().peak, Each(0.0f));
  EXPECT_EQ(stage.statistics().groups, 2);
}

}  // namespace
}  // namespace sonivo::classic::test
