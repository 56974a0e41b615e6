#include "meridane/minibatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <stdexcept>

#include "meridane/error.h"

namespace meridane {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;
using Shape = Minibatch::Shape;

constexpr char kStaleShape[] = "Specified dimensionlity does not match the size of the given minibatch content";
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

/// Rows from `first` on: value(i, t) = 10 i + t, so that each place differs.
Matrix counted(Eigen::Index rows, Eigen::Index cols, Eigen::Index first = 0) {
  return Matrix::NullaryExpr(rows, cols,
                             [=](Eigen::Index i, Eigen::Index t) { return static_cast<float>(10 * (first + i) + t); });
}

MinibatchPtr shared(Matrix content) { return std::make_shared<Minibatch>(std::move(content)); }
MinibatchPtr shared(Matrix content, Shape shape) {
  return std::make_shared<Minibatch>(std::move(content), std::move(shape));
}

using Inputs = std::vector<MinibatchPtr>;

MATCHER_P(Fails, message, "") {
  return testing::ExplainMatchResult(ThrowsMessage<BaseRuntimeError>(std::string(message)), arg, result_listener);
}

TEST(Minibatch, IsOneFrameOfZeroAtFirst) {
  const Minibatch minibatch;
  EXPECT_EQ(minibatch.content(), Matrix::Zero(1, 1));
  EXPECT_THAT(minibatch.shape(), ElementsAre(1));
  EXPECT_EQ(minibatch.size(), 1);
}

TEST(Minibatch, TakesFramesOfOneAxisFromAMatrix) {
  Matrix content = counted(3, 2);
  const Minibatch minibatch(content);
  content.setZero();  // its own copy stays
  EXPECT_EQ(minibatch.content(), counted(3, 2));
  EXPECT_THAT(minibatch.shape(), ElementsAre(3));
  EXPECT_EQ(minibatch.size(), 2);
}

TEST(Minibatch, MayHaveNoFrames) {
  const Minibatch minibatch(Matrix(4, 0));
  EXPECT_EQ(minibatch.size(), 0);
  EXPECT_THAT(minibatch.shape(), ElementsAre(4));
  EXPECT_EQ(Minibatch(Matrix(0, 0)).size(), 0);
}

TEST(Minibatch, TakesAShapeWhoseProductIsTheNumberOfRows) {
  Matrix content = counted(6, 2);
  Shape shape{2, 3};
  const Minibatch minibatch(content, shape);
  content.setZero();
  shape.clear();
  EXPECT_EQ(minibatch.content(), counted(6, 2));
  EXPECT_THAT(minibatch.shape(), ElementsAre(2, 3));
  EXPECT_EQ(minibatch.size(), 2);
}

TEST(Minibatch, RefusesAShapeOfAnotherSize) {
  for (const Shape& shape : {Shape{5}, Shape{2, 2}, Shape{2, 3, 2}, Shape{0}, Shape{}}) {
    EXPECT_THAT([&] { Minibatch(counted(6, 2), shape); }, Fails(kStaleShape));
  }
}

TEST(Minibatch, ComparesTheProductOfAShapeModulo32Bits) {
  const std::uint64_t two_to_32 = std::uint64_t{1} << 32;
  EXPECT_NO_THROW(Minibatch(counted(6, 1), {two_to_32 + 2, 3}));
  EXPECT_NO_THROW(Minibatch(Matrix(0, 1), {65536, 65536}));
  // 2^31 + 6 is negative as a signed number.
  EXPECT_THAT([] { Minibatch(counted(6, 1), {(std::uint64_t{1} << 31) + 6}); }, Fails(kStaleShape));
}

TEST(Minibatch, OfAShapeAloneIsReserved) {
  const Shape shape{2};
  EXPECT_THAT([&] { const Minibatch minibatch(shape); }, Fails("Not implemented"));
}

TEST(Minibatch, TakesANewFormForAResult) {
  Minibatch minibatch;
  minibatch.resize(std::array<std::uint64_t, 2>{2, 3}, 4);
  EXPECT_EQ(minibatch.content().rows(), 6);
  EXPECT_EQ(minibatch.size(), 4);
  EXPECT_THAT(minibatch.shape(), ElementsAre(2, 3));
  const MinibatchPtr result = Minibatch::uninitialised(std::array<std::uint64_t, 1>{5}, 0);
  EXPECT_EQ(result->content().rows(), 5);
  EXPECT_EQ(result->size(), 0);
  EXPECT_THAT(result->shape(), ElementsAre(5));
}

TEST(Minibatch, TakesNoMemoryForAShapeThatIsRightOnlyModulo32Bits) {
  const std::uint64_t two_to_32 = std::uint64_t{1} << 32;
  for (const Shape& shape : {Shape{two_to_32 + 2, 3}, Shape{65536, 65536}, Shape{kLargest, 2},
                             Shape{two_to_32, two_to_32}, Shape{0, two_to_32}, Shape{std::uint64_t{1} << 31}}) {
    EXPECT_THAT([&] { Minibatch::uninitialised(shape, 1); }, Fails(kStaleShape));
    Minibatch minibatch(counted(6, 2));
    EXPECT_THAT([&] { minibatch.resize(shape, 2); }, Fails(kStaleShape));
    EXPECT_EQ(minibatch.content(), counted(6, 2)) << "and stays what it was";
    EXPECT_THAT(minibatch.shape(), ElementsAre(6));
  }
}

TEST(MinibatchConcatenation, PutsInputsOneUnderTheOther) {
  const Inputs inputs{shared(counted(2, 3)), shared(counted(1, 3, 2)), shared(counted(3, 3, 3))};
  const Minibatch joined(inputs, 0);
  EXPECT_EQ(joined.content(), counted(6, 3));
  EXPECT_THAT(joined.shape(), ElementsAre(6));
  EXPECT_EQ(joined.size(), 3);
}

TEST(MinibatchConcatenation, OfOneInputIsACopy) {
  const Inputs inputs{shared(counted(2, 3))};
  const Minibatch copy(inputs, 0);
  inputs[0]->content().setZero();
  EXPECT_EQ(copy.content(), counted(2, 3));
  EXPECT_THAT(copy.shape(), ElementsAre(2));
}

TEST(MinibatchConcatenation, WorksWithoutFrames) {
  const Minibatch joined(Inputs{shared(Matrix(2, 0)), shared(Matrix(3, 0))}, 0);
  EXPECT_EQ(joined.content().rows(), 5);
  EXPECT_EQ(joined.size(), 0);
}

TEST(MinibatchConcatenation, RefusesAnAxisThatIsNotThere) {
  for (const std::uint64_t axis : {std::uint64_t{1}, kLargest}) {
    EXPECT_THAT([&] { Minibatch(Inputs{shared(counted(2, 3))}, axis); }, Fails("Invalid axis is specified"));
  }
  EXPECT_THAT([] { Minibatch(Inputs{shared(counted(6, 3), {2, 3})}, 2); }, Fails("Invalid axis is specified"));
  // A frame that is a single number without any axis.
  EXPECT_THAT([] { Minibatch(Inputs{shared(counted(1, 3), Shape{})}, 0); }, Fails("Invalid axis is specified"));
}

TEST(MinibatchConcatenation, RefusesInputsThatDoNotAccord) {
  const MinibatchPtr flat = shared(counted(6, 2)), map = shared(counted(6, 2), {2, 3});
  EXPECT_THAT([&] { Minibatch(Inputs{flat, map}, 0); }, Fails("Number of axes of input minibatches does not accord"));
  EXPECT_THAT(
      [&] {
        Minibatch(Inputs{flat, shared(counted(6, 3))}, 0);
      },
      Fails("Minibatch size of input minibatches does not accord"));
  EXPECT_THAT(
      [&] {
        Minibatch(Inputs{map, shared(counted(8, 2), {2, 4})}, 0);
      },
      Fails("Dimension of 1-th axis does not match"));
  EXPECT_THAT(
      [&] {
        Minibatch(Inputs{map, map, shared(counted(9, 2), {3, 3})}, 1);
      },
      Fails("Dimension of 0-th axis does not match"));
  EXPECT_THAT(
      [] {
        Minibatch(Inputs{shared(counted(12, 2), {2, 2, 3}), shared(counted(16, 2), {2, 2, 4})}, 0);
      },
      Fails("Dimension of 2-th axis does not match"));
}

TEST(MinibatchConcatenation, ChecksTheAxisBeforeTheInputsAndTheAxesBeforeTheFrames) {
  EXPECT_THAT(
      [] {
        Minibatch(Inputs{shared(counted(2, 2)), shared(counted(2, 3))}, 1);
      },
      Fails("Invalid axis is specified"));
  EXPECT_THAT(
      [] {
        Minibatch(Inputs{shared(counted(6, 2)), shared(counted(6, 3), {2, 3})}, 0);
      },
      Fails("Number of axes of input minibatches does not accord"));
}

TEST(MinibatchConcatenation, IsNotThereForSeveralAxesNorForNoInput) {
  const MinibatchPtr map = shared(counted(6, 2), {2, 3});
  EXPECT_THAT([&] { Minibatch(Inputs{map}, 0); }, Fails("Not implemented"));
  // Along the axis the sizes may differ, so that nothing else is wrong.
  EXPECT_THAT([&] { Minibatch(Inputs{map, shared(counted(8, 2), {2, 4})}, 1); }, Fails("Not implemented"));
  EXPECT_THAT([] { Minibatch(Inputs{}, 0); }, Fails("Not implemented"));
  EXPECT_THAT([] { Minibatch(Inputs{}, 7); }, Fails("Not implemented"));
}

TEST(MinibatchConcatenation, HoldsWhatIsThereWhenAShapeSaysMore) {
  const Shape stale{(std::uint64_t{1} << 32) + 2};
  const Minibatch joined(Inputs{shared(counted(2, 2), stale), shared(counted(1, 2, 2))}, 0);
  EXPECT_EQ(joined.content(), counted(3, 2));
}

std::shared_ptr<FrameSequence> sequence(FrameSequence frames) {
  return std::make_shared<FrameSequence>(std::move(frames));
}

TEST(MinibatchOfASequence, HasOneFramePerElement) {
  const Matrix content = counted(3, 2);
  const Minibatch minibatch(sequence({Vector(content.col(0)), Vector(content.col(1))}));
  EXPECT_EQ(minibatch.content(), content);
  EXPECT_THAT(minibatch.shape(), ElementsAre(3));
  EXPECT_EQ(minibatch.size(), 2);
}

TEST(MinibatchOfASequence, NeedsAnElement) { EXPECT_THROW(Minibatch(sequence({})), std::out_of_range); }

TEST(MinibatchOfASequence, TakesVectorsOnly) {
  EXPECT_THROW(Minibatch(sequence({FrameValue()})), std::bad_variant_access);
  EXPECT_THROW(Minibatch(sequence({IntVector(IntVector::Zero(3))})), std::bad_variant_access);
  EXPECT_THROW(Minibatch(sequence({std::string("frame")})), std::bad_variant_access);
  EXPECT_THROW(Minibatch(sequence({Vector(Vector::Zero(3)), IntVector(IntVector::Zero(3))})), std::bad_variant_access);
}

TEST(MinibatchOfASequence, NeedsFramesOfOneLength) {
  for (const Eigen::Index other : {2, 4, 0}) {
    EXPECT_THAT(
        [&] {
          Minibatch(sequence({Vector(Vector::Zero(3)), Vector(Vector::Zero(other))}));
        },
        Fails("number of dimentions of input data does not accord"));
  }
}

TEST(FrameValue, ListsItsAlternativesInOrder) {
  EXPECT_EQ(FrameValue().index(), 0);
  EXPECT_EQ(FrameValue(Vector()).index(), 1);
  EXPECT_EQ(FrameValue(IntVector()).index(), 2);
  EXPECT_EQ(FrameValue(std::string()).index(), 3);
}

/// Same values as W x + b in double precision, up to a rounding per product and sum: 2^-24 of the sum of magnitudes for
/// each of the depth + 1 steps.
void expect_affine(const Matrix& weight, const Vector& bias, const Matrix& x, const Matrix& y) {
  ASSERT_EQ(y.rows(), weight.rows());
  ASSERT_EQ(y.cols(), x.cols());
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    for (Eigen::Index i = 0; i < weight.rows(); ++i) {
      double sum = bias(i), magnitude = std::abs(sum);
      for (Eigen::Index k = 0; k < x.rows(); ++k) {
        const double term = static_cast<double>(weight(i, k)) * static_cast<double>(x(k, t));
        sum += term;
        magnitude += std::abs(term);
      }
      ASSERT_NEAR(y(i, t), sum, magnitude * static_cast<double>(x.rows() + 1) * 0x1p-24) << i << ", " << t;
    }
  }
}

TEST(MinibatchLinearTransform, IsWeightTimesFrameAndBiasForBothOrders) {
  std::srand(1);
  // Below and above the size from which Eigen's blocked product is taken; one frame; no frame.
  for (const auto& [rows, depth, frames] : {std::array{2, 3, 4}, {1, 1, 1}, {33, 65, 17}, {40, 30, 1}, {3, 2, 0}}) {
    const Matrix weight = Matrix::Random(rows, depth);
    const Vector bias = Vector::Random(rows);
    const Minibatch x(Matrix::Random(depth, frames));
    Minibatch y;
    x.linear_xform(weight, bias, y);
    expect_affine(weight, bias, x.content(), y.content());
    EXPECT_THAT(y.shape(), ElementsAre(rows));

    Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> stored = weight;
    Minibatch z;
    x.linear_xform(RowMap(stored.data(), rows, depth), bias, z);
    expect_affine(weight, bias, x.content(), z.content());
    EXPECT_THAT(z.shape(), ElementsAre(rows));
    EXPECT_EQ(z.size(), frames);
  }
}

TEST(MinibatchLinearTransform, NeedsOneAxis) {
  const Minibatch map(counted(6, 2), {2, 3});
  Matrix weight = Matrix::Ones(2, 6);
  const Vector bias = Vector::Zero(2);
  Minibatch y;
  constexpr char kMessage[] = "Linear transformation size does not match the feature vector size.";
  EXPECT_THAT([&] { map.linear_xform(weight, bias, y); }, Fails(kMessage));
  EXPECT_THAT([&] { map.linear_xform(RowMap(weight.data(), 2, 6), bias, y); }, Fails(kMessage));
  EXPECT_EQ(y.content(), Matrix::Zero(1, 1));
}

TEST(Minibatch, DoesNotReshape) {
  Minibatch minibatch(counted(6, 2));
  EXPECT_THAT([&] { minibatch.reshape({2, 3}); }, Fails("Not implemented"));
  EXPECT_THAT(minibatch.shape(), ElementsAre(6));
}

TEST(MinibatchSlice, HoldsRowsFromStartToEnd) {
  const Minibatch minibatch(counted(5, 3));
  const MinibatchPtr part = minibatch.slice(0, 1, 3, 1);
  EXPECT_EQ(part->content(), counted(3, 3, 1));
  EXPECT_THAT(part->shape(), ElementsAre(3));
  EXPECT_EQ(part->size(), 3);
  EXPECT_EQ(minibatch.slice(0, 0, 4, 1)->content(), minibatch.content());
}

TEST(MinibatchSlice, OfOneRowOrOneFrameOrNone) {
  EXPECT_EQ(Minibatch(counted(5, 3)).slice(0, 4, 4, 1)->content(), counted(1, 3, 4));
  EXPECT_EQ(Minibatch(counted(5, 1)).slice(0, 1, 2, 1)->content(), counted(2, 1, 1));
  const MinibatchPtr empty = Minibatch(Matrix(5, 0)).slice(0, 1, 2, 1);
  EXPECT_EQ(empty->content().rows(), 2);
  EXPECT_EQ(empty->size(), 0);
}

TEST(MinibatchSlice, ChecksItsArguments) {
  const Minibatch minibatch(counted(5, 3));
  for (const std::uint64_t step : {std::uint64_t{0}, std::uint64_t{2}, kLargest}) {
    EXPECT_THAT([&] { minibatch.slice(9, 9, 0, step); }, Fails("Not implemented"));
  }
  EXPECT_THAT([&] { minibatch.slice(1, 9, 0, 1); }, Fails("Invalid axis is specified"));
  EXPECT_THAT([&] { minibatch.slice(kLargest, 0, 0, 1); }, Fails("Invalid axis is specified"));
  EXPECT_THAT([&] { minibatch.slice(0, 6, 0, 1); }, Fails("Invalid start is specified"));
  EXPECT_THAT([&] { minibatch.slice(0, 3, 2, 1); }, Fails("Invalid end is specified"));
  EXPECT_THAT([] { Minibatch(counted(1, 3), Shape{}).slice(0, 0, 0, 1); }, Fails("Invalid axis is specified"));
}

TEST(MinibatchSlice, OfSeveralAxesIsNotThere) {
  const Minibatch map(counted(6, 2), {2, 3});
  EXPECT_THAT([&] { map.slice(1, 0, 2, 1); }, Fails("Not implemented"));
  EXPECT_THAT([&] { map.slice(0, 3, 3, 1); }, Fails("Invalid start is specified"));
  EXPECT_THAT([&] { map.slice(1, 2, 1, 1); }, Fails("Invalid end is specified"));
}

TEST(MinibatchSlice, ReadsZeroWhereThereAreNoRows) {
  const Minibatch minibatch(counted(3, 2, 1));
  EXPECT_EQ(minibatch.slice(0, 3, 3, 1)->content(), Matrix::Zero(1, 2));
  Matrix expected = Matrix::Zero(4, 2);
  expected.topRows(2) = counted(2, 2, 2);
  EXPECT_EQ(minibatch.slice(0, 1, 4, 1)->content(), expected);
  // A shape of which only the low 32 bits are true lets a start pass that lies far behind the rows.
  const Minibatch stale(counted(3, 2, 1), {(std::uint64_t{1} << 32) + 3});
  EXPECT_EQ(stale.slice(0, 100, 101, 1)->content(), Matrix::Zero(2, 2));
}

TEST(MinibatchSlice, RefusesMoreRowsThanAShapeCanSayBeforeItTakesMemory) {
  const Minibatch minibatch(counted(3, 2));
  for (const std::uint64_t end : {std::uint64_t{1} << 31, std::uint64_t{1} << 40, kLargest - 1}) {
    EXPECT_THAT([&] { minibatch.slice(0, 0, end, 1); }, Fails(kStaleShape));
  }
  EXPECT_THAT([&] { minibatch.slice(0, 1, kLargest, 1); }, Fails(kStaleShape));
  EXPECT_THAT([&] { minibatch.slice(0, 0, kLargest, 1); }, Fails(kStaleShape));  // 2^64 rows, which wraps to none
}

TEST(MinibatchSlice, AddsNoMoreZerosThanItSays) {
  constexpr std::uint64_t kMost = 1u << 24;
  const Minibatch minibatch(counted(3, 2));
  EXPECT_EQ(minibatch.slice(0, 0, kMost / 2 + 2, 1)->content().rows(), kMost / 2 + 3);
  EXPECT_THAT([&] { minibatch.slice(0, 0, kMost / 2 + 3, 1); }, Fails(kStaleShape));
  EXPECT_EQ(Minibatch(Matrix(3, 0)).slice(0, 0, kMost + 3, 1)->size(), 0) << "no frames, no values";
}

}  // namespace
}  // namespace meridane
