// Layers with their parameters in a shared-memory segment.

#include <unistd.h>

#include <boost/interprocess/managed_shared_memory.hpp>

#include "dense_reference.h"
#include "layer_samples.h"
#include "meridane/error.h"
#include "meridane/io/logging.h"

namespace meridane::test {
namespace {

namespace ipc = boost::interprocess;

/// A segment of this process's own, removed at the end.
class SharedLayers : public testing::Test {
 protected:
  SharedLayers() {
    ensure_layer_tables();
    log_threshold() = kLogWarning;
  }
  ~SharedLayers() override {
    ipc::shared_memory_object::remove(name_.c_str());
    log_threshold() = kLogInfo;
  }

  SMManager manager(const std::string& prefix = "net::layer[0]") { return {*segment_.get_segment_manager(), prefix}; }
  std::shared_ptr<NNLayer> stored(const std::string& type, const std::string& record, const std::string& prefix) {
    std::istringstream stream(record);
    return SMNNLayerBuilder::build(type, kId, manager(prefix), nullptr, stream);
  }
  std::shared_ptr<NNLayer> found(const std::string& type, const std::string& prefix) {
    return SMNNLayerFinder::build(type, kId, manager(prefix));
  }

  std::string name_ = "sonivo-layers-test-" + std::to_string(getpid());
  ipc::managed_shared_memory segment_{ipc::create_only, name_.c_str(), 1 << 20};
};

std::vector<LayerSample> shared_samples() {
  std::vector<LayerSample> samples = layer_samples();
  std::erase_if(samples, [](const LayerSample& sample) {
    return sample.table != LayerSample::Table::plain || !SMNNLayerBuilder::has(sample.type);
  });
  return samples;
}

TEST_F(SharedLayers, AreThoseOfTheTables) {
  const auto expected = testing::ElementsAre("AdditiveSelfAttention", "BLSTM", "Convolution3D", "Embedding",
                                             "FullyConnected", "LCBLSTM", "LSTM", "PReLU", "Print", "ReLU", "Softmax");
  EXPECT_THAT(SMNNLayerBuilder::names(), expected);
  EXPECT_THAT(SMNNLayerFinder::names(), expected);
}

// The plain layer packs its weights, which sums in another order: roundings of 5 products and a bias.
TEST_F(SharedLayers, ComputeWhatThePlainOnesDo) {
  for (const LayerSample& sample : shared_samples()) {
    const Matrix x = sample.input(1, 12);
    const Matrix expected = forward(*sample.load(sample.record), x);
    EXPECT_TRUE(forward(*stored(sample.type, sample.record, sample.type), x).isApprox(expected, 1e-6f)) << sample.type;
    EXPECT_TRUE(forward(*found(sample.type, sample.type), x).isApprox(expected, 1e-6f)) << sample.type;
  }
}

TEST_F(SharedLayers, ComputeBiasPlusWeightTimesX) {
  int prefixes = 0;
  for (const DenseSize size : kDenseSizes) {
    Dice dice(1);
    const Matrix weight = dice.matrix(size.rows, size.cols, 1.1f), bias = dice.matrix(size.rows, 1, 0.3f);
    const Matrix x = dice.matrix(size.cols, size.frames, 0.7f);
    const std::string record = Record("FullyConnected").matrix(weight).matrix(bias).bytes();
    const std::string prefix = "net" + std::to_string(prefixes++);
    expect_product(forward(*stored("FullyConnected", record, prefix), x), weight, bias, x);
    expect_product(forward(*found("FullyConnected", prefix), x), weight, bias, x);
  }
}

TEST_F(SharedLayers, TakeARowForABias) {
  Dice dice(2);
  const Matrix weight = dice.matrix(4, 3), bias = dice.matrix(4, 1), x = dice.matrix(3, 2);
  Matrix rows(2, 4);  // row 0 counts
  rows << bias.transpose(), dice.matrix(1, 4);
  const std::string column = Record("FullyConnected").matrix(weight).matrix(bias).bytes();
  for (const Matrix& written : {Matrix(bias.transpose()), rows}) {
    const std::string prefix = "net" + std::to_string(written.rows());
    stored("FullyConnected", Record("FullyConnected").matrix(weight).matrix(written).bytes(), prefix);
    EXPECT_EQ(binary_of(*found("FullyConnected", prefix)), column);
    expect_product(forward(*found("FullyConnected", prefix), x), weight, bias, x);
  }
}

TEST_F(SharedLayers, DumpTheRecordThatTheyWereLoadedFrom) {
  for (const LayerSample& sample : shared_samples()) {
    EXPECT_EQ(binary_of(*stored(sample.type, sample.record, sample.type)), sample.record);
    EXPECT_EQ(binary_of(*found(sample.type, sample.type)), sample.record);
    EXPECT_EQ(xml_of(*found(sample.type, sample.type)), xml_of(*sample.load(sample.record)));
  }
}

TEST_F(SharedLayers, CheckTheirInputs) {
  for (const LayerSample& sample : shared_samples()) {
    const auto layer = stored(sample.type, sample.record, sample.type);
    const MinibatchPtr wrong = minibatch(Matrix::Zero(77, 1));
    EXPECT_EQ(failure_of([&] {
                layer->forward({wrong, wrong});
              }),
              "Layer the layer does not accept multiple input streams");
    EXPECT_EQ(failure_of([&] { layer->forward({nullptr}); }), "No data is being provided to layer the layer");
    EXPECT_EQ(failure_of([&] { layer->forward({wrong}); }),
              sample.any_rows ? "nothing failed" : "Dimension mismatch in layer the layer");
    EXPECT_EQ(forward(*layer, Matrix(0, 0)).cols(), 0);
  }
}

TEST_F(SharedLayers, RefuseTheRecordOfAnother) {
  for (const LayerSample& sample : shared_samples()) {
    std::string other = sample.record;
    ++other[0];
    EXPECT_EQ(failure_of<InvalidFormat>([&] { stored(sample.type, other, sample.type); }),
              "invalid format (expected \"" + sample.description + "\")");
  }
}

TEST_F(SharedLayers, HaveNoDocument) {
  for (const LayerSample& sample : shared_samples()) {
    std::istringstream text(xml_of(*sample.load(sample.record)));
    const XmlFile file(text);
    std::istringstream none;
    EXPECT_EQ(failure_of([&] { SMNNLayerBuilder::build(sample.type, kId, manager(sample.type), file.root(), none); }),
              "NOT IMPLEMENTED");
  }
}

TEST_F(SharedLayers, NameTheirObjectsAfterTheirParameters) {
  Dice dice(1);
  const Matrix weight = dice.matrix(3, 2), bias = dice.matrix(3, 1);
  stored("FullyConnected", Record("FullyConnected").matrix(weight).matrix(bias).bytes(), "p");
  const SMManager own = manager("p");
  EXPECT_EQ(*own.find<std::uint64_t>("weight_rows"), 3u);
  EXPECT_EQ(*own.find<std::uint64_t>("weight_cols"), 2u);
  EXPECT_EQ(*own.find<std::uint64_t>("bias_size"), 3u);
  const float* const stored_weight = own.find_floats("weight", 6);
  ASSERT_NE(stored_weight, nullptr);
  for (int k = 0; k < 6; ++k) EXPECT_EQ(stored_weight[k], weight(k / 2, k % 2));  // row after row
  const float* const stored_bias = own.find_floats("bias", 3);
  ASSERT_NE(stored_bias, nullptr);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(stored_bias[k], bias(k));
}

TEST_F(SharedLayers, NameAnObjectThatIsMissing) {
  const auto expect_missing = [&](const std::string& type, const std::string& object) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { found(type, "net::layer[0]"); }),
              "SM" + type + "Layer::" + object + " data does not exist in shared memory.");
  };
  const SMManager own = manager();
  const auto size = [&](const char* name, std::uint64_t value) { own.construct<std::uint64_t>(name, value); };
  expect_missing("FullyConnected", "weight_rows");
  expect_missing("Embedding", "weight_rows");
  expect_missing("PReLU", "a");
  expect_missing("Softmax", "temperature");
  expect_missing("Print", "layer_name");
  size("weight_rows", 3);
  expect_missing("FullyConnected", "weight_cols");
  size("weight_cols", 2);
  expect_missing("FullyConnected", "weight");
  own.construct_floats("weight", 6);
  EXPECT_NO_THROW(found("Embedding", "net::layer[0]"));
  expect_missing("FullyConnected", "bias_size");
  size("bias_size", 3);
  expect_missing("FullyConnected", "bias");
  own.construct_floats("bias", 3);
  EXPECT_NO_THROW(found("FullyConnected", "net::layer[0]"));
}

TEST_F(SharedLayers, DoNotReadBeyondAnObjectThatIsTooShort) {
  const SMManager own = manager();
  own.construct<std::uint64_t>("weight_rows", std::uint64_t{1} << 63);
  own.construct<std::uint64_t>("weight_cols", 2);  // together 2^64
  own.construct_floats("weight", 6);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { found("Embedding", "net::layer[0]"); }),
            "SMEmbeddingLayer::weight data does not exist in shared memory.");
}

TEST_F(SharedLayers, RefuseVectorsThatDoNotFitTheirMatrix) {
  const SMManager own = manager();
  own.construct<std::uint64_t>("weight_rows", 3);
  own.construct<std::uint64_t>("weight_cols", 2);
  own.construct_floats("weight", 6);
  own.construct<std::uint64_t>("bias_size", 2);
  own.construct_floats("bias", 2);
  EXPECT_EQ(failure_of<InvalidFormat>([&] { found("FullyConnected", "net::layer[0]"); }),
            "invalid format (expected \"FullyConnected Layer\")");
}

TEST_F(SharedLayers, ReadTheirParametersWhereTheyStand) {
  Dice dice(2);
  const Matrix table = dice.matrix(4, 3);
  const auto first = stored("Embedding", Record("Embedding").matrix(table).bytes(), "p");
  const auto second = found("Embedding", "p");
  manager("p").find_floats("weight", 12)[5] = 42;  // row 1, column 2
  for (const auto& layer : {first, second}) {
    EXPECT_EQ(forward(*layer, Matrix::Constant(1, 1, 1))(2), 42);
  }
}

TEST_F(SharedLayers, SetABiasWhereItStands) {
  const Matrix zero = Matrix::Zero(3, 1);
  const auto first = stored("FullyConnected", Record("FullyConnected").matrix(zero).matrix(zero).bytes(), "p");
  const auto second = found("FullyConnected", "p");
  first->set_bias((Vector(3) << 1, 2, 3).finished());
  EXPECT_EQ(forward(*second, Matrix::Ones(1, 1)), (Matrix(3, 1) << 1, 2, 3).finished());
}

TEST_F(SharedLayers, LeaveTheirParametersBehind) {
  {
    stored("FullyConnected", Record("FullyConnected").matrix(Matrix::Ones(2, 2)).matrix(Matrix::Ones(2, 1)).bytes(),
           "p");
  }
  EXPECT_EQ(forward(*found("FullyConnected", "p"), Matrix::Ones(2, 1)), Matrix::Constant(2, 1, 3));
}

}  // namespace
}  // namespace meridane::test
