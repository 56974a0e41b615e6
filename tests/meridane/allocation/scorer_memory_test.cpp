// What a scorer allocates once it has seen the shape of its input.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <boost/interprocess/managed_shared_memory.hpp>

#include "../../relay/allocation/count_allocations.h"
#include "../support/graph_layers.h"
#include "../support/network_bytes.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/framescore/scorer.h"
#include "meridane/io/half.h"
#include "meridane/io/logging.h"

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

std::string half_bytes(std::int64_t rows, std::int64_t cols) {
  std::string bytes = bytes_of(rows) + bytes_of(cols);
  for (const float value : ramp(static_cast<std::size_t>(rows * cols))) bytes += bytes_of(float_to_half(value));
  return bytes;
}

/// Layers as a chain, from their types and records.
template <class Build>
std::shared_ptr<NNParameter> chain_of(const std::vector<std::pair<std::string, std::string>>& records, Build build) {
  ensure_layer_tables();
  std::vector<std::shared_ptr<NNLayer>> layers;
  Links links;
  std::string before = "_input";
  for (const auto& [type, record] : records) {
    const std::string id = "layer " + std::to_string(layers.size());
    std::istringstream stream(type + record);
    layers.push_back(build(type, id, stream));
    links.emplace_back(before, id);
    before = id;
  }
  links.emplace_back(before, "_output");
  return std::make_shared<HandmadeNetwork>(kRows, kRows, layers, links);
}

std::string square() { return matrix_bytes(kRows, kRows, ramp(kRows * kRows)); }
std::string lstm() { return matrix_bytes(4 * kRows, kRows, ramp(4 * kRows * kRows)); }
std::string lstm_column() { return matrix_bytes(4 * kRows, 1, ramp(4 * kRows)); }

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

/// The same of steps that are only read at their end, with the results of layers kept and not kept.
std::uint64_t allocations_of_steps(NNScorer& scorer) {
  std::uint64_t sum = 0;
  for (const bool keeps : {true, false}) {
    scorer.set_keeps_results(keeps);
    sum += allocations_of_steps(scorer, [&](std::size_t) { scorer.output_minibatch(); });
  }
  return sum;
}

TEST(AScorersSteps, AllocateNothing) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
}

TEST(AScorersSteps, AllocateNothingUnderAFrameSkip) {
  const auto network = every_layer();
  NNScorer scorer(*network);
  scorer.set_frame_skip(3);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
}

TEST(AScorersSteps, AllocateNothingWithStates) {
  const HandmadeNetwork network(kRows, kRows, {std::make_shared<RunningSumLayer>("sum", kRows)},
                                {{"_input", "sum"}, {"sum", "_output"}});
  NNScorer scorer(network);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
}

TEST(AScorersSteps, AllocateNothingInRecurrentLayers) {
  const auto network = recurrent_layers();
  NNScorerForLCBLSTM scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
  EXPECT_EQ(scorer.output_minibatch().size(), static_cast<std::uint64_t>(kFrames));
}

TEST(AScorersSteps, AllocateNothingInLayersThatCutAndJoin) {
  const auto slice = [](const std::string& id, std::uint64_t start, std::uint64_t end) {
    return layer_bytes(
        id, "Slice",
        "Slice" + bytes_of<std::uint64_t>(0) + bytes_of(start) + bytes_of(end) + bytes_of<std::uint64_t>(1));
  };
  const auto merge = [](const std::string& id, const std::string& type) {
    return layer_bytes(id, type, type + sized_text("add"));
  };
  const auto concat = [](const std::string& id, const std::string& type) {
    return layer_bytes(id, type, type + bytes_of<std::uint64_t>(0));
  };
  const std::string frames = layer_bytes("frames", "SliceAlongTime", "SliceAlongTime" + bytes_of(0) + bytes_of(1000));
  const auto network =
      network_of(network_bytes(kRows, kRows,
                               {slice("low", 0, kRows / 2 - 1), slice("high", kRows / 2, kRows - 1),
                                merge("sum", "Merge"), merge("paced sum", "KeepPaceMerge"), concat("both", "Concat"),
                                concat("paced", "KeepPaceConcat"), frames, slice("half", 0, kRows / 2 - 1)},
                               {{"_input", "low"},
                                {"_input", "high"},
                                {"low", "sum"},
                                {"high", "sum"},
                                {"low", "paced sum"},
                                {"sum", "paced sum"},
                                {"sum", "both"},
                                {"paced sum", "both"},
                                {"both", "frames"},
                                {"frames", "half"},
                                {"half", "paced"},
                                {"low", "paced"},
                                {"paced", "_output"}}));
  NNScorer scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
}

TEST(AScorersSteps, AllocateNothingInCompressedLayersAndThoseThatHandTheirInputOn) {
  log_threshold() = kLogWarning;
  const std::string column = half_bytes(kRows, 1), eps = bytes_of(1e-5f);
  const auto network = chain_of(
      {{"Print", sized_text("first")},
       {"CompressedFullyConnected", half_bytes(kRows, kRows) + column},
       {"Print", sized_text("second")},
       {"Print", sized_text("third")},
       {"CompressedLSTM", half_bytes(4 * kRows, kRows) + half_bytes(4 * kRows, 1) + half_bytes(4 * kRows, kRows)},
       {"CompressedProd", column},
       {"CompressedLayerNorm", column + column + eps},
       {"Print", sized_text("last")}},
      [](const std::string& type, const std::string& id, std::istream& stream) {
        return NNLayerBuilder::build(type, id, nullptr, stream);
      });
  for (const unsigned skip : {1u, 3u}) {
    NNScorer scorer(*network);
    scorer.set_frame_skip(skip);
    EXPECT_EQ(allocations_of_steps(scorer), 0u) << skip;
  }
  log_threshold() = kLogInfo;
}

TEST(AScorersSteps, AllocateNothingInLayersIn8Bits) {
  const std::string two = lstm() + lstm_column() + lstm() + lstm_column();
  const auto network = chain_of({{"FullyConnected", square() + column(kRows)},
                                 {"LSTM", lstm() + lstm_column() + lstm()},
                                 {"ULSTM", lstm() + lstm_column() + lstm() + lstm_column()},
                                 {"BLSTM", two + two + bytes_of<std::int32_t>(1)}},
                                [](const std::string& type, const std::string& id, std::istream& stream) {
                                  return QuantizedNNLayerBuilder::build(type, id, nullptr, stream);
                                });
  NNScorer scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
}

std::shared_ptr<NNLayer> layer_of(const std::string& type, const std::string& fields) {
  std::istringstream record(type + fields);
  return NNLayerBuilder::build(type, "layer", nullptr, record);
}

MinibatchPtr ones(Eigen::Index rows, Eigen::Index frames) {
  return std::make_shared<Minibatch>(Matrix(Matrix::Ones(rows, frames)));
}

/// Of the calls of one layer, each with the memory of the result before it, behind some to warm up.
std::uint64_t allocations_of_calls(const NNLayer& layer, LayerInputs inputs,
                                   const std::shared_ptr<NNLayerState>& state) {
  MinibatchPtr y = layer.forward(inputs, state);
  std::uint64_t before = 0;
  for (int step = 0; step < 100; ++step) {
    if (step == 20) before = sonivo::test::allocations();
    inputs.set_spare(std::move(y));
    y = layer.forward(inputs, state);
  }
  EXPECT_GT(y->size(), 0u);
  return sonivo::test::allocations() - before;
}

/// One stream of a pair is always some frames ahead.
TEST(AScorersSteps, AllocateNothingWhileFramesWait) {
  const auto layer = layer_of("KeepPaceMerge", sized_text("add"));
  const auto state = layer->create_state();
  layer->forward({ones(3, 7), ones(3, 2)}, state);
  EXPECT_EQ(allocations_of_calls(*layer, {ones(3, kFrames), ones(3, kFrames)}, state), 0u);
}

TEST(AScorersSteps, AllocateNothingInAttentionsAndJoints) {
  const auto matrix = [](std::size_t rows, std::size_t cols) {
    return matrix_bytes(static_cast<std::int64_t>(rows), static_cast<std::int64_t>(cols), ramp(rows * cols));
  };
  const auto size = static_cast<std::int32_t>(kRows);
  const std::string joint = matrix(8, kRows) + matrix(8, kRows) + column(8) + matrix(kRows, 8) + column(kRows);
  const std::vector<std::pair<std::string, std::string>> records = {
      {"Attention",
       bytes_of(size) + matrix(3 * kRows, kRows) + column(3 * kRows) + matrix(kRows, kRows) + column(kRows)},
      {"SimpleAttention", matrix(8, kRows) + column(8) + column(8)},
      {"AdditiveSelfAttention", bytes_of(1.0f) + matrix(8, kRows) + column(8) + column(8) + matrix(1, 8) + column(1)},
      {"Joint", joint},
      {"JointHAT", joint + matrix(1, 8) + column(1)}};
  for (const auto& [type, fields] : records) {
    const auto layer = layer_of(type, fields);
    LayerInputs inputs = {ones(kRows, kFrames)};
    if (type.starts_with("Joint")) inputs.add(ones(kRows, kFrames));
    EXPECT_EQ(allocations_of_calls(*layer, inputs, layer->create_state()), 0u) << type;
  }
}

TEST(AScorersSteps, AllocateNothingInLayersInSharedMemory) {
  namespace ipc = boost::interprocess;
  const std::string name = "sonivo-steps-" + std::to_string(::getpid());
  ipc::managed_shared_memory segment(ipc::create_only, name.c_str(), 1 << 20);
  ipc::shared_memory_object::remove(name.c_str());  // the name; the memory stays as long as it's mapped
  const SMManager manager(*segment.get_segment_manager(), "net");
  const auto network = chain_of({{"FullyConnected", square() + column(kRows)},
                                 {"PReLU", bytes_of(0.5f)},
                                 {"LSTM", lstm() + lstm_column() + lstm()},
                                 {"Softmax", bytes_of(1.0f)}},
                                [&](const std::string& type, const std::string& id, std::istream& stream) {
                                  return SMNNLayerBuilder::build(type, id, manager.under(id), nullptr, stream);
                                });
  NNScorer scorer(*network);
  EXPECT_EQ(allocations_of_steps(scorer), 0u);
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
