#include "meridane/builder.h"

#include <gtest/gtest.h>

#include "../support/network_samples.h"
#include "meridane/framescore/nnlayer/builders.h"

namespace meridane::test {
namespace {

struct Shape {
  int corners;
  std::string name;
};
using ShapeFactory = std::function<std::shared_ptr<Shape>(const std::string& name)>;
using ShapeBuilder = Builder<struct ShapeTag, Shape, ShapeFactory>;
using OtherShapeBuilder = Builder<struct OtherShapeTag, Shape, ShapeFactory>;

/// Lines of the log while it lives, at every level.
class LogLines {
 public:
  LogLines() : threshold_(log_threshold()) {
    log_threshold() = 0;
    set_log_sink([this](const std::string& line) { lines.push_back(line); });
  }
  ~LogLines() {
    log_threshold() = threshold_;
    set_log_sink([](const std::string&) {});
  }
  std::vector<std::string> lines;

 private:
  int threshold_;
};

TEST(ABuilder, MakesWhatIsRegistered) {
  LogLines log;
  EXPECT_FALSE(ShapeBuilder::has("square"));
  ShapeBuilder::regist("square", [](const std::string& name) { return std::make_shared<Shape>(Shape{4, name}); });
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(log.lines[0].ends_with("  Factory for \"square\" is registered")) << log.lines[0];
  log_threshold() = 2;
  ShapeBuilder::regist("point", [](const std::string& name) { return std::make_shared<Shape>(Shape{0, name}); });
  EXPECT_EQ(log.lines.size(), 1u) << "at level 1";

  EXPECT_TRUE(ShapeBuilder::has("square"));
  EXPECT_EQ(ShapeBuilder::build("square", "mine")->corners, 4);
  EXPECT_EQ(ShapeBuilder::build("square", "mine")->name, "mine");
  EXPECT_EQ(ShapeBuilder::get("point")("p")->corners, 0);
  EXPECT_FALSE(OtherShapeBuilder::has("square")) << "a table of its own for each tag";
}

TEST(ABuilder, ReportsWhatIsNot) {
  const std::string expected = "circle is not registered in the builder";
  EXPECT_EQ(failure_of<BuilderNotFound>([] { ShapeBuilder::build("circle", "mine"); }), expected);
  EXPECT_EQ(failure_of<BuilderNotFound>([] { ShapeBuilder::get("circle"); }), expected);
  EXPECT_FALSE(ShapeBuilder::has("circle"));
}

TEST(TheLayerTables, HoldTheTypesOfThisEngine) {
  ensure_layer_tables();
  for (const char* type : {"BatchNorm",
                           "Bias",
                           "Embedding",
                           "FullyConnected",
                           "GLU",
                           "GlobalLayerNorm",
                           "LayerNorm",
                           "PReLU",
                           "Print",
                           "Prod",
                           "ReLU",
                           "Sigmoid",
                           "Softmax",
                           "Swish",
                           "Tanh",
                           "CompressedBatchNorm",
                           "CompressedEmbedding",
                           "CompressedFullyConnected",
                           "CompressedGlobalLayerNorm",
                           "CompressedLayerNorm",
                           "CompressedProd"}) {
    EXPECT_TRUE(NNLayerBuilder::has(type)) << type;
  }
  for (const char* type : {"Input", "QuantizedFullyConnected", "SMFullyConnected", "CompressedBias", "CompressedReLU",
                           "CompressedSigmoid", "fullyconnected", ""}) {
    EXPECT_FALSE(NNLayerBuilder::has(type)) << type;
  }
  for (const char* type : {"FullyConnected", "QuantizedFullyConnected"}) {
    EXPECT_TRUE(QuantizedNNLayerBuilder::has(type)) << type;
  }
  for (const char* type : {"Embedding", "FullyConnected", "PReLU", "Print", "ReLU", "Softmax"}) {
    EXPECT_TRUE(SMNNLayerBuilder::has(type)) << type;
    EXPECT_TRUE(SMNNLayerFinder::has(type)) << type;
  }
  for (const char* type : {"Sigmoid", "CompressedFullyConnected", "Bias", "LayerNorm"}) {
    EXPECT_FALSE(SMNNLayerBuilder::has(type)) << type;
    EXPECT_FALSE(SMNNLayerFinder::has(type)) << type;
  }
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

TEST(ALogLine, TellsWhenWhereAndWhat) {
  LogLines log;
  meridane::log(kLogInfo, [] { return std::string("message"); });
  const unsigned line = SourceLocation::current().line() - 1;
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_THAT(log.lines[0], testing::MatchesRegex("[0-9]+/[0-9][0-9]/[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"
                                                  "\\[builder_test\\.cpp:[0-9]+ \\(.*TestBody.*\\)\\]  message"));
  EXPECT_NE(log.lines[0].find("[builder_test.cpp:" + std::to_string(line) + " ("), std::string::npos) << log.lines[0];
  EXPECT_EQ(log.lines[0].find('/'), 4u) << "a year of four digits";
}

TEST(ALogLine, BelowTheThresholdIsNotEvenMade) {
  LogLines log;
  log_threshold() = 3;
  bool made = false;
  const auto message = [&] {
    made = true;
    return std::string();
  };
  meridane::log(2, message);
  EXPECT_FALSE(made);
  EXPECT_TRUE(log.lines.empty());
  meridane::log(3, message);
  EXPECT_TRUE(made);
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(AProgressReport, TellsHowMuchIsDone) {
  LogLines log;
  ProgressReport(20).report(3);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(log.lines[0].ends_with("]  3 / 20 done")) << log.lines[0];
}

}  // namespace
}  // namespace meridane::test
