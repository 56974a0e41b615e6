// What the tables of factories hold.

#include "meridane/builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/network_samples.h"
#include "meridane/framescore/nnlayer/builders.h"

namespace meridane::test {
namespace {

using testing::UnorderedElementsAreArray;

/// Each word of the text behind the prefix.
std::vector<std::string> types_of(const std::string& text, const std::string& prefix = "") {
  std::istringstream words(text);
  std::vector<std::string> types;
  for (std::string word; words >> word;) types.push_back(prefix + word);
  return types;
}

constexpr const char* kPlain =
    "AdditiveSelfAttention Attention BLSTM BatchNorm Bias Concat Conformer Convolution1D Convolution2D "
    "Convolution3D Embedding FullyConnected GLU GlobalLayerNorm Joint JointHAT KeepPaceConcat "
    "KeepPaceMerge LCBLSTM LSTM LayerNorm MaxPooling1D MaxPooling2D Merge PReLU Print Prod ReLU RelMHA "
    "RelPosEnc Sigmoid SimpleAttention Slice SliceAlongTime Softmax Swish TDNN Tanh TransposeTDNN ULSTM";
constexpr const char* kCompressed =
    "AdditiveSelfAttention Attention BLSTM BatchNorm Conformer Convolution2D Embedding FullyConnected "
    "GlobalLayerNorm Joint JointHAT LCBLSTM LSTM LayerNorm Prod RelMHA SimpleAttention TDNN TransposeTDNN "
    "ULSTM";
constexpr const char* kQuantized = "BLSTM Convolution1D FullyConnected LCBLSTM LSTM ULSTM";

/// All of them and no others. Those that stand in shared memory are listed with their tests.
TEST(TheLayerTables, HoldTheTypesOfThisEngine) {
  ensure_layer_tables();
  std::vector<std::string> types = types_of(kPlain);
  for (const std::string& type : types_of(kCompressed, "Compressed")) types.push_back(type);
  EXPECT_THAT(NNLayerBuilder::names(), UnorderedElementsAreArray(types));
  std::vector<std::string> quantized = types_of(kQuantized);
  for (const std::string& type : types_of(kQuantized, "Quantized")) quantized.push_back(type);
  EXPECT_THAT(QuantizedNNLayerBuilder::names(), UnorderedElementsAreArray(quantized));
}

TEST(TheLayerTables, MakeALayerFromItsRecord) {
  ensure_layer_tables();
  std::istringstream record("PReLU" + bytes_of(0.5f));
  const auto layer = NNLayerBuilder::build("PReLU", "mine", nullptr, record);
  EXPECT_EQ(layer->id(), "mine");
  EXPECT_EQ(layer->type(), "PReLU");
  const auto y = layer->forward({std::make_shared<Minibatch>(Matrix(Matrix::Constant(1, 1, -2.0f)))});
  EXPECT_EQ(y->content()(0, 0), -1.0f);
}

/// Both read what their name says, and compute in 8 bits. Values are off by up to half a step: 0.0037 of the weights,
/// which stand for 1 in sum, and 0.001 of the input, which stands for 1.9.
TEST(TheQuantizedTable, ReadsBothFormsOfALayer) {
  ensure_layer_tables();
  const std::string weight = matrix_bytes(1, 2, {1.0f, -0.9f}) + matrix_bytes(1, 1, {0.5f});
  std::istringstream plain("FullyConnected" + weight);
  const auto layer = QuantizedNNLayerBuilder::build("FullyConnected", "q", nullptr, plain);
  const LayerInputs input = {std::make_shared<Minibatch>(Matrix(Vector{{0.75f, 0.25f}}))};
  const float product = layer->forward(input)->content()(0, 0);
  EXPECT_NEAR(product, 1.025f, 0.007f);
  std::stringstream stored;
  layer->dump_binary(stored);
  EXPECT_EQ(stored.str().substr(0, 23), "QuantizedFullyConnected");
  const auto again = QuantizedNNLayerBuilder::build("QuantizedFullyConnected", "q", nullptr, stored);
  EXPECT_EQ(again->forward(input)->content()(0, 0), product);
}

TEST(TheParameterTable, KnowsNetworksByTheirMagic) {
  ensure_parameter_table();
  ASSERT_TRUE(FrameScoreParameterBuilder::has("MerNNpar"));
  EXPECT_FALSE(FrameScoreParameterBuilder::has("NN"));
  const std::string bytes = sample_network();
  std::istringstream stream(bytes);
  const auto parameter = FrameScoreParameterBuilder::build(bytes.substr(0, 8), stream, "application/meridane-bin");
  EXPECT_EQ(parameter->type(), "NN");
  std::stringstream document;
  parameter->dump(document, "text/xml");
  const auto same = FrameScoreParameterBuilder::build("MerNNpar", document, "text/xml;version=1");
  std::ostringstream dump;
  same->dump(dump, "");
  EXPECT_EQ(dump.str(), bytes);
  EXPECT_EQ(same->create_scorer()->output_dimension(), 1u);
}

}  // namespace
}  // namespace meridane::test
