// Scorers of networks that change the number of frames or hold frames back, and which network gets which.

#include <random>

#include "../support/graph_layers.h"
#include "../support/network_bytes.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

MinibatchPtr ramp(int first, int count) {
  Matrix content(1, count);
  for (int i = 0; i < count; ++i) content(0, i) = static_cast<float>(first + i);
  return std::make_shared<Minibatch>(std::move(content));
}

std::vector<float> output_of(NNScorer& scorer, MinibatchPtr input) {
  scorer.set_input(std::move(input));
  const Matrix& content = scorer.output_minibatch().content();
  return {content.data(), content.data() + content.size()};
}

HandmadeNetwork network_with(const std::shared_ptr<NNLayer>& layer) {
  return {1,
          1,
          {std::make_shared<DigitLayer>("a", 0.0f), layer},
          {{"_input", "a"}, {"a", layer->id()}, {layer->id(), "_output"}}};
}

TEST(TheScorer, FollowsFromTheLayers) {
  const auto scorer_of = [](const std::shared_ptr<NNLayer>& layer) { return network_with(layer).create_scorer(); };
  const auto plain = scorer_of(std::make_shared<StrideLayer>("s", 2, false));
  EXPECT_NE(dynamic_cast<NNScorer*>(plain.get()), nullptr);
  EXPECT_EQ(dynamic_cast<NNScorerVariableLength*>(plain.get()), nullptr);
  const auto variable = scorer_of(std::make_shared<StrideLayer>("s", 2, true));
  EXPECT_NE(dynamic_cast<NNScorerVariableLength*>(variable.get()), nullptr);
  EXPECT_EQ(dynamic_cast<NNScorerForLCBLSTM*>(variable.get()), nullptr);
  for (const char* type : {"LCBLSTM", "CompressedLCBLSTM", "QuantizedLCBLSTM"}) {
    const auto held = scorer_of(std::make_shared<HoldBackLayer>("h", type));
    EXPECT_NE(dynamic_cast<NNScorerForLCBLSTM*>(held.get()), nullptr) << type;
  }
  for (const char* type : {"BLSTM", "LCBLST", "lcblstm"}) {
    const auto other = scorer_of(std::make_shared<HoldBackLayer>("h", type));
    EXPECT_EQ(dynamic_cast<NNScorerForLCBLSTM*>(other.get()), nullptr) << type;
  }
}

TEST(TheScorer, FollowsFromLayersBesideTheWayToo) {
  const HandmadeNetwork network(1, 1,
                                {std::make_shared<HoldBackLayer>("dead"), std::make_shared<DigitLayer>("a", 0.0f)},
                                {{"_input", "a"}, {"_input", "dead"}, {"a", "_output"}});
  EXPECT_NE(dynamic_cast<NNScorerForLCBLSTM*>(network.create_scorer().get()), nullptr);
}

TEST(AVariableLengthScorer, LetsTheNumberOfFramesChange) {
  const auto network = network_with(std::make_shared<StrideLayer>("s", 2, true));
  NNScorerVariableLength scorer(network);
  EXPECT_EQ(output_of(scorer, ramp(1, 5)), (std::vector{10.0f, 30.0f, 50.0f}));
  EXPECT_EQ(output_of(scorer, ramp(1, 1)), (std::vector{10.0f}));
}

TEST(AVariableLengthScorer, ChecksItsInputAsAnyOther) {
  const auto network = network_with(std::make_shared<StrideLayer>("s", 2, true));
  NNScorerVariableLength scorer(network);
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data");
  EXPECT_EQ(failure_of([&] { output_of(scorer, std::make_shared<Minibatch>(Matrix(Matrix::Zero(2, 2)))); }),
            "number of dimensions of input data does not accord to the network");
  EXPECT_THROW(scorer.set_input(std::make_shared<FrameSequence>()), std::out_of_range);
}

/// 12 frames, every 2nd of them fed, every 2nd of those kept: 0, 4, 8. Frame i is result i / 2, the last beyond it.
TEST(AVariableLengthScorer, StretchesTheResultToTheInput) {
  const auto network = network_with(std::make_shared<StrideLayer>("s", 2, true));
  NNScorerVariableLength scorer(network);
  scorer.set_frame_skip(2);
  EXPECT_EQ(output_of(scorer, ramp(0, 12)),
            (std::vector{0.0f, 0.0f, 40.0f, 40.0f, 80.0f, 80.0f, 80.0f, 80.0f, 80.0f, 80.0f, 80.0f, 80.0f}));
}

/// 5 frames, of which 0, 2 and 4 are fed; each comes out twice. Frame i is result i / 2; the last ones stand for none.
TEST(AVariableLengthScorer, TakesOfMoreResultsThanFramesFedTheFirst) {
  class TwiceLayer : public UnstoredLayer {
   public:
    using UnstoredLayer::UnstoredLayer;
    bool is_variable_length() const override { return true; }
    using NNLayer::forward;
    MinibatchPtr forward(const LayerInputs& inputs) const override {
      const Matrix& x = only_input(inputs)->content();
      return std::make_shared<Minibatch>(
          Matrix(Matrix::NullaryExpr(x.rows(), 2 * x.cols(), [&](Eigen::Index i, Eigen::Index t) {
            return x(i, t / 2) + static_cast<float>(t % 2);
          })));
    }
  };
  const auto network = network_with(std::make_shared<TwiceLayer>("t", "Twice"));
  NNScorerVariableLength scorer(network);
  EXPECT_EQ(output_of(scorer, ramp(1, 2)), (std::vector{10.0f, 11.0f, 20.0f, 21.0f})) << "without a skip";
  scorer.set_frame_skip(2);
  EXPECT_EQ(output_of(scorer, ramp(1, 5)), (std::vector{10.0f, 10.0f, 11.0f, 11.0f, 30.0f}));
}

TEST(AVariableLengthScorer, LeavesASingleFrameAsItIs) {
  const auto network = network_with(std::make_shared<StrideLayer>("s", 2, true));
  NNScorerVariableLength scorer(network);
  scorer.set_frame_skip(3);
  EXPECT_EQ(output_of(scorer, ramp(7, 3)), (std::vector{70.0f})) << "one frame of three";
  EXPECT_EQ(output_of(scorer, ramp(7, 6)), (std::vector{70.0f})) << "two frames fed, one kept";
  EXPECT_EQ(output_of(scorer, ramp(7, 7)).size(), 7u) << "three fed, two kept";
}

TEST(AHoldingBackScorer, GetsTheLastFramesOutWithoutInput) {
  const auto network = network_with(std::make_shared<HoldBackLayer>("h"));
  NNScorerForLCBLSTM scorer(network);
  EXPECT_EQ(output_of(scorer, ramp(1, 3)), (std::vector{10.0f, 20.0f}));
  EXPECT_EQ(output_of(scorer, ramp(4, 1)), (std::vector{30.0f}));
  scorer.set_input(std::shared_ptr<FrameSequence>());
  EXPECT_EQ(scorer.score(0, 0), 40.0f);
  scorer.set_input(std::make_shared<FrameSequence>());
  EXPECT_EQ(scorer.output().size(), 0) << "nothing left";
  EXPECT_EQ(output_of(scorer, ramp(1, 2)), (std::vector{10.0f})) << "a new stream";
  EXPECT_EQ(output_of(scorer, nullptr), (std::vector{20.0f}));
}

TEST(AHoldingBackScorer, ShowsLayersAnEmptyInput) {
  const auto network = network_with(std::make_shared<HoldBackLayer>("h"));
  NNScorerForLCBLSTM scorer(network);
  scorer.execute();
  const MinibatchPtr given = scorer.get_layer_output("_input");
  EXPECT_EQ(given->content().rows(), 0);
  EXPECT_EQ(given->content().cols(), 0);
}

TEST(AHoldingBackScorer, ChecksRealInput) {
  const auto network = network_with(std::make_shared<HoldBackLayer>("h"));
  NNScorerForLCBLSTM scorer(network);
  EXPECT_EQ(failure_of([&] { output_of(scorer, std::make_shared<Minibatch>(Matrix(Matrix::Zero(2, 2)))); }),
            "number of dimensions of input data does not accord to the network");
  for (const Eigen::Index rows : {0, 1, 2}) {  // no frames are no end of the stream
    EXPECT_EQ(failure_of([&] { output_of(scorer, std::make_shared<Minibatch>(Matrix(rows, 0))); }),
              "didn't set input data");
  }
  auto frames = std::make_shared<FrameSequence>();
  frames->emplace_back(Vector(Vector::Constant(1, 6.0f)));
  frames->emplace_back(Vector(Vector::Constant(1, 7.0f)));
  scorer.set_input(frames);
  EXPECT_EQ(scorer.score(0, 0), 60.0f);
}

TEST(AHoldingBackScorer, StretchesUnderAFrameSkip) {
  const auto network = network_with(std::make_shared<HoldBackLayer>("h"));
  NNScorerForLCBLSTM scorer(network);
  scorer.set_frame_skip(2);
  EXPECT_EQ(output_of(scorer, ramp(0, 6)), (std::vector{0.0f, 0.0f, 20.0f, 20.0f, 20.0f, 20.0f}));
  EXPECT_EQ(output_of(scorer, nullptr), (std::vector{40.0f})) << "a single frame stays one";
}

TEST(AHoldingBackScorer, StretchesWhatAFlushGivesByTheSkip) {
  class HoldAll : public HoldBackLayer {
   public:
    using HoldBackLayer::forward;
    using HoldBackLayer::HoldBackLayer;
    MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override {
      Matrix& held = dynamic_cast<HeldState&>(*state).held;
      const Matrix& x = only_input(inputs)->content();
      if (x.cols() == 0) return std::make_shared<Minibatch>(std::exchange(held, Matrix()));
      held = x;
      return std::make_shared<Minibatch>(Matrix(1, 0));
    }
  };
  const auto network = network_with(std::make_shared<HoldAll>("h"));
  NNScorerForLCBLSTM scorer(network);
  scorer.set_frame_skip(3);
  EXPECT_EQ(output_of(scorer, ramp(0, 6)).size(), 0u);
  EXPECT_EQ(output_of(scorer, nullptr), (std::vector{0.0f, 0.0f, 0.0f, 30.0f, 30.0f, 30.0f}));
}

TEST(AHoldingBackScorer, GivesTheSameFramesInAnyChunks) {
  const auto network = network_with(std::make_shared<HoldBackLayer>("h"));
  std::mt19937 random(3);
  for (int round = 0; round < 20; ++round) {
    NNScorerForLCBLSTM scorer(network);
    NNScorerForLCBLSTM resumed(network);
    std::vector<float> all;
    for (int at = 0; at < 40;) {
      const int count = std::min(1 + static_cast<int>(random() % 7), 40 - at);
      const auto part = output_of(scorer, ramp(at, count));
      all.insert(all.end(), part.begin(), part.end());
      resumed.set_states(scorer.get_states());
      at += count;
    }
    const float last = 390.0f;
    EXPECT_EQ(output_of(resumed, nullptr), std::vector{last}) << "from the state alone";
    EXPECT_EQ(output_of(scorer, nullptr), std::vector{last});
    all.push_back(last);
    ASSERT_EQ(all.size(), 40u);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(all[static_cast<std::size_t>(i)], static_cast<float>(10 * i));
  }
}

}  // namespace
}  // namespace meridane::test
