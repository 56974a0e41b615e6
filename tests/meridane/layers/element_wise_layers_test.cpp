#include <cmath>
#include <limits>

#include "layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr double kUlp = 0x1p-23;  // of 1; half of it is the error of one rounding

struct Size {
  Eigen::Index rows, frames;
};
constexpr Size kSizes[] = {{1, 1}, {1, 17}, {2, 1}, {3, 5}, {16, 3}, {33, 7}, {257, 11}, {64, 50}};

std::shared_ptr<NNLayer> layer_with(const std::string& type, double slope, double bias) {
  return layer_of(type, Record(type).real(slope).real(bias).bytes());
}

Matrix one(float value) { return Matrix::Constant(1, 1, value); }

/// What slope x - bias may be off by: one rounding of the product, one of the difference.
double argument_error(double slope, double x, double bias) {
  return kUlp * (std::fabs(slope * x) + std::fabs(bias)) / 2 + kUlp * std::fabs(slope * x - bias) / 2;
}

double logistic(double t) { return 1 / (1 + std::exp(-t)); }

struct Slope {
  float slope, bias;
};
constexpr Slope kSlopes[] = {{1, 0}, {1, 1}, {-2.5f, 0.75f}, {0.125f, -3}, {0, 0.5f}};

// Beside what its argument is off by (the derivative of log y is below 1), y has the error of the exponential, 2 ulp,
// of the sum and of the quotient.
TEST(Sigmoid, IsOneOverOnePlusTheExponential) {
  Dice dice(1);
  for (const auto [slope, bias] : kSlopes) {
    const auto layer = layer_with("Sigmoid", slope, bias);
    for (const Size size : kSizes) {
      const Matrix x = dice.matrix(size.rows, size.frames, 8);
      const Matrix y = forward(*layer, x);
      ASSERT_EQ(y.rows(), size.rows);
      for (Eigen::Index k = 0; k < x.size(); ++k) {
        const double expected = logistic(static_cast<double>(slope) * x(k) - bias);
        EXPECT_NEAR(y(k), expected, expected * (4 * kUlp + argument_error(slope, x(k), bias))) << x(k);
      }
    }
  }
}

TEST(Sigmoid, SubtractsItsBias) {
  EXPECT_EQ(forward(*layer_with("Sigmoid", 1, 1), one(1))(0), 0.5f);
  EXPECT_GT(forward(*layer_with("Sigmoid", 1, -1), one(1))(0), 0.88f);  // 1 / (1 + exp(-2))
}

TEST(Sigmoid, ReachesItsLimits) {
  const auto layer = layer_with("Sigmoid", 1, 0);
  EXPECT_EQ(forward(*layer, one(kInfinity))(0), 1);
  EXPECT_EQ(forward(*layer, one(-kInfinity))(0), 0);
  EXPECT_EQ(forward(*layer, one(1000))(0), 1);
  EXPECT_EQ(forward(*layer, one(-1000))(0), 0);
  EXPECT_TRUE(std::isnan(forward(*layer, one(kNaN))(0)));
}

// The derivative of log tanh(t) is below 1 / t, so that the argument's relative error is all that counts.
TEST(Tanh, IsTheHyperbolicTangentOfSlopeTimesXMinusBias) {
  Dice dice(2);
  for (const auto [slope, bias] : kSlopes) {
    const auto layer = layer_with("Tanh", slope, bias);
    for (const Size size : kSizes) {
      const Matrix x = dice.matrix(size.rows, size.frames, 4);
      const Matrix y = forward(*layer, x);
      for (Eigen::Index k = 0; k < x.size(); ++k) {
        const double expected = std::tanh(static_cast<double>(slope) * x(k) - bias);
        EXPECT_NEAR(y(k), expected, 4 * kUlp * std::fabs(expected) + argument_error(slope, x(k), bias)) << x(k);
      }
    }
  }
}

TEST(Tanh, ReachesItsLimits) {
  const auto layer = layer_with("Tanh", 1, 0);
  EXPECT_EQ(forward(*layer, one(kInfinity))(0), 1);
  EXPECT_EQ(forward(*layer, one(-kInfinity))(0), -1);
  EXPECT_EQ(forward(*layer, one(0))(0), 0);
  EXPECT_TRUE(std::isnan(forward(*layer, one(kNaN))(0)));
}

TEST(Swish, IsXTimesTheLogisticFunction) {
  Dice dice(3);
  for (const auto [slope, bias] : kSlopes) {
    const auto layer = layer_with("Swish", slope, bias);
    for (const Size size : kSizes) {
      const Matrix x = dice.matrix(size.rows, size.frames, 8);
      const Matrix y = forward(*layer, x);
      for (Eigen::Index k = 0; k < x.size(); ++k) {
        const double expected = x(k) * logistic(static_cast<double>(slope) * x(k) - bias);
        const double error = 5 * kUlp + argument_error(slope, x(k), bias);
        EXPECT_NEAR(y(k), expected, std::fabs(expected) * error) << x(k);
      }
    }
  }
}

TEST(ReLU, TakesTheLargerOfXAndZero) {
  const auto layer = layer_of("ReLU", "ReLU");
  for (const Size size : kSizes) {
    const Matrix x = Dice(4).matrix(size.rows, size.frames);
    const Matrix y = forward(*layer, x);
    for (Eigen::Index k = 0; k < x.size(); ++k) EXPECT_EQ(y(k), std::max(0.0f, x(k)));
  }
}

TEST(ReLU, KeepsWhatIsNoNumberWhereverItStands) {
  const auto layer = layer_of("ReLU", "ReLU");
  for (Eigen::Index at = 0; at < 37; ++at) {
    Matrix x = Matrix::Constant(37, 1, -1);
    x(at) = kNaN;
    const Matrix y = forward(*layer, x);
    for (Eigen::Index k = 0; k < 37; ++k) EXPECT_EQ(std::isnan(y(k)), k == at);
  }
}

TEST(ReLU, KeepsOneInfinityAndTakesTheOtherToZero) {
  const auto layer = layer_of("ReLU", "ReLU");
  EXPECT_EQ(forward(*layer, one(kInfinity))(0), kInfinity);
  EXPECT_EQ(forward(*layer, one(-kInfinity))(0), 0);
}

// A single product: rounded once.
TEST(PReLU, MultipliesWhatIsBelowZero) {
  for (const float a : {0.25f, -0.3f, 1.7f, 0.0f}) {
    const auto layer = layer_of("PReLU", Record("PReLU").real(a).bytes());
    for (const Size size : kSizes) {
      const Matrix x = Dice(5).matrix(size.rows, size.frames);
      const Matrix y = forward(*layer, x);
      for (Eigen::Index k = 0; k < x.size(); ++k) EXPECT_EQ(y(k), x(k) > 0 ? x(k) : a * x(k));
    }
  }
}

TEST(GLU, GatesTheUpperHalfByTheLower) {
  Dice dice(6);
  for (const auto [slope, bias] : kSlopes) {
    const auto layer = layer_with("GLU", slope, bias);
    for (const Size size : kSizes) {
      const Matrix x = dice.matrix(size.rows, size.frames, 8);
      const Matrix y = forward(*layer, x);
      const Eigen::Index R = size.rows / 2;
      ASSERT_EQ(y.rows(), R);
      for (Eigen::Index t = 0; t < size.frames; ++t) {
        for (Eigen::Index i = 0; i < R; ++i) {
          const float p = x(i, t), q = x(R + i, t);
          const double expected = p * logistic(static_cast<double>(slope) * q - bias);
          EXPECT_NEAR(y(i, t), expected, std::fabs(expected) * (5 * kUlp + argument_error(slope, q, bias)));
        }
      }
    }
  }
}

TEST(GLU, DropsAnOddLastRow) {
  const auto layer = layer_with("GLU", 1, 0);
  Matrix x(5, 1);
  x << 2, 4, 0, 0, 100;  // with R = 2: p = 2, 4 and q = 0, 0, whose logistic function is 0.5
  EXPECT_EQ(forward(*layer, x), (Matrix(2, 1) << 1, 2).finished());
}

TEST(GLU, LeavesNothingOfASingleRow) {
  const MinibatchPtr y = layer_with("GLU", 1, 0)->forward({minibatch(Matrix::Ones(1, 4))});
  EXPECT_EQ(y->content().rows(), 0);
  EXPECT_EQ(y->content().cols(), 4);
  EXPECT_EQ(y->shape(), Minibatch::Shape{0});
}

// Errors: of the argument, of the exponential (2 ulp), of the sum (one rounding for each of its terms at most) and of
// the product with its inverse.
TEST(Softmax, DividesExponentialsByTheirSum) {
  Dice dice(7);
  for (const float temperature : {1.0f, 0.5f, 3.0f}) {
    const auto layer = layer_of("Softmax", Record("Softmax").real(temperature).bytes());
    for (const Size size : kSizes) {
      const Matrix x = dice.matrix(size.rows, size.frames, 8);
      const Matrix y = forward(*layer, x);
      for (Eigen::Index t = 0; t < size.frames; ++t) {
        const double most = x.col(t).maxCoeff();
        double sum = 0;
        for (Eigen::Index i = 0; i < size.rows; ++i) sum += std::exp((x(i, t) - most) / temperature);
        for (Eigen::Index i = 0; i < size.rows; ++i) {
          const double z = (x(i, t) - most) / temperature;
          const double expected = std::exp(z) / sum;
          const double roundings = 5 + static_cast<double>(size.rows) / 2 + 2 * std::fabs(z);
          EXPECT_NEAR(y(i, t), expected, expected * roundings * kUlp);
        }
      }
    }
  }
}

TEST(Softmax, IsUniformForAConstantColumnHoweverLarge) {
  const auto layer = layer_of("Softmax", Record("Softmax").real(1).bytes());
  for (const float value : {0.0f, 1e-30f, -88.0f, 1000.0f, 3e38f, -3e38f}) {
    const Matrix y = forward(*layer, Matrix::Constant(8, 2, value));
    for (Eigen::Index k = 0; k < y.size(); ++k) EXPECT_EQ(y(k), 0.125f) << value;
  }
}

TEST(Softmax, DoesNotOverflow) {
  const auto layer = layer_of("Softmax", Record("Softmax").real(1).bytes());
  Matrix x(3, 1);
  x << 1e30f, 2e30f, -1e30f;
  EXPECT_EQ(forward(*layer, x), (Matrix(3, 1) << 0, 1, 0).finished());
}

TEST(Softmax, OfOneRowIsOne) {
  const auto layer = layer_of("Softmax", Record("Softmax").real(0.3).bytes());
  EXPECT_EQ(forward(*layer, Dice(8).matrix(1, 9, 50)), Matrix::Ones(1, 9));
}

TEST(Softmax, LosesAFrameToWhatIsNoNumber) {
  const auto layer = layer_of("Softmax", Record("Softmax").real(1).bytes());
  for (Eigen::Index at = 0; at < 21; ++at) {
    Matrix x = Matrix::Zero(21, 1);
    x(at) = kNaN;
    EXPECT_TRUE(forward(*layer, x).array().isNaN().all()) << at;
  }
}

TEST(ElementWiseLayers, CarryTheShapeOver) {
  for (const char* type : {"Sigmoid", "Tanh", "Swish", "Softmax", "PReLU", "ReLU"}) {
    const std::string attributes = "<layer type='" + std::string(type) + "' id='a'/>";
    const auto input = std::make_shared<Minibatch>(Matrix::Ones(6, 2), Minibatch::Shape{2, 3});
    EXPECT_EQ(layer_of_xml(type, attributes)->forward({input})->shape(), (Minibatch::Shape{2, 3})) << type;
  }
}

TEST(ElementWiseLayers, HaveDefaultsInTheirDocuments) {
  const auto dump = [](const std::string& type, const std::string& attributes = {}) {
    return binary_of(*layer_of_xml(type, "<layer type='" + type + "' id='a' " + attributes + "/>"));
  };
  for (const std::string type : {"Sigmoid", "Tanh", "Swish", "GLU"}) {
    EXPECT_EQ(dump(type), Record(type).real(1).real(0).bytes());
    EXPECT_EQ(dump(type, "slope='2.5'"), Record(type).real(2.5).real(0).bytes());
    EXPECT_EQ(dump(type, "bias='-1e-3'"), Record(type).real(1).real(-1e-3).bytes());
  }
  EXPECT_EQ(dump("PReLU"), Record("PReLU").real(0.25).bytes());
  EXPECT_EQ(dump("PReLU", "a='0.1'"), Record("PReLU").real(0.1).bytes());
  EXPECT_EQ(dump("Softmax"), Record("Softmax").real(1).bytes());
  EXPECT_EQ(dump("Softmax", "temperature='7'"), Record("Softmax").real(7).bytes());
  EXPECT_EQ(dump("ReLU"), "ReLU");
}

TEST(ElementWiseLayers, NameAnAttributeThatIsNoNumber) {
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { layer_of_xml("PReLU", "<layer type='PReLU' id='a' a='steep'/>"); }),
            "Invalid number \"steep\"");
}

}  // namespace
}  // namespace meridane::test
