// Convolution1D, with its weight in floats and in 8 bits.

#include <limits>

#include "../layers/layer_record.h"
#include "meridane/error.h"
#include "meridane/quantized_matrix.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index kChannels = 3, kPositions = 11, kFilters = 4, kSize = 5;

struct Filters {
  Matrix weight = Dice(1).matrix(kFilters, kSize* kChannels);
  Matrix bias = Dice(2).matrix(kFilters, 1);
};

std::string record_of(std::uint64_t input_len, std::uint64_t filter_size, const Filters& filters = {}) {
  const Record record = Record("Convolution1D").number(input_len).number(filter_size);
  return Record(record).matrix(filters.weight).matrix(filters.bias).bytes();
}

MinibatchPtr map_of(const Matrix& content, Minibatch::Shape shape) {
  return std::make_shared<Minibatch>(content, std::move(shape));
}

Eigen::MatrixXd convolved(const Filters& filters, const Matrix& x) {
  const Eigen::Index outputs = kPositions - kSize + 1;
  Eigen::MatrixXd y(kFilters * outputs, x.cols());
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    for (Eigen::Index p = 0; p < outputs; ++p) {
      for (Eigen::Index o = 0; o < kFilters; ++o) {
        double sum = static_cast<double>(filters.bias(o));
        for (Eigen::Index q = 0; q < kSize; ++q) {
          for (Eigen::Index c = 0; c < kChannels; ++c) {
            sum += static_cast<double>(filters.weight(o, q * kChannels + c)) *
                   static_cast<double>(x((p + q) * kChannels + c, t));
          }
        }
        y(p * kFilters + o, t) = sum;
      }
    }
  }
  return y;
}

// Products of multiples of 2^-10 are multiples of 2^-20; sums of 15 of them may be rounded once or twice above 16.
TEST(Convolution1D, IsTheSumOverAPatch) {
  const Filters filters;
  const auto layer = layer_of("Convolution1D", record_of(kPositions, kSize));
  const Matrix x = Dice(3).matrix(kChannels * kPositions, 6);
  const MinibatchPtr y = layer->forward({minibatch(x)});
  EXPECT_EQ(y->shape(), (Minibatch::Shape{kFilters, kPositions - kSize + 1}));
  EXPECT_LT((y->content().cast<double>() - convolved(filters, x)).cwiseAbs().maxCoeff(), 0x1p-18);
}

TEST(Convolution1D, TakesItsLengthFromTheShapeOfItsInput) {
  const auto open = layer_of("Convolution1D", record_of(0, kSize)), fixed = layer_of("Convolution1D", record_of(11, 5));
  const Matrix x = Dice(4).matrix(kChannels * kPositions, 6);
  const Matrix expected = forward(*fixed, x);
  EXPECT_EQ(open->forward({map_of(x, {kChannels, kPositions})})->content(), expected);
  EXPECT_EQ(fixed->forward({map_of(x, {kChannels, kPositions})})->content(), expected);
  EXPECT_EQ(open->forward({map_of(x.topRows(15), {3, 5})})->shape(), (Minibatch::Shape{kFilters, 1}));
}

TEST(Convolution1D, ChecksTheShapeOfItsInput) {
  const auto open = layer_of("Convolution1D", record_of(0, kSize)), fixed = layer_of("Convolution1D", record_of(11, 5));
  const auto failure = [](const std::shared_ptr<NNLayer>& layer, const MinibatchPtr& x) {
    return failure_of<BaseRuntimeError>([&] { layer->forward({x}); });
  };
  EXPECT_EQ(failure(open, minibatch(Matrix::Zero(33, 2))),
            "In layer the layer: model definition file must provide shape information when features are arranged in a "
            "one-dimensional vector");
  const std::string inconsistent = "Model-size inconsistency in layer the layer";
  EXPECT_EQ(failure(fixed, minibatch(Matrix::Zero(32, 2))), inconsistent);
  EXPECT_EQ(failure(fixed, map_of(Matrix::Zero(30, 2), {3, 10})), inconsistent);
  EXPECT_EQ(failure(fixed, map_of(Matrix::Zero(22, 2), {2, 11})), inconsistent);
  EXPECT_EQ(failure(open, map_of(Matrix::Zero(22, 2), {2, 11})), inconsistent);
  EXPECT_EQ(failure(open, map_of(Matrix::Zero(12, 2), {3, 4})), inconsistent);  // narrower than the filter
  const std::string axes = "Layer the layer requires 3D minibatches as input";
  EXPECT_EQ(failure(fixed, map_of(Matrix::Zero(33, 2), {3, 11, 1})), axes);
  EXPECT_EQ(failure(open, map_of(Matrix::Zero(33, 2), {3, 11, 1})), axes);
  EXPECT_EQ(failure(open, nullptr), "No data is being provided to layer the layer");
  for (const auto& layer : {open, fixed}) EXPECT_EQ(forward(*layer, Matrix(33, 0)).cols(), 0);
}

TEST(Convolution1D, KeepsItsBytes) {
  for (const std::uint64_t length : {std::uint64_t{0}, std::uint64_t{11}}) {
    const std::string record = record_of(length, kSize);
    const auto layer = layer_of("Convolution1D", record);
    EXPECT_EQ(binary_of(*layer), record);
    EXPECT_EQ(binary_of(*layer_of_xml("Convolution1D", xml_of(*layer))), record);
    EXPECT_EQ(layer->create_state(), nullptr);
    EXPECT_FALSE(layer->is_variable_length());
    EXPECT_EQ(layer->size().multiply_adds, 60u);
  }
}

TEST(Convolution1D, ReadsItsDocument) {
  const auto document = [](const std::string& attributes) {
    return "<layer type='Convolution1D' id='a' " + attributes + "><weight>1 2 3 4</weight><bias>5</bias></layer>";
  };
  const auto layer = layer_of_xml("Convolution1D", document("filter_size='2' num_filter='1' input_size='6' "
                                                            "input_len='3' org_rows='1' org_cols='4'"));
  const Matrix x = (Matrix(6, 1) << 1, 0, 0, 1, 2, 2).finished();
  EXPECT_EQ(forward(*layer, x), (Matrix(2, 1) << 5 + 1 + 4, 5 + 2 + 6 + 8).finished());
  for (const char* wrong : {"filter_size='3'", "filter_size='0'", "filter_size='-1'", "filter_size='x'"}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml("Convolution1D", document(wrong)); }),
              "Incorrect \"filter_size\" for \"Convolution1D\"");
  }
  for (const char* name : {"num_filter", "input_size", "org_rows", "org_cols"}) {
    const std::string attributes = "filter_size='2' input_len='3' " + std::string(name) + "='7'";
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml("Convolution1D", document(attributes)); }),
              "Incorrect \"" + std::string(name) + "\" for \"Convolution1D\"");
  }
}

TEST(Convolution1D, RefusesNumbersThatNoLayerHas) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  const auto failure = [](const std::string& record) {
    return failure_of<BaseRuntimeError>([&] { layer_of("Convolution1D", record); });
  };
  for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{2}, std::uint64_t{16}, kMost, kMost / 2}) {
    EXPECT_EQ(failure(record_of(11, size)), "Incorrect \"filter_size\" for \"Convolution1D\"") << size;
  }
  EXPECT_EQ(failure(record_of(4, 5)), "Incorrect \"filter_size\" for \"Convolution1D\"");
  for (const std::uint64_t length : {kMost, kMost / 3, std::uint64_t{1} << 26, std::uint64_t{1} << 25}) {
    EXPECT_EQ(failure(record_of(length, 5)), "Incorrect \"input_len\" for \"Convolution1D\"") << length;
  }
  EXPECT_EQ(failure(record_of(11, 5, {.bias = Matrix::Zero(5, 1)})),
            "invalid format (expected \"Convolution1D Layer\")");
  const std::string record = record_of(11, 5);
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(layer_of("Convolution1D", record.substr(0, length)), BaseRuntimeError) << length;
  }
}

TEST(QuantizedConvolution1D, MultipliesEachPatchIn8Bits) {
  const Filters filters;
  const auto layer = layer_of<QuantizedNNLayerBuilder>("Convolution1D", record_of(kPositions, kSize));
  const Matrix x = Dice(5).matrix(kChannels * kPositions, 6);
  const Matrix y = forward(*layer, x);
  const QuantizedMatrix weight(filters.weight, 'l');
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    for (Eigen::Index p = 0; p + kSize <= kPositions; ++p) {
      const Vector patch = x.col(t).segment(p * kChannels, kSize * kChannels);
      EXPECT_EQ(y.col(t).segment(p * kFilters, kFilters), weight.multiply(patch) + filters.bias.col(0));
    }
  }
}

TEST(QuantizedConvolution1D, KeepsItsBytesOnceItIsQuantized) {
  const auto layer = layer_of<QuantizedNNLayerBuilder>("Convolution1D", record_of(kPositions, kSize));
  const std::string record = binary_of(*layer), type = "QuantizedConvolution1D";
  EXPECT_EQ(layer->type(), type);
  EXPECT_EQ(record.substr(0, type.size()), type);
  const auto again = layer_of<QuantizedNNLayerBuilder>(type, record);
  EXPECT_EQ(binary_of(*again), record);
  const std::string document = xml_of(*again);
  EXPECT_NE(document.find("<qweight"), std::string::npos);
  EXPECT_EQ(binary_of(*layer_of_xml<QuantizedNNLayerBuilder>(type, document)), record);
  const Matrix x = Dice(6).matrix(kChannels * kPositions, 6);
  EXPECT_EQ(forward(*again, x), forward(*layer, x));
  EXPECT_FALSE(NNLayerBuilder::has(type));
}

TEST(QuantizedConvolution1D, IsNotDumpedWithoutItsLength) {
  const auto layer = layer_of<QuantizedNNLayerBuilder>("Convolution1D", record_of(0, kSize));
  const std::string text = "If input_len is 0, dumping in quantization mode is not possible.";
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { binary_of(*layer); }), text);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { xml_of(*layer); }), text);
}

}  // namespace
}  // namespace meridane::test
