// Products of 8-bit weights with frames.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "meridane/error.h"
#include "meridane/quantized_matrix.h"
#include "naive_quantizing.h"

namespace meridane {
namespace {

using testing::ThrowsMessage;

Matrix random(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed, float offset = 0) {
  std::mt19937 generator(seed);
  std::normal_distribution<float> normal(offset);
  return Matrix::NullaryExpr(rows, cols, [&] { return normal(generator); });
}

/// Value by value the same floats: the integers are exact, and what follows is one product and one quotient.
void expect_naive(const Matrix& weight, const Matrix& x) {
  const Matrix y = QuantizedMatrix(weight, 'l').multiply(x);
  ASSERT_EQ(y.rows(), weight.rows());
  ASSERT_EQ(y.cols(), x.cols());
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    const naive::Line frame = naive::quantized(x.col(t));
    for (Eigen::Index i = 0; i < weight.rows(); ++i) {
      ASSERT_EQ(y(i, t), naive::product(naive::quantized(weight.row(i).transpose()), frame)) << i << ", " << t;
    }
  }
}

struct Sizes {
  int rows, depth, frames;
};

class QuantizedProductOfSize : public testing::TestWithParam<Sizes> {};

INSTANTIATE_TEST_SUITE_P(Sizes, QuantizedProductOfSize,
                         testing::Values(Sizes{1, 1, 1}, Sizes{3, 15, 2}, Sizes{4, 16, 5}, Sizes{5, 17, 1},
                                         Sizes{31, 33, 3}, Sizes{64, 64, 50}, Sizes{65, 255, 7}, Sizes{2, 4097, 2},
                                         Sizes{20, 40, 101}),
                         [](const auto& sizes) {
                           return std::to_string(sizes.param.rows) + "x" + std::to_string(sizes.param.depth) + "x" +
                                  std::to_string(sizes.param.frames);
                         });

TEST_P(QuantizedProductOfSize, IsTheFormula) {
  const auto [rows, depth, frames] = GetParam();
  expect_naive(random(rows, depth, 1), random(depth, frames, 2));
}

TEST_P(QuantizedProductOfSize, CountsRealCodesOnlyInTheZeroPoints) {
  const auto [rows, depth, frames] = GetParam();
  expect_naive(random(rows, depth, 3, 5), random(depth, frames, 4, -7));
}

TEST_P(QuantizedProductOfSize, OfAVectorIsThatOfOneFrame) {
  const auto [rows, depth, frames] = GetParam();
  const QuantizedMatrix weight(random(rows, depth, 5), 'l');
  const Matrix x = random(depth, frames, 6);
  EXPECT_EQ(weight.multiply(Vector(x.col(frames - 1))), weight.multiply(x).col(frames - 1));
}

/// With a scale s every code stands for its value up to half a step, 1 / (2 s); so a sum of products is off by at most
/// sum of |w| dx + |x| dw + dw dx, plus the roundings of s x before (2^-16 of a step) and of the result after.
TEST_P(QuantizedProductOfSize, IsNearTheProductOfTheNumbers) {
  const auto [rows, depth, frames] = GetParam();
  const Matrix weight = random(rows, depth, 7), x = random(depth, frames, 8);
  const Matrix y = QuantizedMatrix(weight, 'l').multiply(x);
  const auto half_step = [](const auto& line) { return (line.maxCoeff() - line.minCoeff()) / 510.0 * (1 + 0x1p-15); };
  for (int t = 0; t < frames; ++t) {
    for (int i = 0; i < rows; ++i) {
      const double dw = half_step(weight.row(i)), dx = half_step(x.col(t));
      double sum = 0, bound = 0;
      for (int k = 0; k < depth; ++k) {
        const double w = weight(i, k), v = x(k, t);
        sum += w * v;
        bound += std::abs(w) * dx + std::abs(v) * dw + dw * dx;
      }
      ASSERT_NEAR(y(i, t), sum, bound + std::abs(sum) * 0x1p-21) << i << ", " << t;
    }
  }
}

TEST(QuantizedProduct, OfConstantLinesIsExactUpToTheScales) {
  // 16 products of 0.5 and 3: all of it in the zero points, 1 x 16 x 1, over (1/3) x 2.
  const Matrix y = QuantizedMatrix(Matrix::Constant(1, 16, 0.5f), 'l').multiply(Matrix(Matrix::Constant(16, 1, 3.0f)));
  EXPECT_FLOAT_EQ(y(0, 0), 24);
}

TEST(QuantizedProduct, WithZerosIsZero) {
  const Matrix weight = random(5, 20, 9, 3);
  EXPECT_EQ(QuantizedMatrix(weight, 'l').multiply(Matrix(Matrix::Zero(20, 3))), Matrix::Zero(5, 3));
  EXPECT_EQ(QuantizedMatrix(Matrix::Zero(5, 20), 'l').multiply(random(20, 3, 10)), Matrix::Zero(5, 3));
}

/// Their scale is infinite; the product of numbers below 2^-128 with any frame of these is not much more.
TEST(QuantizedProduct, WithNumbersTooSmallForAScaleIsZero) {
  const Matrix x = random(20, 3, 23);
  EXPECT_EQ(QuantizedMatrix(Matrix::Constant(5, 20, 1e-40f), 'l').multiply(x), Matrix::Zero(5, 3));
  EXPECT_EQ(QuantizedMatrix(random(5, 20, 24), 'l').multiply(Matrix(Matrix::Constant(20, 3, -1e-40f))),
            Matrix::Zero(5, 3));
}

TEST(QuantizedProduct, WrapsAt32Bits) {
  // Zero points near 255 x 1000: their product alone passes 2^31 several times.
  const Matrix weight = random(6, 40, 11).cwiseAbs() / 10 + Matrix::Constant(6, 40, 1000);
  const Matrix x = random(40, 3, 12).cwiseAbs() / 10 + Matrix::Constant(40, 3, -2000);
  ASSERT_GT(std::abs(std::int64_t{QuantizedMatrix(weight, 'l').rqpmin(0)} * QuantizedMatrix(x, 'r').rqpmin(0)),
            std::int64_t{std::numeric_limits<std::int32_t>::max()});
  expect_naive(weight, x);
}

TEST(QuantizedProduct, ReachesTheLargestCodesWithoutLoss) {
  // Every code 255 but the first: the sums of products are the largest there are.
  for (const int depth : {17, 1025}) {
    Matrix weight = Matrix::Constant(3, depth, 255), x = Matrix::Constant(depth, 2, 255);
    weight.col(0).setZero();
    x.row(0).setZero();
    const Matrix y = QuantizedMatrix(weight, 'l').multiply(x);
    EXPECT_EQ(y, Matrix::Constant(3, 2, static_cast<float>(depth - 1) * 255 * 255));
  }
}

TEST(QuantizedProduct, MayHaveNoFrames) {
  const Matrix y = QuantizedMatrix(random(5, 20, 13), 'l').multiply(Matrix(20, 0));
  EXPECT_EQ(y.rows(), 5);
  EXPECT_EQ(y.cols(), 0);
}

TEST(QuantizedProduct, OfNoDepthIsZero) {
  EXPECT_EQ(QuantizedMatrix(Matrix(5, 0), 'l').multiply(Matrix(0, 3)), Matrix::Zero(5, 3));
}

TEST(QuantizedProduct, WritesColumnsInPlaceWithABias) {
  const QuantizedMatrix weight(random(5, 20, 14), 'l');
  const Matrix x = random(20, 3, 15);
  const Vector bias = random(5, 1, 16).col(0);
  constexpr float kUntouched = 77;
  Matrix wide_x = Matrix::Constant(23, 3, std::numeric_limits<float>::quiet_NaN());
  wide_x.topRows(20) = x;
  Matrix wide_y = Matrix::Constant(7, 3, kUntouched);
  weight.multiply(wide_x.data(), 23, 3, bias.data(), wide_y.data(), 7);
  EXPECT_EQ(wide_y.topRows(5), (weight.multiply(x).colwise() + bias).eval());
  EXPECT_EQ(wide_y.bottomRows(2), Matrix::Constant(2, 3, kUntouched));
}

TEST(QuantizedProduct, OfACopyIsTheSame) {
  const Matrix x = random(20, 3, 17);
  auto original = std::make_unique<QuantizedMatrix>(random(5, 20, 18), 'l');
  const QuantizedMatrix copy = *original;
  const Matrix y = original->multiply(x);
  original.reset();
  EXPECT_EQ(copy.multiply(x), y);
}

TEST(QuantizedProduct, RefusesOtherSizes) {
  const QuantizedMatrix weight(random(5, 20, 19), 'l');
  constexpr char kMessage[] = "The product of 20 columns and 19 rows does not exist";
  EXPECT_THAT([&] { weight.multiply(Matrix(19, 1)); }, ThrowsMessage<DimensionMismatchError>(std::string(kMessage)));
  EXPECT_THAT([&] { weight.multiply(Vector(19)); }, ThrowsMessage<DimensionMismatchError>(std::string(kMessage)));
}

TEST(QuantizedProduct, RefusesARightOperandOnTheLeft) {
  const QuantizedMatrix frames(random(20, 4, 20), 'r');
  EXPECT_THAT(
      [&] { frames.multiply(Matrix(Matrix::Zero(20, 1))); },
      ThrowsMessage<DimensionMismatchError>(std::string("A right operand can't stand on the left of a product")));
}

TEST(QuantizedProduct, OfAFrameThatIsNoNumberIsNoneAndHarmsNoOther) {
  const QuantizedMatrix weight(random(5, 20, 21), 'l');
  Matrix x = random(20, 3, 22);
  const Matrix y = weight.multiply(x);
  x(7, 1) = std::numeric_limits<float>::quiet_NaN();
  const Matrix z = weight.multiply(x);
  EXPECT_TRUE(z.col(1).array().isNaN().all());
  EXPECT_EQ(z.col(0), y.col(0));
  EXPECT_EQ(z.col(2), y.col(2));
}

}  // namespace
}  // namespace meridane
