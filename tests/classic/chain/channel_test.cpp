// One channel of each chain: its blobs and what it tells about the detection of key strokes.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <type_traits>

#include "classic/beam_forming_channel.h"
#include "classic/key_cancel_channel.h"
#include "lively_params.h"
#include "stages_by_hand.h"

namespace sonivo::classic {
namespace {

using test::BeamFormingByHand;
using test::clicks_and_phrases;
using test::expect_equal;
using test::frame_of;
using test::KeyCancelByHand;
using test::Signal;

constexpr std::size_t kFrames = 60;

template <class Channel>
struct Kind {
  static constexpr bool kBeams = std::is_same_v<Channel, BeamFormingChannel>;
  using ByHand = std::conditional_t<kBeams, BeamFormingByHand, KeyCancelByHand>;

  static auto params(std::uint16_t id, double peak_hz) {
    if constexpr (kBeams) {
      return std::make_shared<const typename Channel::Param>(test::lively_beam_forming_params(id, peak_hz));
    } else {
      return std::make_shared<const typename Channel::Param>(test::lively_key_cancel_params(id, peak_hz));
    }
  }
};

/// Key strokes over two signals.
const std::vector<Signal>& microphones() {
  static const std::vector<Signal> signals{clicks_and_phrases(kFrames * kHop, 1),
                                           clicks_and_phrases(kFrames * kHop, 2)};
  return signals;
}

Frames input(std::size_t f) {
  Frames in{};
  for (std::size_t c = 0; c < 2; ++c) in[c] = frame_of(microphones()[c], f);
  return in;
}

/// The first channel's output for all frames.
template <class Channel>
Signal run(Channel& channel) {
  Signal out;
  Frames result{};
  for (std::size_t f = 0; f < kFrames; ++f) {
    channel.process(input(f), 0, result);
    test::append(out, result[0]);
  }
  return out;
}

template <class Channel>
class ChannelOf : public testing::Test {
 protected:
  static Signal by_hand(const typename Channel::Param& param) {
    typename Kind<Channel>::ByHand stages(param);
    return through(stages, microphones(), 0);
  }

  /// Processes frames up to one with key strokes.
  void strike() {
    Frames result{};
    for (std::size_t f = 0; f < kFrames; ++f) {
      channel_.process(input(f), 0, result);
      if (f > 20 && statistics().count[0] > 0) return;
    }
    FAIL() << "no key stroke was detected";
  }

  const DetectionStatistics& statistics() const { return channel_.statistics(); }

  const std::shared_ptr<const typename Channel::Param> own_ = Kind<Channel>::params(41, 1500);
  Channel channel_{own_};
};
using ChannelKinds = testing::Types<KeyCancelChannel, BeamFormingChannel>;
TYPED_TEST_SUITE(ChannelOf, ChannelKinds);

TYPED_TEST(ChannelOf, GoesBackToItsOwnBlob) {
  const auto other = Kind<TypeParam>::params(42, 4000);
  const Signal with_own = this->by_hand(*this->own_);
  const Signal with_other = this->by_hand(*other);
  ASSERT_NE(with_own, with_other);
  expect_equal(run(this->channel_), with_own);
  this->channel_.reset(other);
  EXPECT_EQ(&this->channel_.param(), other.get());
  expect_equal(run(this->channel_), with_other);
  this->channel_.reset();
  EXPECT_EQ(&this->channel_.param(), this->own_.get());
  expect_equal(run(this->channel_), with_own);
}

TYPED_TEST(ChannelOf, KeepsItsBypassesAtAReset) {
  this->channel_.keyBypass = true;
  this->channel_.noiseBypass = true;
  this->channel_.reset(Kind<TypeParam>::params(42, 4000));
  this->channel_.reset();
  EXPECT_TRUE(this->channel_.keyBypass);
  EXPECT_TRUE(this->channel_.noiseBypass);
}

TYPED_TEST(ChannelOf, TellsWhatTheLatestFrameDetected) {
  typename Kind<TypeParam>::ByHand stages(*this->own_);
  Frames result{};
  int struck = 0;
  for (std::size_t f = 0; f < kFrames; ++f) {
    const Frames in = input(f);
    this->channel_.process(in, 0, result);
    if constexpr (Kind<TypeParam>::kBeams) {
      stages.process(in[0], in[1]);
    } else {
      stages.process(in[0]);
    }
    ASSERT_EQ(this->statistics().groups, stages.statistics().groups);
    ASSERT_TRUE(std::ranges::equal(this->statistics().count, stages.statistics().count)) << "frame " << f;
    ASSERT_TRUE(std::ranges::equal(this->statistics().peak, stages.statistics().peak)) << "frame " << f;
    struck += this->statistics().count[0] > 0 ? 1 : 0;
  }
  EXPECT_GT(struck, 3);
}

TYPED_TEST(ChannelOf, TellsNothingOnceAFrameWasProcessedWithoutKeyReduction) {
  for (const bool noiseBypass : {false, true}) {
    this->channel_.reset();
    this->channel_.keyBypass = this->channel_.noiseBypass = false;
    ASSERT_NO_FATAL_FAILURE(this->strike());
    this->channel_.keyBypass = true;
    this->channel_.noiseBypass = noiseBypass;
    Frames result{};
    this->channel_.process(input(0), 0, result);
    EXPECT_EQ(this->statistics().groups, 1);
    for (const int count : this->statistics().count) EXPECT_EQ(count, 0);
    for (const float peak : this->statistics().peak) EXPECT_EQ(peak, 0.0f);
  }
}

TYPED_TEST(ChannelOf, TellsTheSameOnceAFramePassedBy) {
  ASSERT_NO_FATAL_FAILURE(this->strike());
  const DetectionStatistics before = this->statistics();
  for (const bool keyBypass : {false, true}) {
    this->channel_.keyBypass = keyBypass;
    Frames result{};
    this->channel_.process(Frames{}, 0, result);
    EXPECT_TRUE(std::ranges::equal(this->statistics().count, before.count));
    EXPECT_TRUE(std::ranges::equal(this->statistics().peak, before.peak));
  }
}

TEST(BeamFormingChannel, HoldsTheBlobOfTheStatesThatItTookOver) {
  auto other = Kind<BeamFormingChannel>::params(42, 4000);
  const std::weak_ptr<const BeamFormingKeyCancelParam> watched = other;
  BeamFormingKeyCancelParam copy = *other;
  BeamFormingChannel first(Kind<BeamFormingChannel>::params(41, 1500));
  BeamFormingChannel second(Kind<BeamFormingChannel>::params(41, 1500));
  first.reset(other);
  second.copy_states(first);
  EXPECT_EQ(&second.param(), other.get());
  other.reset();
  first.reset();
  ASSERT_FALSE(watched.expired());
  BeamFormingByHand stages(copy);
  expect_equal(run(second), through(stages, microphones()));
}

}  // namespace
}  // namespace sonivo::classic
