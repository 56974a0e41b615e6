// What a scorer allocates once it has seen the shape of its input.

#include <gtest/gtest.h>

#include <array>

#include "../../relay/allocation/count_allocations.h"
#include "../support/graph_layers.h"
#include "../support/network_bytes.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

constexpr std::size_t kRows = 24;
constexpr Eigen::Index kFrames = 10;

std::vector<float> ramp(std::size_t count) {
  std::vector<float> values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i % 11) / 10.0f - 0.5f;
  return values;
}

std::string column(std::size_t rows) { return matrix_bytes(static_cast<std::int64_t>(rows), 1, ramp(rows)); }

std::string norm_bytes(const std::string& id, const std::string& type) {
  return layer_bytes(id, type, type + column(kRows) + column(kRows) + bytes_of(1e-5f));
}

/// One layer of each kind, as a chain; the indices of the embedding come last, so that they are in its table.
std::shared_ptr<NNParameter> every_layer() {
  const auto positive = [] { return matrix_bytes(kRows, 1, std::vector<float>(kRows, 2.0f)); };
  const std::vector<std::string> layers = {
      dense_bytes("dense", ramp(kRows * kRows), ramp(kRows)),
      numbers_layer("sigmoid", "Sigmoid", {1.0f, 0.0f}),
      numbers_layer("tanh", "Tanh", {1.0f, 0.0f}),
      relu_bytes("relu"),
      numbers_layer("prelu", "PReLU", {0.25f}),
      numbers_layer("swish", "Swish", {1.0f, 0.0f}),
      numbers_layer("softmax", "Softmax", {1.0f}),
      layer_bytes("bias", "Bias", "Bias" + column(kRows)),
      layer_bytes("prod", "Prod", "Prod" + column(kRows)),
      layer_bytes("batch", "BatchNorm",
                  "BatchNorm" + column(kRows) + column(kRows) + column(kRows) + positive() + bytes_of(1e-5f)),
      norm_bytes("layer", "LayerNorm"),
      norm_bytes("global", "GlobalLayerNorm"),
      numbers_layer("glu", "GLU", {1.0f, 0.0f}),
      dense_bytes("one", ramp(kRows / 2), {0.0f}),
      numbers_layer("index", "Sigmoid", {1.0f, 0.0f}),
      layer_bytes("table", "Embedding", "Embedding" + matrix_bytes(2, kRows, ramp(2 * kRows)))};
  const Order ids = {"dense", "sigmoid", "tanh",  "relu",   "prelu", "swish", "softmax", "bias",
                     "prod",  "batch",   "layer", "global", "glu",   "one",   "index",   "table"};
  Links links = {{"_input", ids.front()}};
  for (std::size_t i = 1; i < ids.size(); ++i) links.emplace_back(ids[i - 1], ids[i]);
  links.emplace_back(ids.back(), "_output");
  return network_of(network_bytes(kRows, kRows, layers, links));
}

/// The recurrent layers as a chain; the last one has, in the steps to come, as many frames to give as it gets.
std::shared_ptr<NNParameter> recurrent_layers() {
  const auto matrix = [](std::size_t cols) {
    return matrix_bytes(4 * kRows, static_cast<std::int64_t>(cols), ramp(4 * kRows * cols));
  };
  const auto lstm = [&](std::size_t rows) { return matrix(rows) + matrix(1) + matrix(kRows); };
  const auto both = [&](std::size_t rows) { return lstm(rows) + matrix(1) + lstm(rows) + matrix(1); };
  const auto integers = [](const std::vector<std::int32_t>& values) {
    std::string bytes;
    for (const std::int32_t value : values) bytes += bytes_of(value);
    return bytes;
  };
  const std::vector<std::string> layers = {
      layer_bytes("a", "LSTM", "LSTM" + lstm(kRows)), layer_bytes("b", "ULSTM", "ULSTM" + lstm(kRows) + matrix(1)),
      layer_bytes("c", "BLSTM", "BLSTM" + both(kRows) + integers({0})),
      layer_bytes("d", "LCBLSTM", "LCBLSTM" + both(2 * kRows) + integers({kFrames, 4, 1, 1}))};
  return network_of(
      network_bytes(kRows, kRows, layers, {{"_input", "a"}, {"a", "b"}, {"b", "c"}, {"c", "d"}, {"d", "_output"}}));
}

/// The memory of the steps of a scorer over two inputs in turn, after a few steps of warm-up.
template <class Read>
std::uint64_t allocations_of_steps(NNScorer& scorer, Read read) {
  const std::array inputs = {std::make_shared<Minibatch>(Matrix(Matrix::Random(kRows, kFrames))),
                             std::make_shared<Minibatch>(Matrix(Matrix::Random(kRows, kFrames)))};
  std::uint64_t before = 0;
  for (std::size_t step = 0; step < 24; ++step) {
    if (step == 4) before = sonivo::test::allocations();
    scorer.set_input(inputs[step % 2]);
    read(step);
  }
  return sonivo::test::allocations() - before;
}

TEST(AScorersSteps, AllocateNothing) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer, [&](std::size_t) { scorer.output_minibatch(); }), 0u);
}

TEST(AScorersSteps, AllocateNothingUnderAFrameSkip) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  scorer.set_frame_skip(3);
  EXPECT_EQ(allocations_of_steps(scorer, [&](std::size_t) { scorer.output_minibatch(); }), 0u);
}

TEST(AScorersSteps, AllocateNothingWithStates) {
  const HandmadeNetwork network(kRows, kRows, {std::make_shared<RunningSumLayer>("sum", kRows)},
                                {{"_input", "sum"}, {"sum", "_output"}});
  NNScorer scorer(network);
  EXPECT_EQ(allocations_of_steps(scorer, [&](std::size_t) { scorer.output_minibatch(); }), 0u);
}

TEST(AScorersSteps, AllocateNothingInRecurrentLayers) {
  const auto network = recurrent_layers();
  NNScorerForLCBLSTM scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer, [&](std::size_t) { scorer.output_minibatch(); }), 0u);
  EXPECT_EQ(scorer.output_minibatch().size(), static_cast<std::uint64_t>(kFrames));
}

/// Its frames, its shape, and the object itself with its count of owners.
TEST(AScorersSteps, AllocateAnewWhatIsKept) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  std::vector<MinibatchPtr> kept(24);
  EXPECT_EQ(allocations_of_steps(scorer,
                                 [&](std::size_t step) {
                                   scorer.execute();
                                   kept[step] = scorer.get_layer_output("relu");
                                 }),
            20u * 3u);
  for (std::size_t i = 1; i < kept.size(); ++i) EXPECT_NE(kept[i], kept[i - 1]);
}

TEST(AScorersSteps, AllocateTheCopiesTheyAreAskedFor) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer, [&](std::size_t) { EXPECT_EQ(scorer.output().rows(), kRows); }), 20u);
}

/// Memory is for one shape at a time.
TEST(AScorersSteps, SeeAnotherNumberOfFrames) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  scorer.set_input(std::make_shared<Minibatch>(Matrix(Matrix::Random(kRows, kFrames))));
  scorer.execute();
  const auto other = std::make_shared<Minibatch>(Matrix(Matrix::Random(kRows, kFrames + 1)));
  for (int step = 0; step < 2; ++step) {
    const std::uint64_t before = sonivo::test::allocations();
    scorer.set_input(other);
    scorer.execute();
    const std::uint64_t count = sonivo::test::allocations() - before;
    if (step == 0) {
      EXPECT_GT(count, 0u);
    } else {
      EXPECT_EQ(count, 0u);
    }
  }
}

}  // namespace
}  // namespace meridane::test
