// What SetParam, SetChannel, SetDataLength and the flags of the stages mean for each of the four channels, against
// stages connected by hand.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "chain_signals.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "lively_params.h"
#include "stages_by_hand.h"

namespace sonivo {
namespace {

using classic::kHop;
using classic::test::activate;
using classic::test::Active;
using classic::test::BeamFormingByHand;
using classic::test::channel_of;
using classic::test::clicks_and_phrases;
using classic::test::expect_equal;
using classic::test::interleave;
using classic::test::KeyCancelByHand;
using classic::test::lively_beam_forming_params;
using classic::test::lively_key_cancel_params;
using classic::test::Signal;
using classic::test::through;

constexpr std::size_t kLength = 960 * 30;  // 150 frames, in blocks of 192 or of 480
constexpr std::size_t kWaiting = 96;       // zeros in front of what comes out in blocks of 480

/// Four signals, others for another take.
std::vector<Signal> microphones(std::uint32_t take) {
  std::vector<Signal> signals;
  for (std::uint32_t c = 1; c <= 4; ++c) signals.push_back(clicks_and_phrases(kLength, 4 * take + c));
  return signals;
}

std::vector<Signal> first_of(std::vector<Signal> signals, std::size_t samples) {
  for (Signal& signal : signals) signal.resize(samples);
  return signals;
}

std::vector<Signal> from(std::vector<Signal> signals, std::size_t sample) {
  for (Signal& signal : signals) signal.erase(signal.begin(), signal.begin() + static_cast<std::ptrdiff_t>(sample));
  return signals;
}

/// The signal of the same length that is later by so many samples.
Signal late(const Signal& signal, std::size_t samples) {
  Signal out(samples);
  out.insert(out.end(), signal.begin(), signal.end() - static_cast<std::ptrdiff_t>(samples));
  return out;
}

template <class Chain>
struct Kind {
  static constexpr bool kBeams = std::is_same_v<Chain, CBeamFormingKeyCancel>;
  using ByHand = std::conditional_t<kBeams, BeamFormingByHand, KeyCancelByHand>;

  static auto params(std::uint16_t id, double peak_hz) {
    if constexpr (kBeams) {
      return lively_beam_forming_params(id, peak_hz);
    } else {
      return lively_key_cancel_params(id, peak_hz);
    }
  }

  /// Flags that the chain has, one of them off at a time.
  static std::vector<Active> one_off() {
    std::vector<Active> all{{.key = false}, {.noise = false}};
    if (kBeams) all.push_back({.beam = false});
    return all;
  }
};

template <class Chain>
class Settings : public testing::Test {
 protected:
  using Param = decltype(Kind<Chain>::params(0, 0));

  /// What a channel hands out that starts from its reset.
  static Signal fresh(const Param& param, const Active& active, const std::vector<Signal>& in, std::size_t channel) {
    typename Kind<Chain>::ByHand stages(param);
    stages.active = active;
    return through(stages, in, channel);
  }

  void expect_active(const Active& active) {
    std::uint16_t on = 2;
    EXPECT_EQ(chain_.GetKeyReductionActive(&on), 0);
    EXPECT_EQ(on, active.key);
    EXPECT_EQ(chain_.GetNoiseReductionActive(&on), 0);
    EXPECT_EQ(on, active.noise);
    if constexpr (Kind<Chain>::kBeams) {
      EXPECT_EQ(chain_.GetBeamFormingActive(&on), 0);
      EXPECT_EQ(on, active.beam);
    }
  }

  Chain chain_;
  const Param param_ = Kind<Chain>::params(31, 1500);
  const Param other_ = Kind<Chain>::params(32, 4000);
};
using Chains = testing::Types<CKeyCancel, CBeamFormingKeyCancel>;
TYPED_TEST_SUITE(Settings, Chains);

TYPED_TEST(Settings, OfAnotherBlobMakeEveryChannelANewOne) {
  const auto before = microphones(0);
  const auto after = microphones(1);
  auto choices = Kind<TypeParam>::one_off();
  choices.push_back({});
  for (const Active& active : choices) {
    ASSERT_EQ(this->chain_.Open(&this->param_, 48000.0f, 4, 480), 0);
    activate(this->chain_, active);
    Signal out = through(this->chain_, interleave(before));
    ASSERT_EQ(this->chain_.SetParam(&this->other_), 0);
    this->expect_active(active);
    const Signal later = through(this->chain_, interleave(after));
    out.insert(out.end(), later.begin(), later.end());
    for (std::size_t c = 0; c < 4; ++c) {
      SCOPED_TRACE("channel " + std::to_string(c));
      Signal expected(kWaiting);
      for (const auto& part :
           {this->fresh(this->param_, active, before, c), this->fresh(this->other_, active, after, c)}) {
        expected.insert(expected.end(), part.begin(), part.end());
      }
      expected.resize(2 * kLength);
      expect_equal(channel_of(out, 4, c), expected);
    }
  }
}

TYPED_TEST(Settings, OfAnotherBlobReachChannelsThatJoinLater) {
  const auto before = microphones(0);
  const auto after = microphones(1);
  ASSERT_EQ(this->chain_.Open(&this->param_, 48000.0f, 2, kHop), 0);
  through(this->chain_, interleave({before[0], before[1]}));
  ASSERT_EQ(this->chain_.SetParam(&this->other_), 0);
  ASSERT_EQ(this->chain_.SetChannel(4), 0);
  const Signal out = through(this->chain_, interleave(after));
  for (std::size_t c = 0; c < 4; ++c) {
    SCOPED_TRACE("channel " + std::to_string(c));
    expect_equal(channel_of(out, 4, c), this->fresh(this->other_, {}, after, c));
  }
}

TYPED_TEST(Settings, OfAStageReachChannelsThatJoinLater) {
  const auto in = microphones(0);
  for (const Active& active : Kind<TypeParam>::one_off()) {
    ASSERT_EQ(this->chain_.Open(&this->param_, 48000.0f, 1, kHop), 0);
    activate(this->chain_, active);
    ASSERT_EQ(this->chain_.SetChannel(4), 0);
    const Signal out = through(this->chain_, interleave(in));
    for (std::size_t c = 0; c < 4; ++c) {
      SCOPED_TRACE("channel " + std::to_string(c));
      expect_equal(channel_of(out, 4, c), this->fresh(this->param_, active, in, c));
    }
  }
}

/// 16 blocks of 480 are 40 whole frames and leave 96 samples in the queues; 17 leave 96 in the accumulators instead.
TYPED_TEST(Settings, OfABlockLengthDropWhatWaitsAndLeaveTheStagesAsTheyStand) {
  constexpr std::size_t kPreroll = 189;     // of blocks of 441
  constexpr std::size_t kAfter = 441 * 64;  // 147 frames
  const Active active{.beam = true, .key = true, .noise = false};
  const auto before = microphones(0);
  const auto after = first_of(microphones(1), kAfter);
  for (const auto& [blocks, frames] : {std::pair(16u, 40u), {17u, 42u}}) {
    SCOPED_TRACE(std::to_string(blocks) + " blocks");
    ASSERT_EQ(this->chain_.Open(&this->param_, 48000.0f, 4, 480), 0);
    activate(this->chain_, active);
    through(this->chain_, interleave(first_of(before, blocks * 480)));
    ASSERT_EQ(this->chain_.SetDataLength(441), 0);
    this->expect_active(active);
    const Signal out = through(this->chain_, interleave(after));
    for (std::size_t c = 0; c < 4; ++c) {
      SCOPED_TRACE("channel " + std::to_string(c));
      typename Kind<TypeParam>::ByHand stages(this->param_);
      stages.active = active;
      through(stages, first_of(before, frames * kHop), c);
      Signal expected(kPreroll);
      const Signal later = through(stages, after, c);
      expected.insert(expected.end(), later.begin(), later.end());
      expected.resize(kAfter);
      expect_equal(channel_of(out, 4, c), expected);
    }
  }
}

/// One block of 480 leaves 96 samples in the accumulators of the active channels.
TYPED_TEST(Settings, OfChannelsLeaveTheAccumulatorsAsTheyAre) {
  const auto in = microphones(0);
  ASSERT_EQ(this->chain_.Open(&this->param_, 48000.0f, 2, 480), 0);
  Signal out = channel_of(through(this->chain_, interleave(first_of({in[0], in[1]}, 480))), 2, 0);
  ASSERT_EQ(this->chain_.SetChannel(4), 0);
  const Signal later = through(this->chain_, interleave(from(in, 480)));
  const Signal first = channel_of(later, 4, 0);
  out.insert(out.end(), first.begin(), first.end());
  expect_equal(out, late(this->fresh(this->param_, {}, in, 0), kWaiting));

  // The channels that join have heard nothing in the frame that has begun.
  auto joined = from(in, 384);
  std::fill_n(joined[2].begin(), 96, 0.0f);
  std::fill_n(joined[3].begin(), 96, 0.0f);
  for (std::size_t c = 2; c < 4; ++c) {
    SCOPED_TRACE("channel " + std::to_string(c));
    Signal expected = this->fresh(this->param_, {}, joined, c);
    expected.resize(later.size() / 4);
    expect_equal(channel_of(later, 4, c), expected);
  }
}

TEST(BeamFormingKeyCancel, WithOneChannelHearsWhatTheAccumulatorOfTheSecondInputHolds) {
  const auto param = lively_beam_forming_params();
  const auto in = first_of(microphones(0), 480 * 20);
  CBeamFormingKeyCancel chain;
  ASSERT_EQ(chain.Open(&param, 48000.0f, 2, 480), 0);
  Signal out = channel_of(through(chain, interleave(first_of({in[0], in[1]}, 480))), 2, 0);
  ASSERT_EQ(chain.SetChannel(1), 0);
  const Signal later = through(chain, from(in, 480)[0]);
  out.insert(out.end(), later.begin(), later.end());

  // The start of the third frame, in front of the end of the second.
  Signal held(in[1].begin() + 384, in[1].begin() + 480);
  held.insert(held.end(), in[1].begin() + 288, in[1].begin() + 384);
  Signal second(in[1].begin(), in[1].begin() + 384);
  while (second.size() < in[0].size()) second.insert(second.end(), held.begin(), held.end());
  BeamFormingByHand stages(param);
  expect_equal(out, late(through(stages, {in[0], second}), kWaiting));
}

}  // namespace
}  // namespace sonivo
