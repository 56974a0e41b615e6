// Layers that join streams frame by frame.

#include <limits>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

std::shared_ptr<NNLayer> concat(std::uint64_t axis) {
  return layer_of("Concat", Record("Concat").number(axis).bytes());
}

std::shared_ptr<NNLayer> merge(const std::string& mode) {
  return layer_of("Merge", Record("Merge").text(mode).bytes());
}

MinibatchPtr map_of(const Matrix& content, Minibatch::Shape shape) {
  return std::make_shared<Minibatch>(content, std::move(shape));
}

std::string failure(const NNLayer& layer, const LayerInputs& inputs) {
  return failure_of<BaseRuntimeError>([&] { layer.forward(inputs); });
}

TEST(Concat, PutsItsInputsOneUnderTheOther) {
  Dice dice(1);
  const Matrix a = dice.matrix(2, 5), b = dice.matrix(1, 5), c = dice.matrix(4, 5);
  const MinibatchPtr y = concat(0)->forward({minibatch(a), minibatch(b), minibatch(c)});
  Matrix expected(7, 5);
  expected << a, b, c;
  EXPECT_EQ(y->content(), expected);
  EXPECT_EQ(y->shape(), Minibatch::Shape{7});
}

TEST(Concat, OfOneInputIsACopyOfIt) {
  const MinibatchPtr x = minibatch(Dice(2).matrix(3, 4));
  const MinibatchPtr y = concat(0)->forward({x});
  EXPECT_NE(y, x);
  EXPECT_EQ(y->content(), x->content());
}

TEST(Concat, SaysWhatJoiningMinibatchesSays) {
  const MinibatchPtr x = minibatch(Matrix::Ones(2, 3)), longer = minibatch(Matrix::Ones(2, 4));
  const MinibatchPtr map = map_of(Matrix::Ones(6, 3), {2, 3}), other = map_of(Matrix::Ones(6, 3), {3, 2});
  EXPECT_EQ(failure(*concat(1), {x, x}), "Invalid axis is specified");
  EXPECT_EQ(failure(*concat(std::numeric_limits<std::uint64_t>::max()), {x}), "Invalid axis is specified");
  EXPECT_EQ(failure(*concat(0), {x, map}), "Number of axes of input minibatches does not accord");
  EXPECT_EQ(failure(*concat(0), {x, longer}), "Minibatch size of input minibatches does not accord");
  EXPECT_EQ(failure(*concat(0), {map, other}), "Dimension of 1-th axis does not match");
  EXPECT_EQ(failure(*concat(0), {map, map}), "Not implemented");
  EXPECT_EQ(failure(*concat(0), {}), "Not implemented");
}

TEST(Concat, JoinsWithoutFrames) {
  const MinibatchPtr y = concat(0)->forward({minibatch(Matrix(2, 0)), minibatch(Matrix(3, 0))});
  EXPECT_EQ(y->content().cols(), 0);
  EXPECT_EQ(y->shape(), Minibatch::Shape{5});
}

TEST(Concat, HasAxisZeroByDefault) {
  const auto layer = layer_of_xml("Concat", "<layer type='Concat' id='a'/>");
  EXPECT_EQ(layer->forward({minibatch(Matrix::Ones(2, 3)), minibatch(Matrix::Ones(1, 3))})->content(),
            Matrix::Ones(3, 3));
  EXPECT_EQ(failure_of([] { layer_of_xml("Concat", "<layer type='Concat' id='a' axis='-1'/>"); }),
            "Incorrect \"axis\" for \"Concat\"");
}

TEST(Merge, AddsOrMultiplies) {
  Dice dice(3);
  const Matrix a = dice.matrix(3, 5), b = dice.matrix(3, 5), c = dice.matrix(3, 5);
  const LayerInputs inputs = {minibatch(a), minibatch(b), minibatch(c)};
  const Matrix sum = merge("add")->forward(inputs)->content(), product = merge("product")->forward(inputs)->content();
  for (Eigen::Index i = 0; i < a.size(); ++i) {
    const double x = a.data()[i], y = b.data()[i], z = c.data()[i];
    EXPECT_EQ(sum.data()[i], x + y + z);  // multiples of 2^-10 below 4: exact
    EXPECT_NEAR(product.data()[i], x * y * z, 0x1p-24 * std::fabs(x * y * z));
  }
}

TEST(Merge, OfOneInputIsACopyOfIt) {
  for (const char* mode : {"add", "product"}) {
    const MinibatchPtr x = minibatch(Dice(4).matrix(3, 4));
    const MinibatchPtr y = merge(mode)->forward({x});
    EXPECT_NE(y, x);
    EXPECT_EQ(y->content(), x->content());
  }
}

TEST(Merge, HasTheShapeOfItsFirstInput) {
  const MinibatchPtr map = map_of(Matrix::Ones(6, 3), {2, 3}), other = map_of(Matrix::Ones(6, 3), {3, 2});
  EXPECT_EQ(merge("add")->forward({map, other})->shape(), (Minibatch::Shape{2, 3}));
}

TEST(Merge, NamesWhatDoesNotMatch) {
  const MinibatchPtr x = minibatch(Matrix::Ones(2, 3)), taller = minibatch(Matrix::Ones(4, 3));
  const MinibatchPtr longer = minibatch(Matrix::Ones(2, 5)), both = minibatch(Matrix::Ones(4, 5));
  const std::string row = "Row size unmatch between 0-th and ", column = "Column size unmatch between 0-th and ";
  for (const char* mode : {"add", "product"}) {
    const auto layer = merge(mode);
    EXPECT_EQ(failure(*layer, {x, taller}), row + "1-th tensor. 4 vs 2");
    EXPECT_EQ(failure(*layer, {x, x, longer}), column + "2-th tensor. 5 vs 3");
    EXPECT_EQ(failure(*layer, {x, both}), row + "1-th tensor. 4 vs 2");
    EXPECT_EQ(failure(*layer, {x, longer, taller}), column + "1-th tensor. 5 vs 3");
    EXPECT_EQ(failure(*layer, {x, minibatch(Matrix(2, 0))}), column + "1-th tensor. 0 vs 3");
  }
}

// At the end of a stream some branches give an empty minibatch of their rows, others one of none.
TEST(Merge, OfNoFramesIsNone) {
  for (const char* mode : {"add", "product"}) {
    EXPECT_EQ(merge(mode)->forward({minibatch(Matrix(0, 0)), minibatch(Matrix(4, 0))})->content().cols(), 0);
    EXPECT_EQ(merge(mode)->forward({minibatch(Matrix(4, 0)), minibatch(Matrix(0, 0))})->shape(), Minibatch::Shape{4});
  }
}

TEST(Merge, RefusesAnInputThatIsMissing) {
  const MinibatchPtr x = minibatch(Matrix::Ones(2, 3));
  const std::string text = "No data is being provided to layer the layer";
  EXPECT_EQ(failure(*merge("add"), {}), text);
  EXPECT_EQ(failure(*merge("add"), {x, nullptr}), text);
  EXPECT_EQ(failure(*concat(0), {nullptr, x}), text);
}

TEST(Merge, HasTwoModes) {
  for (const std::string type : {"Merge", "KeepPaceMerge"}) {
    for (const std::string mode : {"max", "", "Add", "add "}) {
      const std::string text = "Mode " + mode + " is not implemented. Choose from add/product";
      EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of(type, Record(type).text(mode).bytes()); }), text);
      const std::string element = "<layer type='" + type + "' id='a' mode='" + mode + "'/>";
      EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml(type, element); }), text);
    }
    EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml(type, "<layer type='" + type + "' id='a'/>"); }),
              "\"mode\" i mandatory in layer");
  }
}

}  // namespace
}  // namespace meridane::test
