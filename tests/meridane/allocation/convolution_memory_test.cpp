// What convolutions and poolings allocate for a call once they have seen the shape of its input.

#include <gtest/gtest.h>

#include "../../relay/allocation/count_allocations.h"
#include "../layers/layer_record.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index kFrames = 10;

struct Sample {
  std::string name, type;
  Record record;
  Minibatch::Shape shape;  ///< of the input
  bool in_codes = false;

  std::shared_ptr<NNLayer> load() const {
    return in_codes ? layer_of<QuantizedNNLayerBuilder>(type, record.bytes()) : layer_of(type, record.bytes());
  }
};

Matrix ones(Eigen::Index rows, Eigen::Index cols) { return Matrix::Ones(rows, cols); }

/// Six rows in, six rows out, four taps.
Record taps(const std::string& type, bool groups, std::int32_t dilation, std::int32_t stride) {
  Record record(type);
  for (const std::int32_t value : {groups ? 1 : 0, 1, 32, dilation, stride, 4}) record.number(value);
  return record.matrix(ones(24, groups ? 1 : 6)).matrix(ones(6, 1));
}

Record filters() {
  return Record("Convolution1D")
      .number<std::uint64_t>(11)
      .number<std::uint64_t>(5)
      .matrix(ones(4, 15))
      .matrix(ones(4, 1));
}

/// Windows of 2 x 2 over a map of two channels.
Record planes(std::int32_t kernels) {
  Record record("Convolution2D");
  for (const std::int32_t value : {2, 5, 4, 3, kernels}) record.number(value);
  for (std::int32_t kernel = 0; kernel < kernels; ++kernel) {
    for (const std::int32_t value : {2, 2, 1, 1, 1, 0}) record.number(value);
    record.matrix(ones(3, 8)).matrix(ones(3, 1));
  }
  return record;
}

Record volume() {
  Record record("Convolution3D");
  for (const std::int32_t value : {4, 5, 6, 3, 1, 2, 2, 2, 1, 1, 1}) record.number(value);
  return record.matrix(ones(3, 8)).matrix(ones(3, 1));
}

std::vector<Sample> samples() {
  std::vector<Sample> all;
  for (const std::string type : {"TDNN", "TransposeTDNN"}) {
    all.push_back({type, type, taps(type, false, 3, 1), {6}});
    all.push_back({type + "Strided", type, taps(type, false, 1, 2), {6}});
    all.push_back({type + "OfGroups", type, taps(type, true, 3, 1), {6}});
  }
  all.push_back({"Convolution1D", "Convolution1D", filters(), {3, 11}});
  all.push_back({"QuantizedConvolution1D", "Convolution1D", filters(), {33}, true});
  all.push_back({"Convolution2D", "Convolution2D", planes(1), {2, 5, 4}});
  all.push_back({"Convolution2DOfTwoKernels", "Convolution2D", planes(2), {40}});
  all.push_back({"Convolution3D", "Convolution3D", volume(), {120}});
  all.push_back({"MaxPooling1D", "MaxPooling1D", Record("MaxPooling1D").number(2), {3, 7}});
  const Record pool = Record("MaxPooling2D").number(2).number(3);
  all.push_back({"MaxPooling2D", "MaxPooling2D", pool, {3, 7, 5}});
  all.push_back({"MaxPooling2DOfOneChannel", "MaxPooling2D", pool, {7, 5}});
  return all;
}

class AConvolutionsCalls : public testing::TestWithParam<Sample> {};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.name; }

INSTANTIATE_TEST_SUITE_P(Layers, AConvolutionsCalls, testing::ValuesIn(samples()),
                         [](const auto& each) { return each.param.name; });

TEST_P(AConvolutionsCalls, AllocateNothing) {
  const auto layer = GetParam().load();
  const auto state = layer->create_state();
  Eigen::Index rows = 1;
  for (const std::uint64_t size : GetParam().shape) rows *= static_cast<Eigen::Index>(size);
  const auto x = std::make_shared<Minibatch>(ones(rows, kFrames), GetParam().shape);
  LayerInputs inputs = {x};
  MinibatchPtr y = layer->forward(inputs, state);
  std::uint64_t before = 0;
  for (int call = 0; call < 200; ++call) {
    if (call == 20) before = sonivo::test::allocations();
    inputs.set_spare(std::move(y));
    y = layer->forward(inputs, state);
  }
  EXPECT_EQ(sonivo::test::allocations(), before);
  EXPECT_GE(y->content().cols(), kFrames / 2);
  EXPECT_GT(y->content().maxCoeff(), 0.5f);
}

}  // namespace
}  // namespace meridane::test
