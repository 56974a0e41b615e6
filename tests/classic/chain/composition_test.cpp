// How the classic chains connect their stages, against the same stages connected by hand.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>
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

constexpr std::size_t kFrame = kHop;
constexpr std::size_t kLength = 300 * kFrame;

template <class Chain, class Param>
void open(Chain& chain, const Param& param, std::uint16_t channels) {
  ASSERT_EQ(chain.Open(&param, 48000.0f, channels, kHop), 0);
}

Signal frames_of(const Signal& signal, std::size_t first, std::size_t end) {
  return {signal.begin() + static_cast<std::ptrdiff_t>(first * kFrame),
          signal.begin() + static_cast<std::ptrdiff_t>(end * kFrame)};
}

std::string name_of(const Active& active) {
  const std::string name =
      std::string(active.beam ? "Beam" : "") + (active.key ? "Key" : "") + (active.noise ? "Noise" : "");
  return name.empty() ? "None" : name;
}

using KeyNoise = std::tuple<bool, bool>;
using BeamKeyNoise = std::tuple<bool, bool, bool>;

Active active_of(const KeyNoise& on) { return {.beam = false, .key = std::get<0>(on), .noise = std::get<1>(on)}; }
Active active_of(const BeamKeyNoise& on) { return {std::get<0>(on), std::get<1>(on), std::get<2>(on)}; }

const auto kNameOfActive = [](const auto& test) { return name_of(active_of(test.param)); };

/// What both signals are to call up: voice and its absence, key strokes.
template <class ByHand>
void expect_all_at_work(ByHand& stages, const std::vector<Signal>& in) {
  int voiced = 0;
  int struck = 0;
  for (std::size_t f = 0; f < kLength / kFrame; ++f) {
    std::vector<Signal> frame;
    for (const Signal& signal : in) frame.push_back(frames_of(signal, f, f + 1));
    through(stages, frame, 0);
    voiced += stages.voice() ? 1 : 0;
    struck += stages.statistics().count[0] > 0 ? 1 : 0;
  }
  EXPECT_GT(voiced, 50);
  EXPECT_LT(voiced, 250);
  EXPECT_GT(struck, 5);
  EXPECT_LT(struck, 100);
}

TEST(Composition, IsTestedWithVoiceAndKeyStrokes) {
  const auto single = lively_key_cancel_params();
  const auto beams = lively_beam_forming_params();
  KeyCancelByHand one(single);
  BeamFormingByHand two(beams);
  expect_all_at_work(one, {clicks_and_phrases(kLength)});
  expect_all_at_work(two, {clicks_and_phrases(kLength, 1), clicks_and_phrases(kLength, 2)});
}

class KeyCancelComposition : public testing::TestWithParam<KeyNoise> {
 protected:
  const Active active_ = active_of(GetParam());
  const classic::KeyCancelParam param_ = lively_key_cancel_params();
  const Signal in_ = clicks_and_phrases(kLength);
};

TEST_P(KeyCancelComposition, IsFilterThenKeyReductionThenNoiseReduction) {
  CKeyCancel chain;
  KeyCancelByHand stages(param_);
  open(chain, param_, 1);
  activate(chain, active_);
  stages.active = active_;
  expect_equal(through(chain, in_), through(stages, {in_}, 0));
}

/// The stages that are active here are those that pause for 20 frames.
TEST_P(KeyCancelComposition, LeavesAStageThatIsPassedOverAsItStood) {
  const Active others{.beam = false, .key = !active_.key, .noise = !active_.noise};
  CKeyCancel chain;
  KeyCancelByHand stages(param_);
  open(chain, param_, 1);
  for (const auto& [first, end, active] : {std::tuple(0u, 150u, Active{}), {150u, 170u, others}, {170u, 300u, {}}}) {
    SCOPED_TRACE("from frame " + std::to_string(first));
    const Signal part = frames_of(in_, first, end);
    activate(chain, active);
    stages.active = active;
    expect_equal(through(chain, part), through(stages, {part}, 0));
  }
}

INSTANTIATE_TEST_SUITE_P(Stages, KeyCancelComposition, testing::Combine(testing::Bool(), testing::Bool()),
                         kNameOfActive);

class BeamFormingComposition : public testing::TestWithParam<BeamKeyNoise> {
 protected:
  const Active active_ = active_of(GetParam());
  const classic::BeamFormingKeyCancelParam param_ = lively_beam_forming_params();
  const std::vector<Signal> in_{clicks_and_phrases(kLength, 1), clicks_and_phrases(kLength, 2)};
};

TEST_P(BeamFormingComposition, IsFiltersThenBeamsThenKeyReductionThenNoiseReduction) {
  CBeamFormingKeyCancel chain;
  BeamFormingByHand stages(param_);
  open(chain, param_, 2);
  activate(chain, active_);
  stages.active = active_;
  const Signal out = through(chain, interleave(in_));
  const Signal expected = through(stages, in_);
  expect_equal(channel_of(out, 2, 0), expected);
  expect_equal(channel_of(out, 2, 1), expected);
}

/// The stages that are active here are those that pause for 20 frames.
TEST_P(BeamFormingComposition, LeavesAStageThatIsPassedOverAsItStood) {
  const Active others{.beam = !active_.beam, .key = !active_.key, .noise = !active_.noise};
  CBeamFormingKeyCancel chain;
  BeamFormingByHand stages(param_);
  open(chain, param_, 2);
  for (const auto& [first, end, active] : {std::tuple(0u, 150u, Active{}), {150u, 170u, others}, {170u, 300u, {}}}) {
    SCOPED_TRACE("from frame " + std::to_string(first));
    const std::vector<Signal> part{frames_of(in_[0], first, end), frames_of(in_[1], first, end)};
    activate(chain, active);
    stages.active = active;
    expect_equal(channel_of(through(chain, interleave(part)), 2, 0), through(stages, part));
  }
}

INSTANTIATE_TEST_SUITE_P(Stages, BeamFormingComposition,
                         testing::Combine(testing::Bool(), testing::Bool(), testing::Bool()), kNameOfActive);

TEST(Composition, SoundsDifferentWithEveryChoiceOfStages) {
  const auto param = lively_beam_forming_params();
  const std::vector<Signal> in{clicks_and_phrases(kLength, 1), clicks_and_phrases(kLength, 2)};
  std::set<Signal> sounds;
  for (const bool beam : {false, true}) {
    for (const bool key : {false, true}) {
      for (const bool noise : {false, true}) {
        BeamFormingByHand stages(param);
        stages.active = {beam, key, noise};
        sounds.insert(through(stages, in));
      }
    }
  }
  EXPECT_EQ(sounds.size(), 8u);
}

TEST(BeamFormingKeyCancel, WithOneChannelHearsTheLastFrameOfTheSecondInputAgainAndAgain) {
  const auto param = lively_beam_forming_params();
  const Signal first = clicks_and_phrases(100 * kFrame, 1);
  const Signal second = clicks_and_phrases(40 * kFrame, 2);
  CBeamFormingKeyCancel chain;
  open(chain, param, 2);
  Signal heard = channel_of(through(chain, interleave({frames_of(first, 0, 40), second})), 2, 0);
  ASSERT_EQ(chain.SetChannel(1), 0);
  const Signal rest = through(chain, frames_of(first, 40, 100));
  heard.insert(heard.end(), rest.begin(), rest.end());

  Signal repeated = second;
  while (repeated.size() < first.size()) repeated.insert(repeated.end(), second.end() - kHop, second.end());
  BeamFormingByHand stages(param);
  expect_equal(heard, through(stages, {first, repeated}));
}

TEST(BeamFormingKeyCancel, WithOneChannelFromTheStartHearsNothingOnTheSecondInput) {
  const auto param = lively_beam_forming_params();
  const Signal in = clicks_and_phrases(100 * kFrame);
  CBeamFormingKeyCancel chain;
  open(chain, param, 1);
  BeamFormingByHand stages(param);
  expect_equal(through(chain, in), through(stages, {in, Signal(in.size())}));
}

}  // namespace
}  // namespace sonivo
