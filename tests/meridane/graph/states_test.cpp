// Streams of real layers that are suspended and resumed.

#include <array>

#include "stream_networks.h"

namespace meridane::test {
namespace {

constexpr int kSteps = 12;

std::shared_ptr<NNScorer> scorer_of(const NNParameter& network) {
  return std::dynamic_pointer_cast<NNScorer>(network.create_scorer());
}

/// What a step gives; the step behind the last one is without input.
Matrix step(NNScorer& scorer, int stream, int number) {
  scorer.set_input(number < kSteps ? std::make_shared<Minibatch>(input_of(stream, number)) : nullptr);
  return scorer.output();
}

class AStream : public testing::Test {
 protected:
  std::vector<Matrix> unbroken(int stream) const {
    const auto scorer = scorer_of(*network_);
    std::vector<Matrix> outputs;
    for (int i = 0; i <= kSteps; ++i) outputs.push_back(step(*scorer, stream, i));
    return outputs;
  }

  const std::shared_ptr<NNParameter> network_ = stateful_network();
};

TEST_F(AStream, GivesAllItsFramesAndHoldsSomeBack) {
  Eigen::Index frames = 0;
  for (const Matrix& output : unbroken(0)) frames += output.cols();
  EXPECT_EQ(frames, 5 * kSteps);
  EXPECT_GT(unbroken(0).back().cols(), 0);
}

TEST_F(AStream, GoesOnInAnotherScorerFromItsStates) {
  const std::vector<Matrix> expected = unbroken(0);
  NNScorer::States states = scorer_of(*network_)->get_states();
  for (int i = 0; i <= kSteps; ++i) {
    const auto scorer = scorer_of(*network_);
    scorer->set_states(states);
    EXPECT_EQ(step(*scorer, 0, i), expected[static_cast<std::size_t>(i)]) << i;
    states = scorer->get_states();
  }
}

TEST_F(AStream, SharesAScorerWithAnother) {
  const std::array expected = {unbroken(0), unbroken(1)};
  ASSERT_NE(expected[0], expected[1]);
  const auto scorer = scorer_of(*network_);
  std::array states = {scorer->get_states(), scorer->get_states()};
  for (int i = 0; i <= kSteps; ++i) {
    for (const int stream : {0, 1}) {
      const auto at = static_cast<std::size_t>(stream);
      scorer->set_states(states[at]);
      EXPECT_EQ(step(*scorer, stream, i), expected[at][static_cast<std::size_t>(i)]) << i;
      states[at] = scorer->get_states();
    }
  }
}

TEST_F(AStream, ThatIsSuspendedCanBeResumedMoreThanOnce) {
  const std::vector<Matrix> expected = unbroken(0);
  const auto scorer = scorer_of(*network_);
  for (int i = 0; i < 3; ++i) step(*scorer, 0, i);
  const NNScorer::States kept = scorer->get_states();
  for (int round = 0; round < 2; ++round) {
    NNScorer::States copy;
    for (const auto& [id, state] : kept) copy[id] = state == nullptr ? nullptr : state->clone();
    scorer->set_states(copy);
    for (int i = 3; i <= kSteps; ++i) EXPECT_EQ(step(*scorer, 0, i), expected[static_cast<std::size_t>(i)]) << i;
  }
}

TEST_F(AStream, BeginsAnewAfterAReset) {
  const std::vector<Matrix> expected = unbroken(0);
  const auto scorer = scorer_of(*network_);
  for (int i = 0; i < 5; ++i) step(*scorer, 1, i);
  scorer->reset();
  for (int i = 0; i <= kSteps; ++i) EXPECT_EQ(step(*scorer, 0, i), expected[static_cast<std::size_t>(i)]) << i;
}

TEST(BytesOfAScorer, AreThoseOfItsStatesAndResults) {
  ensure_layer_tables();
  std::istringstream record("LSTM" + lstm(8));
  const HandmadeNetwork network(8, 8, {NNLayerBuilder::build("LSTM", "lstm", nullptr, record)},
                                {{"_input", "lstm"}, {"lstm", "_output"}});
  NNScorer scorer(network);
  constexpr std::uint64_t kState = 2 * 8 * sizeof(float), kFrame = 8 * sizeof(float);
  EXPECT_EQ(scorer.bytes(), kState);
  for (int i = 0; i < 3; ++i) {
    step(scorer, 0, i);
    EXPECT_EQ(scorer.bytes(), kState + (5 + 5) * kFrame) << i;  // the input is the result of the first layer
  }
}

}  // namespace
}  // namespace meridane::test
