// What the layers that work on a map inside each frame promise alike: of their records, documents, inputs and frames.

#include <limits>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

struct Sample {
  std::string type;
  std::string record;
  Minibatch::Shape shape;              ///< of the input
  std::string attributes = {};         ///< that a document needs before an element of it is missed
  std::vector<std::string> open = {};  ///< elements that stand around the following
  std::vector<std::string> children = {};

  bool in_codes() const { return type.starts_with("Quantized"); }
  std::shared_ptr<NNLayer> load(const std::string& bytes) const {
    return in_codes() ? layer_of<QuantizedNNLayerBuilder>(type, bytes) : layer_of(type, bytes);
  }
  std::shared_ptr<NNLayer> load() const { return load(record); }
  std::shared_ptr<NNLayer> load_xml(const std::string& element) const {
    return in_codes() ? layer_of_xml<QuantizedNNLayerBuilder>(type, element) : layer_of_xml(type, element);
  }
  MinibatchPtr input(unsigned seed, Eigen::Index frames) const {
    Eigen::Index rows = 1;
    for (const std::uint64_t size : shape) rows *= static_cast<Eigen::Index>(size);
    return std::make_shared<Minibatch>(Dice(seed).matrix(rows, frames), shape);
  }
};

void PrintTo(const Sample& sample, std::ostream* out) { *out << sample.type; }

Record& add(Record& record, std::initializer_list<std::int32_t> values) {
  for (const std::int32_t value : values) record.number(value);
  return record;
}

std::vector<Sample> samples() {
  Dice dice(1);
  Record line = Record("Convolution1D").number<std::uint64_t>(7).number<std::uint64_t>(3);
  line.matrix(dice.matrix(4, 6)).matrix(dice.matrix(4, 1));
  const std::string codes = binary_of(*layer_of<QuantizedNNLayerBuilder>("Convolution1D", line.bytes()));
  const Matrix weight = dice.matrix(3, 8), bias = dice.matrix(3, 1);
  const auto plane = [&](const std::string& type) {
    const bool half = type.starts_with("Compressed");
    Record record(type);
    return add(record, {2, 4, 3, 3, 1, 2, 2, 1, 2, 1, 0}).matrix(weight, half).matrix(bias, half).bytes();
  };
  Record volume("Convolution3D");
  add(volume, {4, 2, 3, 3, 1, 2, 2, 2, 1, 1, 1}).matrix(weight).matrix(bias);
  const std::string two = "input_size='1 1 1' output_channel='1'";
  const std::string kernel = "<kernel size='1 1' stride='1 1' pad='0 0'>",
                    deep = "<kernel size='1 1 1' stride='1 1 1'>";
  const std::vector<std::string> both = {"weight", "bias"};
  Record pool("MaxPooling2D");
  return {{"Convolution1D", line.bytes(), {2, 7}, "filter_size='1'", {}, both},
          {"QuantizedConvolution1D", codes, {2, 7}, "filter_size='1'", {}, {"qweight"}},
          {"Convolution2D", plane("Convolution2D"), {2, 4, 3}, two, {kernel}, both},
          {"CompressedConvolution2D", plane("CompressedConvolution2D"), {2, 4, 3}, two, {kernel}, both},
          {"Convolution3D", volume.bytes(), {4, 2, 3}, two, {deep}, both},
          {"MaxPooling1D", Record("MaxPooling1D").number(2).bytes(), {3, 5}},
          {"MaxPooling2D", add(pool, {2, 3}).bytes(), {2, 5, 4}}};
}

class EveryMapLayer : public testing::TestWithParam<Sample> {};

INSTANTIATE_TEST_SUITE_P(Layers, EveryMapLayer, testing::ValuesIn(samples()),
                         [](const auto& each) { return each.param.type; });

TEST_P(EveryMapLayer, RefusesTheRecordAndTheDocumentOfAnother) {
  std::string other = GetParam().record;
  ++other[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { GetParam().load(other); }),
            "invalid format (expected \"" + GetParam().type + " Layer\")");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { GetParam().load_xml("<layer type='Other' id='a'/>"); }),
            GetParam().type +
                "Layer::load_xml() has been called for a wrong layer type - indicating an implementation error");
}

TEST_P(EveryMapLayer, NamesTheElementThatIsMissing) {
  const Sample& sample = GetParam();
  std::string present;
  const auto expect_missing = [&](const std::string& name, const std::string& end) {
    const std::string element =
        "<layer type='" + sample.type + "' id='a' " + sample.attributes + ">" + present + end + "</layer>";
    EXPECT_EQ(failure_of<MissingTagError>([&] { sample.load_xml(element); }),
              "\"<" + name + ">\" not found in a layer of type \"" + sample.type + "\" ");
  };
  if (!sample.open.empty()) expect_missing("kernel", "");
  for (const std::string& around : sample.open) present += around;
  for (const std::string& child : sample.children) {
    expect_missing(child, sample.open.empty() ? "" : "</kernel>");
    present += "<" + child + ">1</" + child + ">";
  }
}

TEST_P(EveryMapLayer, TakesOneInput) {
  const auto layer = GetParam().load();
  const MinibatchPtr x = GetParam().input(2, 3);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] {
              layer->forward({x, x});
            }),
            "Layer the layer does not accept multiple input streams");
  for (const LayerInputs& none : {LayerInputs(), LayerInputs{nullptr}}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward(none); }),
              "No data is being provided to layer the layer");
  }
}

TEST_P(EveryMapLayer, WritesTheSameIntoMemoryOfAnOldResultAndNothingIntoItsInput) {
  const auto layer = GetParam().load();
  const MinibatchPtr x = GetParam().input(3, 5);
  const Matrix content = x->content();
  const MinibatchPtr fresh = layer->forward({x});
  for (const Eigen::Index rows : {1, 100}) {
    LayerInputs inputs = {x};
    inputs.set_spare(minibatch(Matrix::Constant(rows, 3, std::numeric_limits<float>::quiet_NaN())));
    const MinibatchPtr y = layer->forward(inputs);
    EXPECT_EQ(y->shape(), fresh->shape());
    EXPECT_EQ(y->content(), fresh->content());
  }
  EXPECT_EQ(x->content(), content);
}

TEST_P(EveryMapLayer, LooksAtOneFrameAtATime) {
  const auto layer = GetParam().load();
  const MinibatchPtr x = GetParam().input(4, 5);
  const Matrix whole = layer->forward({x})->content();
  for (Eigen::Index t = 0; t < 5; ++t) {
    const auto frame = std::make_shared<Minibatch>(Matrix(x->content().col(t)), GetParam().shape);
    EXPECT_EQ(layer->forward({frame})->content(), whole.col(t)) << t;
  }
  x->content().col(2).setConstant(std::numeric_limits<float>::quiet_NaN());
  const Matrix y = layer->forward({x})->content();
  for (const Eigen::Index t : {0, 1, 3, 4}) EXPECT_EQ(y.col(t), whole.col(t)) << t;
  if (!GetParam().in_codes()) {  // a code can't say that it stands for no number
    EXPECT_TRUE(y.col(2).hasNaN());
  }
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST_P(EveryMapLayer, SurvivesARecordWithAnyByteChanged) {
  const MinibatchPtr x = GetParam().input(5, 1);
  int runs = 0;
  for (std::size_t at = 0; at < GetParam().record.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
      std::string changed = GetParam().record;
      changed[at] = static_cast<char>(value);
      try {
        const MinibatchPtr y = GetParam().load(changed)->forward({x});
        EXPECT_EQ(y->content().cols(), 1);
        ++runs;
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_GT(runs, 0);
}

}  // namespace
}  // namespace meridane::test
