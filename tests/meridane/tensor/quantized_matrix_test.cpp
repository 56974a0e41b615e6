// Codes, scales, zero points and padding.

#include "meridane/quantized_matrix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "meridane/error.h"
#include "naive_quantizing.h"

namespace meridane {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ThrowsMessage;

bool is_aligned(const void* memory) { return reinterpret_cast<std::uintptr_t>(memory) % 16 == 0; }

std::vector<std::uint8_t> line_of(const QuantizedMatrix& matrix, Eigen::Index i) {
  const auto* const first = matrix.quantized_param.data() + i * matrix.align_size_minor;
  return {first, first + matrix.size_minor};
}

std::vector<std::uint8_t> padding_of(const QuantizedMatrix& matrix, Eigen::Index i) {
  const auto* const first = matrix.quantized_param.data() + i * matrix.align_size_minor;
  return {first + (i < matrix.size_major ? matrix.size_minor : 0), first + matrix.align_size_minor};
}

Matrix random(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<float> normal;
  return Matrix::NullaryExpr(rows, cols, [&] { return normal(generator); });
}

Vector values(std::initializer_list<float> list) {
  return Eigen::Map<const Vector>(list.begin(), static_cast<Eigen::Index>(list.size()));
}

struct Sizes {
  int rows, cols;
};

class QuantizedMatrixOfSize : public testing::TestWithParam<Sizes> {};

INSTANTIATE_TEST_SUITE_P(Sizes, QuantizedMatrixOfSize,
                         testing::Values(Sizes{1, 1}, Sizes{3, 15}, Sizes{4, 16}, Sizes{5, 17}, Sizes{7, 31},
                                         Sizes{8, 32}, Sizes{9, 33}, Sizes{64, 127}, Sizes{65, 128}, Sizes{63, 129}),
                         [](const auto& sizes) {
                           return std::to_string(sizes.param.rows) + "x" + std::to_string(sizes.param.cols);
                         });

TEST_P(QuantizedMatrixOfSize, HasRowsAsLinesOfALeftOperand) {
  const auto [rows, cols] = GetParam();
  const Matrix matrix = random(rows, cols, 1);
  const QuantizedMatrix quantized(matrix, 'l');
  EXPECT_EQ(quantized.size_major, rows);
  EXPECT_EQ(quantized.size_minor, cols);
  EXPECT_EQ(quantized.align_size_major, (rows + 3) / 4 * 4);
  EXPECT_EQ(quantized.align_size_minor, (cols + 15) / 16 * 16);
  ASSERT_EQ(quantized.qvector.size(), rows);
  ASSERT_EQ(quantized.rqpmin.size(), rows);
  ASSERT_EQ(quantized.sumqp.size(), rows);
  for (int i = 0; i < rows; ++i) {
    const naive::Line expected = naive::quantized(matrix.row(i).transpose());
    EXPECT_EQ(line_of(quantized, i), expected.codes);
    EXPECT_EQ(quantized.qvector(i), expected.s);
    EXPECT_EQ(quantized.rqpmin(i), expected.r);
    EXPECT_EQ(quantized.sumqp(i), expected.sum);
  }
}

TEST_P(QuantizedMatrixOfSize, HasColumnsAsLinesOfARightOperand) {
  const auto [rows, cols] = GetParam();
  const Matrix matrix = random(rows, cols, 2);
  const QuantizedMatrix quantized(matrix, 'r');
  EXPECT_EQ(quantized.size_major, cols);
  EXPECT_EQ(quantized.size_minor, rows);
  EXPECT_EQ(quantized.align_size_major, cols);
  EXPECT_EQ(quantized.align_size_minor, (rows + 15) / 16 * 16);
  for (int t = 0; t < cols; ++t) {
    const naive::Line expected = naive::quantized(matrix.col(t));
    EXPECT_EQ(line_of(quantized, t), expected.codes);
    EXPECT_EQ(quantized.qvector(t), expected.s);
    EXPECT_EQ(quantized.rqpmin(t), expected.r);
    EXPECT_EQ(quantized.sumqp(t), expected.sum);
  }
}

TEST_P(QuantizedMatrixOfSize, IsPaddedWithZerosAndAligned) {
  const auto [rows, cols] = GetParam();
  for (const char kind : {'l', 'r'}) {
    // Far from zero, so that a line that went on into its padding would be seen in the codes of the real values.
    const QuantizedMatrix quantized(random(rows, cols, 3) + Matrix::Constant(rows, cols, 100), kind);
    EXPECT_TRUE(is_aligned(quantized.quantized_param.data()));
    ASSERT_EQ(quantized.quantized_param.size(), static_cast<std::size_t>(quantized.align_size_major) *
                                                    static_cast<std::size_t>(quantized.align_size_minor));
    for (int i = 0; i < quantized.align_size_major; ++i) EXPECT_THAT(padding_of(quantized, i), Each(0));
  }
}

TEST_P(QuantizedMatrixOfSize, FromRowsIsTheSameAsFromAMatrix) {
  const auto [rows, cols] = GetParam();
  const Matrix matrix = random(rows, cols, 4);
  const Matrix stored = matrix.transpose();  // column after column: the rows one after the other
  const QuantizedMatrix left(matrix, 'l'), from_rows = QuantizedMatrix::of_rows(stored.data(), rows, cols);
  EXPECT_EQ(from_rows.quantized_param, left.quantized_param);
  EXPECT_EQ(from_rows.qvector, left.qvector);
  EXPECT_EQ(from_rows.rqpmin, left.rqpmin);
  EXPECT_EQ(from_rows.sumqp, left.sumqp);
  EXPECT_EQ(from_rows.align_size_major, left.align_size_major);
  EXPECT_EQ(from_rows.align_size_minor, left.align_size_minor);
}

TEST(QuantizedMatrix, KnowsTwoKindsOfOperands) {
  EXPECT_THAT([] { QuantizedMatrix(Matrix::Ones(1, 1), 'x'); },
              ThrowsMessage<BaseRuntimeError>(std::string("Unknown operand kind 'x'")));
}

/// Sizes are of 32 bits, those that are rounded up too; lines without values take no memory here.
TEST(QuantizedMatrix, RefusesSizesThatDoNotFit) {
  constexpr Eigen::Index kMost = std::numeric_limits<std::int32_t>::max() - 16;
  for (const char kind : {'l', 'r'}) {
    for (const auto& [rows, cols] : {std::pair{Eigen::Index{0}, kMost + 1}, {kMost + 1, Eigen::Index{0}}}) {
      EXPECT_THAT(([kind, rows = rows, cols = cols] { QuantizedMatrix(Matrix(rows, cols), kind); }),
                  ThrowsMessage<BaseRuntimeError>(std::string("The matrix is too large to be quantized")));
    }
  }
  EXPECT_EQ(QuantizedMatrix(Matrix(0, kMost), 'l').align_size_minor, std::numeric_limits<std::int32_t>::max() - 15);
}

TEST(QuantizedMatrix, MayHaveLinesWithoutValuesAndNoLines) {
  const QuantizedMatrix empty_lines(Matrix(3, 0), 'l');
  EXPECT_EQ(empty_lines.size_major, 3);
  EXPECT_EQ(empty_lines.align_size_minor, 0);
  EXPECT_TRUE(empty_lines.quantized_param.empty());
  const QuantizedMatrix no_lines(Matrix(5, 0), 'r');
  EXPECT_EQ(no_lines.size_major, 0);
  EXPECT_EQ(no_lines.align_size_minor, 16);
  EXPECT_TRUE(no_lines.quantized_param.empty());
}

TEST(QuantizedVector, IsALineWithItsScale) {
  for (const int size : {1, 15, 16, 17, 100}) {
    const Vector vector = random(size, 1, 5).col(0);
    const QuantizedVector quantized(vector);
    const naive::Line expected = naive::quantized(vector);
    EXPECT_EQ(quantized.size_minor, size);
    EXPECT_EQ(quantized.align_size_minor, (size + 15) / 16 * 16);
    EXPECT_EQ(quantized.qparam, expected.s);
    EXPECT_EQ(quantized.rqpmin, expected.r);
    EXPECT_EQ(quantized.sumqp, expected.sum);
    EXPECT_TRUE(is_aligned(quantized.quantized_param.data()));
    std::vector<std::uint8_t> codes = expected.codes;
    codes.resize(static_cast<std::size_t>(quantized.align_size_minor));  // padded with 0
    EXPECT_TRUE(
        std::equal(codes.begin(), codes.end(), quantized.quantized_param.begin(), quantized.quantized_param.end()));
  }
}

TEST(QuantizedVector, OfAConstantIsInItsZeroPoint) {
  for (const float constant : {0.3f, -0.3f, 1e-30f, -4096.0f}) {
    const QuantizedVector quantized(Vector(Vector::Constant(3, constant)));
    EXPECT_EQ(quantized.qparam, 1 / constant);
    EXPECT_EQ(quantized.rqpmin, 1);
    EXPECT_THAT(quantized.quantized_param, Each(0));
    EXPECT_EQ(quantized.sumqp, 0);
  }
}

/// 1 / m is infinite for the smallest floats, and 255 / (M - m) is 0 where M - m is beyond the largest.
TEST(QuantizedVector, HasTheScaleOfTheFormulaAtTheEndsOfTheFloats) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const QuantizedVector tiny(Vector(Vector::Constant(3, -1e-40f)));
  EXPECT_EQ(tiny.qparam, -kInfinity);
  EXPECT_THAT(tiny.quantized_param, Each(0));
  const QuantizedVector wide(values({-3e38f, 0, 3e38f}));
  EXPECT_EQ(wide.qparam, 0);
  EXPECT_EQ(wide.rqpmin, 0);
  EXPECT_THAT(wide.quantized_param, Each(0));
}

TEST(QuantizedVector, OfZerosHasScale255) {
  for (const float zero : {0.0f, -0.0f}) {
    const QuantizedVector quantized(Vector(Vector::Constant(20, zero)));
    EXPECT_EQ(quantized.qparam, 255);
    EXPECT_EQ(quantized.rqpmin, 0);
    EXPECT_EQ(quantized.sumqp, 0);
    EXPECT_THAT(quantized.quantized_param, Each(0));
  }
}

TEST(QuantizedVector, RoundsTiesAwayFromZero) {
  // Range 255, so that the scale is 1.
  const QuantizedVector up(values({0, 0.5f, 1.5f, 2.5f, 2.25f, 255}));
  EXPECT_EQ(up.rqpmin, 0);
  EXPECT_THAT(std::vector(up.quantized_param.begin(), up.quantized_param.begin() + 6), ElementsAre(0, 1, 2, 3, 2, 255));
  const QuantizedVector down(values({-255, -2.5f, -1.5f, -0.5f, 0}));
  EXPECT_EQ(down.rqpmin, -255);
  EXPECT_THAT(std::vector(down.quantized_param.begin(), down.quantized_param.begin() + 5),
              ElementsAre(0, 252, 253, 254, 255));
}

TEST(QuantizedVector, KeepsTheLowByteWhenTheMaximumIsRoundedBeyond255) {
  // Both ends of the range are ties: -10.5 becomes -11, 244.5 becomes 245, and 245 + 11 = 256.
  const QuantizedVector quantized(values({-10.5f, 244.5f, 1}));
  EXPECT_EQ(quantized.qparam, 1);
  EXPECT_EQ(quantized.rqpmin, -11);
  EXPECT_THAT(std::vector(quantized.quantized_param.begin(), quantized.quantized_param.begin() + 3),
              ElementsAre(0, 0, 12));
  EXPECT_EQ(quantized.sumqp, 12);  // of the stored bytes
}

TEST(QuantizedVector, TakesTheZeroPointOffInFloat) {
  // s m = 255 x 10^6 isn't a multiple of 16, as floats of that size are.
  const Vector far = values({1000001, 1000001.5f, 1000002});
  const QuantizedVector quantized(far);
  const naive::Line expected = naive::quantized(far);
  EXPECT_EQ(quantized.rqpmin, expected.r);
  EXPECT_TRUE(std::equal(expected.codes.begin(), expected.codes.end(), quantized.quantized_param.begin()));
}

TEST(QuantizedVector, MayBeEmpty) {
  const QuantizedVector quantized{Vector()};
  EXPECT_EQ(quantized.size_minor, 0);
  EXPECT_EQ(quantized.align_size_minor, 0);
  EXPECT_TRUE(quantized.quantized_param.empty());
}

}  // namespace
}  // namespace meridane
