// What the classic chains do with audio: delays, frames that pass by, channels, settings between blocks.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <vector>

#include "chain_params.h"
#include "chain_signals.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo {
namespace {

using classic::kHop;
using classic::test::agreement_db;
using classic::test::beam_forming_params;
using classic::test::channel_of;
using classic::test::interleave;
using classic::test::key_cancel_params;
using classic::test::noise;
using classic::test::through;
using classic::test::tones;

constexpr std::size_t kFrame = kHop;
constexpr double kUntouched = 70;  // dB; the tones leak a little into the bin at half the rate, which is left out

/// Stages that run but leave their spectra alone: what comes out is what went in, later.
template <class Param>
Param transparent(Param param) {
  param.ns_nr.bypass = 1;
  param.pulse.pulse_sup.bypass = 1;
  param.pulse.pulse_sup_add_gn_th = 0.0f;
  param.pulse.ngen_f_pulse.lvl = 0.0f;
  param.head.ain.stage_num = 0;
  return param;
}

template <class Chain, class Param>
void open(Chain& chain, const Param& param, std::uint16_t channels, std::uint16_t length) {
  ASSERT_EQ(chain.Open(&param, 48000.0f, channels, length), 0);
}

std::vector<float> late(const std::vector<float>& signal, std::size_t frames) {
  std::vector<float> out(frames);
  out.insert(out.end(), signal.begin(), signal.end() - static_cast<std::ptrdiff_t>(frames));
  return out;
}

template <class Chain>
std::uint32_t latency_of(const Chain& chain) {
  std::uint32_t frames = 0;
  EXPECT_EQ(chain.GetLatency(&frames), 0);
  return frames;
}

struct Latency {
  const char* name;
  int key, noise, beam;
  std::size_t frames;  ///< of the stages
};

class KeyCancelLatency : public testing::TestWithParam<Latency> {};

TEST_P(KeyCancelLatency, IsOneHopPerStageThatRunsAndItsDelays) {
  auto param = transparent(key_cancel_params());
  param.pulse.pulse_sup_delay.delay = 256;  // two sub-blocks of 64 samples
  CKeyCancel chain;
  open(chain, param, 1, 192);
  chain.SetKeyReductionActive(static_cast<std::uint16_t>(GetParam().key));
  chain.SetNoiseReductionActive(static_cast<std::uint16_t>(GetParam().noise));
  EXPECT_EQ(latency_of(chain), GetParam().frames);
  const auto in = tones(100 * kFrame);
  const auto out = through(chain, in);
  EXPECT_GT(agreement_db(late(in, GetParam().frames), out, 10 * kFrame), kUntouched);
}

INSTANTIATE_TEST_SUITE_P(Stages, KeyCancelLatency,
                         testing::Values(Latency{"None", 0, 0, 0, 0}, Latency{"Key", 1, 0, 0, 64 + 128},
                                         Latency{"Noise", 0, 1, 0, 192}, Latency{"Both", 1, 1, 0, 64 + 128 + 192}),
                         [](const auto& test) { return test.param.name; });

class BeamFormingLatency : public testing::TestWithParam<Latency> {};

TEST_P(BeamFormingLatency, OfTheBeamsIsNone) {
  const auto param = transparent(beam_forming_params());
  CBeamFormingKeyCancel chain;
  open(chain, param, 2, 480);
  chain.SetKeyReductionActive(static_cast<std::uint16_t>(GetParam().key));
  chain.SetNoiseReductionActive(static_cast<std::uint16_t>(GetParam().noise));
  chain.SetBeamFormingActive(static_cast<std::uint16_t>(GetParam().beam));
  EXPECT_EQ(latency_of(chain), 96 + GetParam().frames);
  const auto in = tones(100 * kFrame);
  const auto out = through(chain, interleave({in, noise(in.size())}));
  const std::size_t whole = in.size() / 480 * 480;
  auto expected = late(in, 96 + GetParam().frames);
  auto heard = channel_of(out, 2, 0);
  expected.resize(whole);
  heard.resize(whole);
  EXPECT_GT(agreement_db(expected, heard, 10 * kFrame), kUntouched);
}

std::size_t key_delay() { return 64 + static_cast<std::size_t>(beam_forming_params().pulse.pulse_sup_delay.delay) / 2; }

INSTANTIATE_TEST_SUITE_P(Stages, BeamFormingLatency,
                         testing::Values(Latency{"None", 0, 0, 0, 0}, Latency{"Beam", 0, 0, 1, 0},
                                         Latency{"BeamAndKey", 1, 0, 1, key_delay()},
                                         Latency{"BeamAndNoise", 0, 1, 1, 192},
                                         Latency{"All", 1, 1, 1, key_delay() + 192},
                                         Latency{"KeyAndNoise", 1, 1, 0, key_delay() + 192}),
                         [](const auto& test) { return test.param.name; });

TEST(KeyCancel, WithTheNoiseStageDelayedByFramesIsLaterByAsMany) {
  auto param = key_cancel_params();
  param.ns_nr.dly_frame = 3;
  auto later = param;
  param.ns_nr.dly_frame = 0;
  CKeyCancel at_once;
  CKeyCancel delayed;
  open(at_once, param, 1, 192);
  open(delayed, later, 1, 192);
  EXPECT_EQ(latency_of(delayed), latency_of(at_once) + 3 * kFrame);
  // The gain belongs to the present frame and meets an older spectrum, so only a steady gain can be compared.
  const auto in = noise(600 * kFrame);
  const auto a = late(through(at_once, in), 3 * kFrame);
  const auto b = through(delayed, in);
  EXPECT_GT(agreement_db(a, b, 400 * kFrame), 6);
  const auto c = through(at_once, in);
  EXPECT_LT(agreement_db(c, b, 400 * kFrame), 3);
}

TEST(KeyCancel, PassesAFrameThatEndsInAnExactZeroAndLeavesAllStatesAlone) {
  const auto param = key_cancel_params();
  for (const float zero : {0.0f, -0.0f}) {
    SCOPED_TRACE(zero);
    CKeyCancel with;
    CKeyCancel without;
    open(with, param, 1, 192);
    open(without, param, 1, 192);
    const auto before = noise(50 * kFrame, 1);
    const auto after = noise(50 * kFrame, 2);
    auto passing = noise(kFrame, 3);
    passing.back() = zero;
    through(with, before);
    through(without, before);
    const auto passed = through(with, passing);
    for (std::size_t i = 0; i < kFrame; ++i) EXPECT_EQ(passed[i], passing[i] * 32768.0f * 3.0517578e-5f);
    EXPECT_EQ(through(with, after), through(without, after));
  }
}

TEST(KeyCancel, ProcessesAFrameWithAZeroAnywhereButInTheLastPlace) {
  const auto param = key_cancel_params();
  for (const float last :
       {0.25f, std::numeric_limits<float>::denorm_min(), -std::numeric_limits<float>::denorm_min()}) {
    CKeyCancel chain;
    open(chain, param, 1, 192);
    through(chain, noise(50 * kFrame));
    std::vector<float> nearly_silent(kFrame, 0.0f);
    nearly_silent.back() = last;
    const auto out = through(chain, nearly_silent);
    EXPECT_GT(std::abs(out[0]), 1e-4f) << last << ": what came before still sounds";
  }
}

TEST(KeyCancel, AnAllZeroBlockLeavesAllStatesUnchanged) {
  const auto param = key_cancel_params();
  CKeyCancel with;
  CKeyCancel without;
  open(with, param, 2, 192);
  open(without, param, 2, 192);
  const auto before = noise(2 * 50 * kFrame, 1);
  const auto after = noise(2 * 50 * kFrame, 2);
  through(with, before);
  through(without, before);
  const auto silence = through(with, std::vector<float>(2 * kFrame));
  EXPECT_EQ(silence, std::vector<float>(2 * kFrame));
  EXPECT_EQ(through(with, after), through(without, after));
}

TEST(BeamFormingKeyCancel, PassesAFrameOnlyWhenBothMicrophonesAreSilent) {
  const auto param = beam_forming_params();
  const auto before = noise(2 * 50 * kFrame, 1);
  const auto after = noise(2 * 50 * kFrame, 2);
  const std::vector<float> silence(kFrame);
  const auto second_only = interleave({silence, noise(kFrame, 3)});
  CBeamFormingKeyCancel never;
  CBeamFormingKeyCancel silent;
  CBeamFormingKeyCancel one_sided;
  for (auto* chain : {&never, &silent, &one_sided}) {
    open(*chain, param, 2, 192);
    through(*chain, before);
  }
  EXPECT_EQ(through(silent, interleave({silence, silence})), interleave({silence, silence}));
  EXPECT_NE(channel_of(through(one_sided, second_only), 2, 0), silence) << "the tail of what came before still sounds";
  const auto expected = through(never, after);
  EXPECT_EQ(through(silent, after), expected);
  EXPECT_NE(through(one_sided, after), expected);
}

TEST(BeamFormingKeyCancel, DoesNotPassAFrameThatOnlyEndsInZeros) {
  const auto param = beam_forming_params();
  CBeamFormingKeyCancel chain;
  open(chain, param, 2, 192);
  through(chain, noise(2 * 50 * kFrame));
  auto frame = noise(2 * kFrame);
  frame[2 * kFrame - 1] = frame[2 * kFrame - 2] = 0.0f;
  EXPECT_NE(through(chain, frame), frame);
}

TEST(KeyCancel, ProcessesEachChannelByItselfAndAllAlike) {
  const auto param = key_cancel_params();
  const std::vector<std::vector<float>> signals{noise(9600, 1), noise(9600, 2), noise(9600, 3), noise(9600, 1)};
  CKeyCancel four;
  open(four, param, 4, 480);
  const auto out = through(four, interleave(signals));
  for (std::size_t c = 0; c < 4; ++c) {
    CKeyCancel one;
    open(one, param, 1, 480);
    EXPECT_EQ(channel_of(out, 4, c), through(one, signals[c])) << "channel " << c;
  }
}

TEST(BeamFormingKeyCancel, GivesAllChannelsTheSameResultAndHearsOnlyTheFirstTwo) {
  const auto param = beam_forming_params();
  const std::vector<std::vector<float>> signals{noise(9600, 1), noise(9600, 2), noise(9600, 3), noise(9600, 4)};
  CBeamFormingKeyCancel two;
  CBeamFormingKeyCancel four;
  open(two, param, 2, 480);
  open(four, param, 4, 480);
  const auto expected = channel_of(through(two, interleave({signals[0], signals[1]})), 2, 0);
  const auto out = through(four, interleave(signals));
  for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(channel_of(out, 4, c), expected) << "channel " << c;
}

TEST(BeamFormingKeyCancel, AChannelThatWasLeftOutGoesOnFromWhereItStood) {
  const auto param = beam_forming_params();
  CBeamFormingKeyCancel chain;
  CBeamFormingKeyCancel reference;
  open(chain, param, 2, 192);
  open(reference, param, 2, 192);
  const auto first = noise(2 * 40 * kFrame, 1);
  const auto last = noise(2 * 40 * kFrame, 2);
  through(chain, first);
  through(reference, first);
  ASSERT_EQ(chain.SetChannel(1), 0);
  through(chain, noise(40 * kFrame, 3));
  ASSERT_EQ(chain.SetChannel(2), 0);
  const auto out = through(chain, last);
  const auto expected = through(reference, last);
  EXPECT_EQ(channel_of(out, 2, 1), channel_of(expected, 2, 1));
  EXPECT_NE(channel_of(out, 2, 0), channel_of(expected, 2, 0));
}

TEST(BeamFormingKeyCancel, AChannelThatJoinsStartsFromItsReset) {
  const auto param = beam_forming_params();
  CBeamFormingKeyCancel chain;
  CBeamFormingKeyCancel fresh;
  open(chain, param, 2, 192);
  open(fresh, param, 2, 192);
  through(chain, noise(2 * 40 * kFrame, 1));
  ASSERT_EQ(chain.SetChannel(3), 0);
  const auto a = noise(40 * kFrame, 2);
  const auto b = noise(40 * kFrame, 3);
  const auto out = through(chain, interleave({a, b, a}));
  const auto expected = through(fresh, interleave({a, b}));
  EXPECT_EQ(channel_of(out, 3, 2), channel_of(expected, 2, 0));
}

TEST(BeamFormingKeyCancel, WithoutBeamsIsTheOneMicrophoneChain) {
  CBeamFormingKeyCancel beams;
  CKeyCancel single;
  auto bf = beam_forming_params();
  auto kc = key_cancel_params();
  bf.head.ain.stage_num = 0;  // what passes the beams by is not filtered either
  kc.head.ain.stage_num = 0;
  open(beams, bf, 2, 192);
  open(single, kc, 1, 192);
  beams.SetBeamFormingActive(0);
  // Key reduction of two signals halves bin 0, that of one doesn't.
  beams.SetKeyReductionActive(0);
  single.SetKeyReductionActive(0);
  const auto in = noise(400 * kFrame);
  const auto out = channel_of(through(beams, interleave({in, noise(in.size(), 2)})), 2, 0);
  EXPECT_GT(agreement_db(through(single, in), out), 60);
}

TEST(KeyCancel, At44100IsWhatItIsAt48000) {
  const auto param = key_cancel_params();
  CKeyCancel slow;
  CKeyCancel fast;
  ASSERT_EQ(slow.Open(&param, 44100.0f, 1, 441), 0);
  ASSERT_EQ(fast.Open(&param, 48000.0f, 1, 441), 0);
  const auto in = noise(441 * 50);
  EXPECT_EQ(through(slow, in), through(fast, in));
  ASSERT_EQ(fast.SetSamplingRate(44100.0f), 0);
  EXPECT_EQ(through(slow, in), through(fast, in));
}

TEST(KeyCancel, SetParamResetsTheStagesAndKeepsBypassesAndQueues) {
  const auto param = key_cancel_params();
  CKeyCancel chain;
  open(chain, param, 1, 480);
  chain.SetNoiseReductionActive(0);
  const auto in = noise(480 * 40);
  const auto expected = through(chain, in);
  ASSERT_EQ(chain.Open(&param, 48000.0f, 1, 480), 0);
  chain.SetNoiseReductionActive(0);
  const std::vector<float> start(in.begin(), in.begin() + 480);
  const std::vector<float> next(in.begin() + 480, in.begin() + 960);
  const std::vector<float> first(expected.begin(), expected.begin() + 480);
  EXPECT_EQ(through(chain, start), first);
  ASSERT_EQ(chain.SetParam(&param), 0);
  std::uint16_t active = 1;
  chain.GetNoiseReductionActive(&active);
  EXPECT_EQ(active, 0);
  // 96 zeros and two frames are 480 samples: nothing waits in the queue, half a frame waits in the accumulator, and
  // comes out of stages that have forgotten everything else.
  CKeyCancel fresh;
  open(fresh, param, 1, 192);
  fresh.SetNoiseReductionActive(0);
  std::vector<float> frames(in.begin() + 384, in.begin() + 384 + 3 * 192);
  EXPECT_EQ(through(chain, next), [&] {
    auto out = through(fresh, frames);
    out.resize(480);
    return out;
  }());
}

TEST(KeyCancel, LeavesNoTraceOfSamplesThatAreNoNumbers) {
  const auto param = key_cancel_params();
  const float bad[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::max()};
  for (const float value : bad) {
    for (const std::size_t at : {std::size_t{0}, kFrame / 2, kFrame - 1}) {
      CKeyCancel with;
      CKeyCancel without;
      open(with, param, 1, 192);
      open(without, param, 1, 192);
      through(with, noise(20 * kFrame, 1));
      through(without, noise(20 * kFrame, 1));
      auto frame = noise(kFrame, 2);
      frame[at] = value;
      EXPECT_EQ(through(with, frame), std::vector<float>(kFrame)) << value << " at " << at;
      EXPECT_EQ(through(with, noise(20 * kFrame, 3)), through(without, noise(20 * kFrame, 3)));
    }
  }
}

TEST(BeamFormingKeyCancel, LeavesNoTraceOfSamplesThatAreNoNumbers) {
  const auto param = beam_forming_params();
  for (const std::size_t at : {std::size_t{0}, std::size_t{1}}) {
    CBeamFormingKeyCancel with;
    CBeamFormingKeyCancel without;
    open(with, param, 2, 192);
    open(without, param, 2, 192);
    through(with, noise(40 * kFrame, 1));
    through(without, noise(40 * kFrame, 1));
    auto frame = noise(2 * kFrame, 2);
    frame[100 + at] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(through(with, frame), std::vector<float>(2 * kFrame));
    EXPECT_EQ(through(with, noise(40 * kFrame, 3)), through(without, noise(40 * kFrame, 3)));
  }
}

/// Three sections of 200 dB, one of which remembers what it gave, and three that take as much away: speech passes, and
/// what is louder by 200 dB makes infinity of it inside.
template <class Param>
Param with_absurd_filter(Param param) {
  param.head.ain.stage_num = 6;
  for (std::size_t i = 0; i < 6; ++i) param.head.ain.coefficients[i] = {i < 3 ? 1e10f : 1e-10f, 0, 0, 0, 0};
  param.head.ain.coefficients[2].minus_a1 = 0.5f;
  return param;
}

template <class Chain, class Param>
void expect_fresh_start_after_overflow(const Param& param, std::uint16_t channels) {
  const std::size_t samples = kFrame * channels;
  Chain with;
  Chain fresh;
  open(with, param, channels, 192);
  open(fresh, param, channels, 192);
  const auto before = through(with, noise(20 * samples, 1));
  EXPECT_NE(before.back(), 0.0f);
  auto loud = noise(samples, 2);
  for (float& sample : loud) sample *= 1e10f;
  EXPECT_EQ(through(with, loud), std::vector<float>(samples));
  EXPECT_EQ(through(with, noise(20 * samples, 3)), through(fresh, noise(20 * samples, 3)));
}

TEST(KeyCancel, StartsAnewWhenAStageOverflows) {
  expect_fresh_start_after_overflow<CKeyCancel>(with_absurd_filter(key_cancel_params()), 1);
}

TEST(BeamFormingKeyCancel, StartsAnewWhenAStageOverflows) {
  expect_fresh_start_after_overflow<CBeamFormingKeyCancel>(with_absurd_filter(beam_forming_params()), 2);
}

TEST(KeyCancel, GivesNothingLouderThanSoundWhenGainsOverflowTogether) {
  auto param = key_cancel_params();
  std::fill(std::begin(param.noise.ns_nr_eq), std::end(param.noise.ns_nr_eq), 1e10f);
  param.ns_nr.common.vol = 1e10f;
  CKeyCancel chain;
  open(chain, param, 1, 192);
  const auto out = through(chain, noise(60 * kFrame));
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float x) { return std::abs(x) < 1e11f; }));
  const auto usual = key_cancel_params();
  ASSERT_EQ(chain.SetParam(&usual), 0);
  CKeyCancel fresh;
  open(fresh, usual, 1, 192);
  EXPECT_EQ(through(chain, noise(20 * kFrame)), through(fresh, noise(20 * kFrame)));
}

TEST(KeyCancel, GivesTheSameForEveryBlockLengthButForTheFraming) {
  const auto param = key_cancel_params();
  const auto in = noise(192 * 250);  // 48000 frames
  CKeyCancel frames;
  open(frames, param, 1, 192);
  const auto expected = through(frames, in);
  const std::pair<std::uint16_t, std::size_t> lengths[] = {{1, 191}, {441, 189}, {480, 96}, {1000, 184}};
  for (const auto& [length, delay] : lengths) {
    CKeyCancel chain;
    open(chain, param, 1, length);
    const auto out = through(chain, in);
    const std::size_t whole = in.size() / length * length;
    for (std::size_t i = 0; i < whole; ++i) {
      ASSERT_EQ(out[i], i < delay ? 0.0f : expected[i - delay]) << length << ", sample " << i;
    }
  }
}

}  // namespace
}  // namespace sonivo
