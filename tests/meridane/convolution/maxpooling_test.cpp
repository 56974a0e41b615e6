// MaxPooling1D and MaxPooling2D.

#include <limits>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

std::shared_ptr<NNLayer> pooling(std::initializer_list<std::int32_t> sizes) {
  const std::string type = sizes.size() == 1 ? "MaxPooling1D" : "MaxPooling2D";
  Record record(type);
  for (const std::int32_t size : sizes) record.number(size);
  return layer_of(type, record.bytes());
}

MinibatchPtr pooled(const NNLayer& layer, const Matrix& x, const Minibatch::Shape& shape) {
  return layer.forward({std::make_shared<Minibatch>(x, shape)});
}

TEST(MaxPooling, TakesTheMostOfEachWindowAndChannel) {
  const Matrix x = Dice(1).matrix(3 * 7 * 5, 4);
  const auto layer = pooling({2, 3});
  const MinibatchPtr y = pooled(*layer, x, {3, 7, 5});
  ASSERT_EQ(y->shape(), (Minibatch::Shape{3, 3, 1}));
  for (Eigen::Index t = 0; t < 4; ++t) {
    for (Eigen::Index p = 0; p < 3; ++p) {
      for (Eigen::Index c = 0; c < 3; ++c) {
        float most = -2;
        for (Eigen::Index i = 2 * p; i < 2 * p + 2; ++i) {
          for (Eigen::Index k = 0; k < 3; ++k) most = std::max(most, x((k * 7 + i) * 3 + c, t));
        }
        EXPECT_EQ(y->content()(p * 3 + c, t), most);
      }
    }
  }
  const MinibatchPtr flat = pooled(*layer, x.topRows(35), {7, 5});
  EXPECT_EQ(flat->shape(), (Minibatch::Shape{3, 1}));
  EXPECT_EQ(flat->content(), pooled(*layer, x.topRows(35), {1, 7, 5})->content());
  const MinibatchPtr line = pooled(*pooling({2}), x.topRows(21), {3, 7});
  EXPECT_EQ(line->shape(), (Minibatch::Shape{3, 3}));
  EXPECT_EQ(line->content(), pooled(*pooling({2, 1}), x.topRows(21), {3, 7, 1})->content());
}

TEST(MaxPooling, PassesOnWhatIsNoNumber) {
  for (Eigen::Index i = 0; i < 3; ++i) {
    Matrix x = Matrix::Ones(3, 1);
    x(i) = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::isnan(pooled(*pooling({3}), x, {1, 3})->content()(0)));
  }
}

TEST(MaxPooling, ChecksItsInput) {
  const std::string axes = "Layer the layer requires 3D minibatches as input";
  const auto failure = [](const NNLayer& layer, Eigen::Index rows, const Minibatch::Shape& shape) {
    return failure_of<BaseRuntimeError>([&] { pooled(layer, Matrix::Zero(rows, 1), shape); });
  };
  EXPECT_EQ(failure(*pooling({2}), 12, {12}), axes);
  EXPECT_EQ(failure(*pooling({2}), 12, {2, 2, 3}), axes);
  EXPECT_EQ(failure(*pooling({2, 2}), 12, {12}), axes);
  EXPECT_EQ(failure(*pooling({2, 2}), 12, {1, 2, 2, 3}), axes);
  EXPECT_EQ(failure(*pooling({4}), 6, {2, 3}), "Dimension mismatch in layer the layer");
  EXPECT_EQ(forward(*pooling({4}), Matrix(0, 0)).cols(), 0);
}

TEST(MaxPooling, ReadsAndWritesItsSizes) {
  const auto read = [](const std::string& type, const std::string& sizes) {
    return layer_of_xml(type, "<layer type='" + type + "' id='a' pool_size='" + sizes + "'/>");
  };
  const std::string one = Record("MaxPooling1D").number(3).bytes();
  const std::string same = Record("MaxPooling2D").number(3).number(3).bytes();
  const std::string two = Record("MaxPooling2D").number(3).number(2).bytes();
  EXPECT_EQ(binary_of(*read("MaxPooling1D", "3")), one);
  EXPECT_EQ(binary_of(*read("MaxPooling2D", "3")), same);
  EXPECT_EQ(binary_of(*read("MaxPooling2D", "3, 2")), two);
  EXPECT_EQ(binary_of(*layer_of_xml("MaxPooling2D", xml_of(*pooling({3, 2})))), two);
  const auto refusal = [&](const std::string& type, const std::string& sizes) {
    return failure_of<BaseRuntimeError>([&] { read(type, sizes); });
  };
  const std::string positive = "Pooling size must be a positive integer";
  for (const char* wrong : {"", "0", "-1", "x", "1.5", "1 2"}) EXPECT_EQ(refusal("MaxPooling1D", wrong), positive);
  for (const char* wrong : {"0", "2 0", "-1 2"}) EXPECT_EQ(refusal("MaxPooling2D", wrong), positive);
  for (const char* wrong : {"", "1 2 3", "x"}) {
    EXPECT_EQ(refusal("MaxPooling2D", wrong), "pool_size must have one or two numbers on MaxPooling2D");
  }
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { pooling({0}); }), positive);
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { pooling({2, -7}); }), positive);
}

}  // namespace
}  // namespace meridane::test
