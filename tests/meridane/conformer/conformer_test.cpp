// Conformer: chunk by chunk against attention over the whole stream in double precision.

#include <gtest/gtest.h>

#include "conformer_samples.h"
#include "meridane/error.h"
#include "meridane/io/logging.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index D = 8;
// Some dozens of roundings of values of some units, each 2^-24 of them.
constexpr double kRounding = 2e-6;

ConformerSample sample(int heads = 2, unsigned seed = 1) { return {seed, D, heads}; }

TEST(Conformer, IsAttentionRestrictedToItsCacheAndItsChunk) {
  const Matrix x = Dice(2).matrix(D, 57);
  for (const int heads : {1, 2, 8}) {
    const ConformerSample p = sample(heads);
    for (const int cache_frame : {0, 1, 4, 20, 100}) {
      for (const Eigen::Index length : {1, 2, 3, 5, 7, 50, 57}) {
        const Chunks chunks(x.cols(), length);
        const Exact expected = p.output(x.cast<double>(), chunks, cache_frame);
        Stream with_positions({positions_for(cache_frame), p.load(cache_frame)});
        const Matrix y = with_positions.run(x, chunks);
        EXPECT_LT(distance(y, expected), kRounding) << "cache " << cache_frame << ", chunks of " << length;
        Stream alone({p.load(cache_frame)});
        EXPECT_EQ(alone.run(x, chunks), y);
      }
    }
  }
}

// A frame means the same in every call: its last calls are as if the stream had begun a cache earlier.
TEST(Conformer, ForgetsWhatIsBehindItsCache) {
  const ConformerSample p = sample();
  const Matrix x = Dice(3).matrix(D, 60);
  Matrix y = x;
  y.leftCols(20) = Dice(4).matrix(D, 20);
  const Chunks chunks(x.cols(), 4);
  Stream a({p.load(12)}), b({p.load(12)});
  const Eigen::Index same = 20 + 12 + 4 * ConformerSample::kTaps;
  const Matrix of_x = a.run(x, chunks), of_y = b.run(y, chunks);
  EXPECT_EQ(of_x.rightCols(60 - same), of_y.rightCols(60 - same));
  EXPECT_NE(of_x.middleCols(20, 12), of_y.middleCols(20, 12));
}

// What sees a frame that is no number is none either: its call and those that have it in their cache, then what the
// convolution brings of these. Nothing of it is left after that.
TEST(Conformer, ForgetsAFrameThatIsNoNumber) {
  const ConformerSample p = sample();
  const Matrix x = Dice(3).matrix(D, 60);
  Matrix y = x;
  y(0, 5) = std::nanf("");
  const Chunks chunks(x.cols(), 4);
  Stream a({p.load(12)}), b({p.load(12)});
  const Matrix clean = a.run(x, chunks), of_y = b.run(y, chunks);
  const Eigen::Index last = 19 + ConformerSample::kTaps - 1;  // the call of frames 16 to 19 has frame 5 in its cache
  EXPECT_EQ(of_y.leftCols(4), clean.leftCols(4));
  for (Eigen::Index t = 4; t <= last; ++t) EXPECT_TRUE(std::isnan(of_y(0, t))) << t;
  EXPECT_EQ(of_y.rightCols(60 - 1 - last), clean.rightCols(60 - 1 - last));
}

TEST(Conformer, TakesFramesOfAnyShape) {
  const ConformerSample p(1, 6, 2);
  const Matrix x = Dice(19).matrix(6, 5);
  const Matrix plain = Stream({p.load(4)}).step(x);
  for (const Minibatch::Shape& shape : {Minibatch::Shape{2, 3}, {3, 2}, {1, 2, 3}}) {
    const auto layer = p.load(4);
    const MinibatchPtr y = layer->forward({std::make_shared<Minibatch>(x, shape)}, layer->create_state());
    EXPECT_EQ(y->content(), plain);
    EXPECT_EQ(y->shape(), Minibatch::Shape{6});
  }
}

TEST(Conformer, TakesTheOutputOfAnother) {
  const ConformerSample first = sample(2, 5), second = sample(4, 6);
  const Matrix x = Dice(7).matrix(D, 30);
  for (const Eigen::Index length : {1, 4, 30}) {
    const Chunks chunks(x.cols(), length);
    const Exact expected = second.output(first.output(x.cast<double>(), chunks, 8), chunks, 8);
    Stream stream({positions_for(8), first.load(8), second.load(8)});
    EXPECT_LT(distance(stream.run(x, chunks), expected), 4 * kRounding);
    Stream twice({positions_for(8), first.load(8), positions_for(8), second.load(8)});
    EXPECT_LT(distance(twice.run(x, chunks), expected), 4 * kRounding);
  }
}

TEST(Conformer, KeepsNoCacheAsTheLastLayer) {
  const ConformerSample p = sample();
  const Matrix x = Dice(8).matrix(D, 30);
  for (const int last_layer : {1, -1, 7}) {
    const Chunks chunks(x.cols(), 5);
    Stream last({positions_for(12), p.load(12, last_layer)}), without({p.load(0)});
    EXPECT_EQ(last.run(x, chunks), without.run(x, chunks));
  }
}

TEST(Conformer, TakesChunksOfAnyLengthInTurn) {
  const ConformerSample p = sample();
  const Matrix x = Dice(9).matrix(D, 40);
  Chunks chunks(40, 40);
  chunks.begin = {0, 2, 3, 10, 11, 31, 36, 40};
  Stream stream({positions_for(9), p.load(9)});
  EXPECT_LT(distance(stream.run(x, chunks), p.output(x.cast<double>(), chunks, 9)), kRounding);
}

// Each branch gives nothing but its last bias; the layer norm at the end passes a frame of mean 0 and variance 1 on.
TEST(Conformer, HalvesItsFeedForwardBranchesAndNoOther) {
  ConformerSample p = sample();
  for (auto& [name, weight] : p.weight) {
    if (!name.starts_with("norm")) weight.setZero();
    p.bias[name].setZero();
  }
  for (Matrix* m : {&p.attention.v, &p.attention.v_bias, &p.attention.out_bias}) m->setZero();
  p.weight["norm6"].setOnes();
  p.weight["norm4"].setZero();
  // Rows of different branches, so that each is seen in the result.
  p.bias["fc2"](0) = 1;
  p.attention.out_bias(1) = 1;
  p.bias["conv3"](2) = 1;
  p.bias["fc4"](3) = 1;
  const Matrix y = Stream({p.load(0)}).step(Matrix::Zero(D, 1));
  // x = 0.5, 1, 1, 0.5, 0 ...: mean 3 / 8, variance 2.5 / 8 - 9 / 64
  const float scale = 1 / std::sqrt(2.5f / 8 - 9.0f / 64 + 1e-5f);
  const float expected[] = {0.125f, 0.625f, 0.625f, 0.125f, -0.375f};
  for (Eigen::Index i = 0; i < 5; ++i) EXPECT_NEAR(y(i), expected[i] * scale, 1e-6) << i;
}

TEST(Conformer, GivesNothingForNoFramesAndGoesOn) {
  const ConformerSample p = sample();
  const Matrix x = Dice(10).matrix(D, 20);
  Stream a({positions_for(6), p.load(6)}), b({positions_for(6), p.load(6)});
  const Matrix whole = a.run(x, Chunks(20, 10));
  EXPECT_EQ(b.step(x.leftCols(10)), whole.leftCols(10));
  for (const Eigen::Index rows : {Eigen::Index{0}, D}) EXPECT_EQ(b.step(Matrix(rows, 0)).cols(), 0);
  EXPECT_EQ(b.step(x.rightCols(10)), whole.rightCols(10));
}

TEST(Conformer, ClonesItsStateDeeply) {
  const ConformerSample p = sample();
  const Matrix a = Dice(11).matrix(D, 20), b = Dice(12).matrix(D, 20), c = Dice(13).matrix(D, 20);
  const Chunks chunks(20, 4);
  const auto after_a = [&](const Matrix& x) {
    Matrix both(D, 40);
    both << a, x;
    return Matrix(Stream({p.load(6)}).run(both, Chunks(40, 4)).rightCols(20));
  };
  Stream stream({p.load(6)});
  stream.run(a, chunks);
  Stream copy = stream.clone();
  EXPECT_EQ(stream.run(b, chunks), after_a(b));  // they part
  EXPECT_EQ(copy.run(c, chunks), after_a(c));
}

TEST(Conformer, WritesIntoMemoryOfAnOldResultAndNotIntoItsInputOrWhatIsKept) {
  const auto layer = sample().load(6);
  const Matrix x = Dice(14).matrix(D, 5);
  const MinibatchPtr input = minibatch(x);
  const Matrix fresh = layer->forward({input}, layer->create_state())->content();
  LayerInputs inputs = {input};
  inputs.set_spare(minibatch(Matrix::Constant(2, 3, std::nanf(""))));
  const auto state = layer->create_state();
  const MinibatchPtr first = layer->forward(inputs, state);
  layer->forward({minibatch(Dice(15).matrix(D, 5))}, state);
  EXPECT_EQ(first->content(), fresh);
  EXPECT_EQ(input->content(), x);
}

// A Print hands its input on: here the sum that the next call would write over.
TEST(Conformer, LeavesAResultAloneThatIsItsOwnSum) {
  const ConformerSample p = sample();
  auto records = p.records();
  records["norm6"] = {"PReLU", Record("PReLU").real(1).bytes()};
  const auto copied = layer_of("Conformer", ConformerSample::record_of("Conformer", 6, 0, records));
  records["norm6"] = {"Print", Record("Print").text("").bytes()};
  const auto handed_on = layer_of("Conformer", ConformerSample::record_of("Conformer", 6, 0, records));
  const Matrix x = Dice(16).matrix(D, 5), z = Dice(17).matrix(D, 5);
  const auto state = handed_on->create_state(), other = copied->create_state();
  log_threshold() = kLogWarning;
  const MinibatchPtr first = handed_on->forward({minibatch(x)}, state);
  const MinibatchPtr second = handed_on->forward({minibatch(z)}, state);
  log_threshold() = kLogInfo;
  EXPECT_EQ(first->content(), copied->forward({minibatch(x)}, other)->content());
  EXPECT_EQ(second->content(), copied->forward({minibatch(z)}, other)->content());
}

TEST(Conformer, RunsAsAPartOfAStreamOnly) {
  const auto layer = sample().load(6);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Zero(D, 3)); }), "NOT IMPLEMENTED");
  EXPECT_FALSE(layer->is_variable_length());
  const MinibatchPtr x = minibatch(Matrix::Zero(D, 3));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward({x}, nullptr); }), "No state for layer the layer");
  for (const auto& foreign : {ConformerSample(1, 4, 1).load(6)->create_state(), positions_for(6)->create_state()}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward({x}, foreign); }), "No state for layer the layer");
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { positions_for(6)->forward({x}, layer->create_state()); }),
              "No state for layer the layer");
  }
}

TEST(Conformer, ChecksItsInput) {
  const auto layer = sample().load(6);
  const auto state = layer->create_state();
  const MinibatchPtr x = minibatch(Matrix::Zero(D, 3));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] {
              layer->forward({x, x}, state);
            }),
            "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward({nullptr}, state); }),
            "No data is being provided to layer the layer");
  for (const Eigen::Index rows : {Eigen::Index{0}, D - 1, D + 1, 3 * D}) {
    EXPECT_EQ(failure_of<DimensionMismatchError>([&] { layer->forward({minibatch(Matrix::Zero(rows, 3))}, state); }),
              "Dimension mismatch in layer the layer");
  }
}

TEST(Conformer, SaysThatItsPositionsDoNotReachToItsCache) {
  const ConformerSample p = sample();
  Stream stream({positions_for(2), p.load(6)});
  const Matrix x = Dice(18).matrix(D, 3);
  for (int call = 0; call < 2; ++call) stream.step(x);  // 3 of 3, 6 of 6
  for (int call = 0; call < 2; ++call) {
    EXPECT_EQ(failure_of<DimensionMismatchError>([&] { stream.step(x); }),
              "Layer the layer attends to 9 frames, but has been given positions for 6");
  }
}

// A convolution that looks ahead gives fewer frames than it gets.
TEST(Conformer, SaysThatABranchGivesAnotherNumberOfFrames) {
  const ConformerSample p = sample();
  auto records = p.records();
  Record taps("TDNN");
  for (const int value : {1, 0, 0, 1, 1, ConformerSample::kTaps}) taps.number<std::int32_t>(value);
  records["conv2"] = {"TDNN", taps.matrix(p.weight.at("conv2")).matrix(p.bias.at("conv2")).bytes()};
  Stream stream({layer_of("Conformer", ConformerSample::record_of("Conformer", 6, 0, records))});
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { stream.step(Matrix::Zero(D, 9)); }),
            "Dimension mismatch in layer the layer");
}

TEST(Conformer, LetsItsSublayersMakeSoManyFramesAndNoMore) {
  auto records = sample().records();
  Record spread("TransposeTDNN");
  for (const std::int32_t value : {1, 0, 0, 1, 256, 1}) spread.number(value);
  spread.matrix(Matrix::Ones(D, 1)).matrix(Matrix::Zero(D, 1));
  for (const char* id : {"fc1", "act1"}) records[id] = {"TransposeTDNN", spread.bytes()};
  const auto layer = layer_of("Conformer", ConformerSample::record_of("Conformer", 4, 0, records));
  LayerInputs x = {minibatch(Matrix::Ones(D, 2))};
  x.set_fed(6);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward(x, layer->create_state()); }),
            "Layer act1 makes too many frames: 131072, where 6 have gone into the network");
}

TEST(Conformer, SaysThatABranchGivesAnotherSize) {
  const ConformerSample p = sample();
  for (const char* name : {"fc2", "norm2", "conv3", "fc4"}) {
    auto records = p.records();
    const Eigen::Index cols = p.weight.contains(name) && p.weight.at(name).cols() > 1 ? p.weight.at(name).cols() : D;
    records[name] = {"FullyConnected",
                     Record("FullyConnected").matrix(Matrix::Ones(D + 1, cols)).matrix(Matrix::Ones(D + 1, 1)).bytes()};
    Stream stream({layer_of("Conformer", ConformerSample::record_of("Conformer", 6, 0, records))});
    EXPECT_EQ(failure_of<DimensionMismatchError>([&] { stream.step(Matrix::Zero(D, 3)); }),
              "Dimension mismatch in layer the layer")
        << name;
  }
}

}  // namespace
}  // namespace meridane::test
