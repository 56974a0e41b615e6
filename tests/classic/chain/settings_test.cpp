// What SetParam, SetChannel and the flags of the stages mean for each of the four channels, against stages connected
// by hand.

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
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

/// Four signals, others for another take.
std::vector<Signal> microphones(std::uint32_t take) {
  std::vector<Signal> signals;
  for (std::uint32_t c = 1; c <= 4; ++c) signals.push_back(clicks_and_phrases(kLength, 4 * take + c));
  return signals;
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
  constexpr std::size_t kWaiting = 96;  // samples in the queue, of blocks of 480
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

}  // namespace
}  // namespace sonivo
