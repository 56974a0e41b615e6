#include "meridane/framescore/scorer.h"

#include <random>

#include "../support/graph_layers.h"
#include "../support/network_bytes.h"

namespace meridane::test {
namespace {

MinibatchPtr frames_of(Matrix content) { return std::make_shared<Minibatch>(std::move(content)); }

/// Frames of one row.
Matrix row(const std::vector<float>& values) {
  return Eigen::Map<const Matrix>(values.data(), 1, static_cast<Eigen::Index>(values.size()));
}

std::vector<float> values_of(const Matrix& matrix) { return {matrix.data(), matrix.data() + matrix.size()}; }

std::shared_ptr<FrameSequence> sequence_of(const std::vector<Vector>& frames) {
  auto sequence = std::make_shared<FrameSequence>();
  for (const auto& frame : frames) sequence->emplace_back(frame);
  return sequence;
}

/// _input -> a -> b.
HandmadeNetwork chain(const std::shared_ptr<NNLayer>& a, const std::shared_ptr<NNLayer>& b, std::uint64_t rows = 1) {
  return {rows, rows, {a, b}, {{"_input", a->id()}, {a->id(), b->id()}, {b->id(), "_output"}}};
}

HandmadeNetwork alone(const std::shared_ptr<NNLayer>& layer, std::uint64_t rows = 1) {
  return {rows, rows, {layer}, {{"_input", layer->id()}, {layer->id(), "_output"}}};
}

/// y = first input - second input.
class DifferenceLayer : public UnstoredLayer {
 public:
  explicit DifferenceLayer(const std::string& id) : UnstoredLayer(id, "Difference") {}
  using NNLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs) const override {
    return frames_of(inputs[0]->content() - inputs[1]->content());
  }
};

/// y = its input, the same minibatch.
class HandOnLayer : public UnstoredLayer {
 public:
  explicit HandOnLayer(const std::string& id) : UnstoredLayer(id, "HandOn") {}
  using NNLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs) const override { return only_input(inputs); }
};

/// Hands its input on, and holds the first one.
class HoldingLayer : public HandOnLayer {
 public:
  using HandOnLayer::HandOnLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override {
    if (first == nullptr) first = only_input(inputs);
    return only_input(inputs);
  }
  mutable MinibatchPtr first;
};

TEST(AScorer, NeedsALoadedNetwork) {
  const NNParameter empty;
  try {
    empty.create_scorer();
    FAIL() << "nothing was thrown";
  } catch (const BaseRuntimeError& error) {
    EXPECT_STREQ(error.what(), "A network that has not been loaded can't be run");
  }
}

TEST(AScorer, NeedsFramesOfTheNetworksSize) {
  const auto network = chain(std::make_shared<DigitLayer>("a", 1.0f), std::make_shared<DigitLayer>("b", 2.0f), 3);
  NNScorer scorer(network);
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data");
  scorer.set_input(frames_of(Matrix(3, 0)));
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data");
  scorer.set_input(frames_of(Matrix(2, 0)));
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data") << "before their size";
  scorer.set_input(MinibatchPtr());
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data");
  scorer.set_input(std::shared_ptr<FrameSequence>());
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data");
  for (const Eigen::Index rows : {2, 4}) {
    scorer.set_input(frames_of(Matrix::Zero(rows, 5)));
    EXPECT_EQ(failure_of([&] { scorer.output(); }),
              "number of dimensions of input data does not accord to the network");
  }
  scorer.set_input(frames_of(Matrix::Zero(3, 1)));
  EXPECT_EQ(scorer.output().cols(), 1);
}

TEST(AScorer, TakesASequenceOfVectors) {
  const auto network = alone(std::make_shared<DigitLayer>("a", 1.0f), 2);
  NNScorer scorer(network);
  scorer.set_input(sequence_of({Vector{{1.0f, 2.0f}}, Vector{{3.0f, 4.0f}}}));
  EXPECT_EQ(values_of(scorer.output()), (std::vector{11.0f, 21.0f, 31.0f, 41.0f}));
}

TEST(AScorer, KeepsNoInputBehindOneThatCannotBeTaken) {
  const auto order = std::make_shared<Order>();
  const auto network = alone(std::make_shared<DigitLayer>("a", 1.0f, order), 2);
  NNScorer scorer(network);
  const auto start = [&] {
    scorer.set_input(sequence_of({Vector{{1.0f, 2.0f}}}));
    scorer.execute();
    order->clear();
  };
  const auto expect_nothing = [&](const char* what) {
    EXPECT_EQ(failure_of([&] { scorer.output(); }), "didn't set input data") << what;
    EXPECT_TRUE(order->empty()) << what;
  };
  start();
  EXPECT_THROW(scorer.set_input(std::make_shared<FrameSequence>()), std::out_of_range);
  expect_nothing("an empty sequence");
  start();
  EXPECT_EQ(failure_of([&] {
              scorer.set_input(sequence_of({Vector::Zero(2), Vector::Zero(3)}));
            }),
            "number of dimentions of input data does not accord");
  expect_nothing("two lengths");
  start();
  EXPECT_THROW(scorer.set_input(std::make_shared<FrameSequence>(1, FrameValue("text"))), std::bad_variant_access);
  expect_nothing("no vector");
}

TEST(AScorer, TakesNoNoticeOfTheOtherFormsOfInput) {
  const auto network = alone(std::make_shared<DigitLayer>("a", 1.0f));
  NNScorer scorer(network);
  FrameScorer& base = scorer;
  base.set_input(std::make_shared<Matrix>(row({1.0f})));
  base.set_input(std::make_shared<IntVector>(IntVector::Zero(1)));
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "didn't set input data");
  scorer.set_input(frames_of(row({4.0f})));
  scorer.execute();
  base.set_input(std::make_shared<Matrix>(row({1.0f})));
  EXPECT_EQ(scorer.score(0, 0), 41.0f);
}

TEST(AScorer, RunsOncePerInput) {
  const auto order = std::make_shared<Order>();
  const auto network =
      chain(std::make_shared<DigitLayer>("a", 1.0f, order), std::make_shared<DigitLayer>("b", 2.0f, order));
  NNScorer scorer(network);
  scorer.set_input(frames_of(row({3.0f, 4.0f})));
  EXPECT_TRUE(order->empty()) << "not before it is asked";
  EXPECT_EQ(scorer.score(0, 0), 312.0f);
  EXPECT_EQ(scorer.score(1, 0), 412.0f);
  EXPECT_EQ(values_of(scorer.output()), (std::vector{312.0f, 412.0f}));
  EXPECT_EQ(*order, (Order{"a", "b"}));
  scorer.set_input(frames_of(row({3.0f})));
  scorer.output();
  EXPECT_EQ(*order, (Order{"a", "b", "a", "b"}));
}

TEST(AScorer, TellsOneScoreOfAFrame) {
  const HandmadeNetwork network(2, 7, {std::make_shared<DigitLayer>("a", 5.0f)}, {{"_input", "a"}, {"a", "_output"}});
  NNScorer scorer(network);
  EXPECT_EQ(scorer.output_dimension(), 7u) << "what the file says";
  EXPECT_EQ(scorer.frame_count_hint(), -1);
  scorer.set_input(frames_of(Matrix{{1.0f, 2.0f, 3.0f}, {4.0f, 5.0f, 6.0f}}));
  EXPECT_EQ(scorer.score(2, 0), 35.0f);
  EXPECT_EQ(scorer.score(0, 1), 45.0f);
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { scorer.score(3, 0); }),
            "There is no score of frame 3 and dimension 0");
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { scorer.score(0, 2); }),
            "There is no score of frame 0 and dimension 2");
  EXPECT_THROW(scorer.score(~std::uint64_t{0}, ~std::uint64_t{0}), DimensionMismatchError);
}

TEST(AScorer, GivesLayersTheirInputsInTheOrderOfTheLinks) {
  const auto a = std::make_shared<DigitLayer>("a", 1.0f);
  const auto b = std::make_shared<DigitLayer>("b", 2.0f);
  const auto minus = std::make_shared<DifferenceLayer>("minus");
  const NNParameter::Link end{"minus", "_output"};
  const HandmadeNetwork b_first(1, 1, {a, b, minus},
                                {{"_input", "a"}, {"_input", "b"}, {"b", "minus"}, {"a", "minus"}, end});
  const HandmadeNetwork a_first(1, 1, {a, b, minus},
                                {{"_input", "b"}, {"_input", "a"}, {"a", "minus"}, {"b", "minus"}, end});
  for (const auto& [network, expected] : {std::pair(&b_first, 1.0f), std::pair(&a_first, -1.0f)}) {
    NNScorer scorer(*network);
    scorer.set_input(frames_of(row({3.0f})));
    EXPECT_EQ(scorer.score(0, 0), expected);
  }
}

TEST(AScorer, RunsOnlyWhatLeadsToTheEnd) {
  const auto order = std::make_shared<Order>();
  const HandmadeNetwork network(
      1, 1, {std::make_shared<DigitLayer>("dead", 9.0f, order), std::make_shared<DigitLayer>("a", 1.0f, order)},
      {{"_input", "dead"}, {"_input", "a"}, {"a", "_output"}});
  NNScorer scorer(network);
  scorer.set_input(frames_of(row({3.0f})));
  EXPECT_EQ(scorer.score(0, 0), 31.0f);
  EXPECT_EQ(*order, Order{"a"});
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("dead"); }), "couldn't find \"dead\" layer");
}

/// A layer that nothing leads to is in no path, but others may ask for its result.
TEST(AScorer, ReportsTheInputThatNobodyComputes) {
  const HandmadeNetwork network(1, 1,
                                {std::make_shared<DigitLayer>("orphan", 9.0f), std::make_shared<DigitLayer>("a", 1.0f)},
                                {{"_input", "a"}, {"orphan", "a"}, {"a", "_output"}});
  NNScorer scorer(network);
  scorer.set_input(frames_of(row({3.0f})));
  EXPECT_EQ(failure_of([&] { scorer.execute(); }), "No data is being provided to layer a");
}

TEST(AScorer, TellsWhatEachLayerGave) {
  const auto network = chain(std::make_shared<DigitLayer>("a", 1.0f), std::make_shared<DigitLayer>("b", 2.0f));
  NNScorer scorer(network);
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("a"); }), "not executed (get_layer_output)");
  const auto input = frames_of(row({3.0f}));
  scorer.set_input(input);
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("nobody"); }), "not executed (get_layer_output)");
  scorer.execute();
  EXPECT_EQ(scorer.get_layer_output("_input"), input);
  EXPECT_EQ(values_of(scorer.get_layer_output("a")->content()), std::vector{31.0f});
  EXPECT_EQ(values_of(scorer.get_layer_output("b")->content()), std::vector{312.0f});
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("nobody"); }), "couldn't find \"nobody\" layer");
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("_output"); }), "couldn't find \"_output\" layer");
  scorer.set_input(input);
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("a"); }), "not executed (get_layer_output)");
}

TEST(AScorer, LeavesAloneWhatOthersHold) {
  const auto network = chain(std::make_shared<DigitLayer>("a", 1.0f), std::make_shared<DigitLayer>("b", 2.0f));
  NNScorer scorer(network);
  const auto input = frames_of(row({3.0f}));
  scorer.set_input(input);
  scorer.execute();
  const MinibatchPtr kept = scorer.get_layer_output("a");
  const MinibatchPtr kept_end = scorer.get_layer_output("b");
  scorer.set_input(frames_of(row({5.0f})));
  EXPECT_EQ(scorer.score(0, 0), 512.0f);
  EXPECT_EQ(values_of(kept->content()), std::vector{31.0f});
  EXPECT_EQ(values_of(kept_end->content()), std::vector{312.0f});
  EXPECT_EQ(values_of(input->content()), std::vector{3.0f});
}

/// Results that others look at while they are read by layers that run later, handed on, and of several sizes.
std::shared_ptr<NNParameter> forked_network() {
  const auto layer = [](const std::string& id) { return std::make_shared<DigitLayer>(id, 1.0f); };
  return std::make_shared<HandmadeNetwork>(
      1, 1,
      std::vector<std::shared_ptr<NNLayer>>{layer("a"), layer("b"), layer("c"), layer("d"), layer("e"),
                                            std::make_shared<HandOnLayer>("same"),
                                            std::make_shared<StrideLayer>("half", 2, true), layer("f"), layer("g")},
      Links{{"_input", "a"},
            {"a", "b"},
            {"b", "c"},
            {"c", "same"},
            {"same", "d"},
            {"a", "d"},
            {"c", "e"},
            {"d", "e"},
            {"e", "half"},
            {"half", "f"},
            {"f", "g"},
            {"half", "g"},
            {"g", "_output"}});
}

TEST(AScorerThatKeepsNoResults, GivesWhatOneGivesThatKeepsThem) {
  const auto network = forked_network();
  NNScorerVariableLength keeping(*network), other(*network);
  other.set_keeps_results(false);
  for (const unsigned skip : {1u, 2u}) {
    for (const int frames : {5, 5, 5, 2, 9, 9, 1, 5, 5}) {
      const auto input = frames_of(Matrix::Random(1, frames));
      for (NNScorer* const scorer : {static_cast<NNScorer*>(&keeping), static_cast<NNScorer*>(&other)}) {
        scorer->set_frame_skip(skip);
        scorer->set_input(input);
      }
      EXPECT_EQ(other.output(), keeping.output()) << frames << " frames, skip " << skip;
    }
  }
}

TEST(AScorerThatKeepsNoResults, TellsWhatWentInAndCameOut) {
  const auto network = chain(std::make_shared<DigitLayer>("a", 1.0f), std::make_shared<DigitLayer>("b", 2.0f));
  NNScorer scorer(network);
  scorer.set_keeps_results(false);
  const auto input = frames_of(row({3.0f}));
  scorer.set_input(input);
  scorer.execute();
  EXPECT_EQ(scorer.get_layer_output("_input"), input);
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("a"); }), "couldn't find \"a\" layer");
  EXPECT_EQ(values_of(scorer.get_layer_output("b")->content()), std::vector{312.0f});
}

TEST(AScorerThatKeepsNoResults, LeavesAloneWhatOthersHold) {
  const auto holding = std::make_shared<HoldingLayer>("holding");
  const auto network = chain(std::make_shared<DigitLayer>("a", 1.0f), holding);
  NNScorer scorer(network);
  scorer.set_keeps_results(false);
  scorer.set_input(frames_of(row({3.0f})));
  scorer.execute();
  const MinibatchPtr kept = scorer.get_layer_output("holding");
  for (const float value : {5.0f, 7.0f}) {
    scorer.set_input(frames_of(row({value})));
    scorer.execute();
  }
  EXPECT_EQ(values_of(kept->content()), std::vector{31.0f});
  EXPECT_EQ(values_of(holding->first->content()), std::vector{31.0f});
}

/// Two at a time are read or written.
TEST(AScorerThatKeepsNoResults, RunsALongNetworkInFewBuffers) {
  std::vector<std::shared_ptr<NNLayer>> layers;
  Links links;
  std::string before = "_input";
  for (const std::string id : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    layers.push_back(std::make_shared<DigitLayer>(id, 1.0f));
    links.emplace_back(before, id);
    before = id;
  }
  links.emplace_back(before, "_output");
  const HandmadeNetwork network(1, 1, layers, links);
  NNScorer scorer(network);
  constexpr std::uint64_t kResult = 5 * sizeof(float);
  for (const bool keeps : {true, false}) {
    scorer.set_keeps_results(keeps);
    for (int step = 0; step < 3; ++step) {
      scorer.set_input(frames_of(Matrix::Ones(1, 5)));
      scorer.execute();
    }
    EXPECT_EQ(scorer.bytes(), (keeps ? 9 : 3) * kResult) << "with the input";
  }
}

TEST(AScorer, RefusesALayerThatChangesTheNumberOfFrames) {
  const auto network =
      chain(std::make_shared<DigitLayer>("a", 1.0f), std::make_shared<StrideLayer>("every second", 2, false));
  NNScorer scorer(network);
  scorer.set_input(frames_of(row({1.0f, 2.0f, 3.0f})));
  EXPECT_EQ(failure_of([&] { scorer.execute(); }),
            "Minibatch size was changed through forward-propagation in every second");
  EXPECT_EQ(failure_of([&] { scorer.get_layer_output("a"); }), "not executed (get_layer_output)");
  scorer.set_input(frames_of(row({1.0f})));
  EXPECT_EQ(scorer.score(0, 0), 11.0f) << "one frame stays one";
}

TEST(AScorer, ThatFailsHasAdvancedTheLayersBefore) {
  const auto network =
      chain(std::make_shared<RunningSumLayer>("sum", 1), std::make_shared<StrideLayer>("stride", 2, false));
  NNScorer scorer(network);
  scorer.set_input(frames_of(row({1.0f, 2.0f})));
  EXPECT_THROW(scorer.execute(), BaseRuntimeError);
  scorer.set_input(frames_of(row({10.0f})));
  EXPECT_EQ(scorer.score(0, 0), 13.0f);
}

TEST(FrameSkip, FeedsEveryKthFrameAndStretchesTheResult) {
  const auto network = chain(std::make_shared<DigitLayer>("a", 1.0f), std::make_shared<RunningSumLayer>("sum", 1));
  NNScorer scorer(network);
  scorer.set_frame_skip(3);
  scorer.set_input(frames_of(row({0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f})));
  EXPECT_EQ(values_of(scorer.output()), (std::vector{1.0f, 1.0f, 1.0f, 32.0f, 32.0f, 32.0f, 93.0f}));
  EXPECT_EQ(values_of(scorer.get_layer_output("a")->content()), (std::vector{1.0f, 31.0f, 61.0f}));
  scorer.reset();
  scorer.set_input(frames_of(row({7.0f, 8.0f})));
  EXPECT_EQ(values_of(scorer.output()), (std::vector{71.0f, 71.0f})) << "one frame of less than k";
}

TEST(FrameSkip, OfEveryWidthKeepsTheNumberOfFrames) {
  const auto network = alone(std::make_shared<DigitLayer>("a", 0.0f));
  for (const unsigned k : {0u, 1u, 2u, 3u, 4u, 7u, 8u, 9u, ~0u}) {
    NNScorer scorer(network);
    scorer.set_frame_skip(k);
    const unsigned step = std::max(k, 1u);
    for (unsigned n = 1; n <= 9; ++n) {
      std::vector<float> input;
      std::vector<float> expected;
      for (unsigned i = 0; i < n; ++i) {
        input.push_back(static_cast<float>(i));
        expected.push_back(static_cast<float>(10 * (i / step * step)));
      }
      scorer.set_input(frames_of(row(input)));
      EXPECT_EQ(values_of(scorer.output()), expected) << n << " frames, skip " << k;
      EXPECT_EQ(scorer.get_layer_output("a")->size(), (n - 1) / step + 1);
    }
  }
}

TEST(FrameSkip, IsOffAtFirst) {
  const auto network = alone(std::make_shared<DigitLayer>("a", 0.0f));
  NNScorer scorer(network);
  const auto input = frames_of(row({1.0f, 2.0f}));
  scorer.set_input(input);
  EXPECT_EQ(values_of(scorer.output()), (std::vector{10.0f, 20.0f}));
  EXPECT_EQ(scorer.get_layer_output("_input"), input) << "as it is, not a copy";
}

TEST(FrameSkip, LeavesTheCallersInputAlone) {
  const auto network = alone(std::make_shared<DigitLayer>("a", 0.0f));
  NNScorer scorer(network);
  const auto input = frames_of(row({1.0f, 2.0f, 3.0f, 4.0f}));
  scorer.set_input(input);
  scorer.execute();
  scorer.set_frame_skip(2);
  for (int round = 0; round < 3; ++round) {
    scorer.set_input(frames_of(row({5.0f, 6.0f, 7.0f, 8.0f})));
    EXPECT_EQ(values_of(scorer.output()), (std::vector{50.0f, 50.0f, 70.0f, 70.0f}));
  }
  EXPECT_EQ(values_of(input->content()), (std::vector{1.0f, 2.0f, 3.0f, 4.0f}));
}

/// _input -> sum -> a.
class States : public testing::Test {
 protected:
  States() : network_(chain(std::make_shared<RunningSumLayer>("sum", 1), std::make_shared<DigitLayer>("a", 0.0f))) {}

  static float feed(NNScorer& scorer, float value) {
    scorer.set_input(frames_of(row({value})));
    return scorer.score(0, 0) / 10;
  }

  HandmadeNetwork network_;
};

TEST_F(States, PersistFromStepToStep) {
  NNScorer scorer(network_);
  EXPECT_EQ(feed(scorer, 1.0f), 1.0f);
  EXPECT_EQ(feed(scorer, 2.0f), 3.0f);
  NNScorer another(network_);
  EXPECT_EQ(feed(another, 5.0f), 5.0f) << "a stream of its own";
  EXPECT_EQ(feed(scorer, 3.0f), 6.0f);
}

TEST_F(States, BeginAnewAfterAReset) {
  NNScorer scorer(network_);
  feed(scorer, 1.0f);
  const NNScorer::States before = scorer.get_states();
  scorer.reset();
  EXPECT_EQ(feed(scorer, 2.0f), 2.0f);
  scorer.set_states(before);
  EXPECT_EQ(feed(scorer, 2.0f), 3.0f) << "the reset replaced the state, it did not write into it";
}

TEST_F(States, AreToldAsDeepCopies) {
  NNScorer scorer(network_);
  feed(scorer, 1.0f);
  const NNScorer::States states = scorer.get_states();
  ASSERT_EQ(states.count("sum"), 1u);
  ASSERT_EQ(states.count("a"), 1u);
  ASSERT_EQ(states.count("_input"), 1u);
  EXPECT_EQ(states.at("a"), nullptr) << "none stays none";
  EXPECT_EQ(states.at("_input"), nullptr);
  feed(scorer, 5.0f);
  const auto told = std::dynamic_pointer_cast<SumState>(states.at("sum"));
  ASSERT_NE(told, nullptr);
  EXPECT_EQ(told->sum(0), 1.0f) << "the stream went on without it";
  told->sum(0) = 100.0f;
  EXPECT_EQ(feed(scorer, 1.0f), 7.0f) << "and it without the stream";
}

TEST_F(States, SuspendOneStreamForAnother) {
  NNScorer scorer(network_);
  NNScorer::States first = scorer.get_states();
  NNScorer::States second = scorer.get_states();
  float first_sum = 0;
  float second_sum = 0;
  for (int i = 1; i <= 10; ++i) {
    const auto value = static_cast<float>(i);
    scorer.set_states(first);
    EXPECT_EQ(feed(scorer, value), first_sum += value);
    first = scorer.get_states();
    scorer.set_states(second);
    EXPECT_EQ(feed(scorer, 100.0f * value), second_sum += 100.0f * value);
    second = scorer.get_states();
  }
}

TEST_F(States, AreReplacedAsAWhole) {
  NNScorer scorer(network_);
  feed(scorer, 1.0f);
  scorer.set_states({});
  EXPECT_TRUE(scorer.get_states().empty());
  EXPECT_EQ(failure_of([&] { feed(scorer, 1.0f); }), "No state for layer sum");
  EXPECT_EQ(scorer.get_states().count("sum"), 1u) << "an empty entry is made where there is none";
  scorer.reset();
  EXPECT_EQ(feed(scorer, 4.0f), 4.0f);
}

TEST_F(States, OfLayersBesideTheWayAreNotMade) {
  const HandmadeNetwork network(1, 1,
                                {std::make_shared<RunningSumLayer>("dead", 1), std::make_shared<DigitLayer>("a", 0.0f)},
                                {{"_input", "dead"}, {"_input", "a"}, {"a", "_output"}});
  EXPECT_EQ(NNScorer(network).get_states().count("dead"), 0u);
  EXPECT_EQ(NNScorer(network).get_states().count("a"), 1u);
}

/// Dense, logistic, running sum, normalised: all that keeps nothing, or keeps it all.
TEST(Chunks, ChangeNothing) {
  constexpr Eigen::Index kRows = 6;
  constexpr Eigen::Index kFrames = 61;
  std::mt19937 random(11);
  const auto number = [&] { return static_cast<float>(random() % 2001) / 1000.0f - 1.0f; };
  const auto numbers = [&](std::size_t count) {
    std::vector<float> values(count);
    for (float& value : values) value = number();
    return values;
  };
  const auto stored = network_of(
      network_bytes(kRows, kRows,
                    {dense_bytes("dense", numbers(kRows * kRows), numbers(kRows)),
                     numbers_layer("sigmoid", "Sigmoid", {0.5f, 0.1f}), numbers_layer("softmax", "Softmax", {0.7f})},
                    {{"_input", "dense"}, {"dense", "sigmoid"}, {"sigmoid", "softmax"}, {"softmax", "_output"}}));
  std::vector<std::shared_ptr<NNLayer>> layers = stored->layers();
  layers.push_back(std::make_shared<RunningSumLayer>("sum", kRows));
  const HandmadeNetwork network(
      kRows, kRows, layers,
      {{"_input", "dense"}, {"dense", "sigmoid"}, {"sigmoid", "sum"}, {"sum", "softmax"}, {"softmax", "_output"}});
  Matrix input(kRows, kFrames);
  for (Eigen::Index i = 0; i < input.size(); ++i) input.data()[i] = number();
  NNScorer whole(network);
  whole.set_input(frames_of(input));
  const Matrix expected = whole.output();
  for (int round = 0; round < 30; ++round) {
    NNScorer scorer(network);
    for (Eigen::Index at = 0; at < kFrames;) {
      const auto count = std::min(1 + static_cast<Eigen::Index>(random() % 17), kFrames - at);
      scorer.set_input(frames_of(input.middleCols(at, count)));
      EXPECT_EQ(scorer.output(), expected.middleCols(at, count)) << "from frame " << at;
      at += count;
    }
  }
}

}  // namespace
}  // namespace meridane::test
