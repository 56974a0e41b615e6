#include <limits>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

std::shared_ptr<NNLayer> slice(std::uint64_t axis, std::uint64_t start, std::uint64_t end, std::uint64_t step = 1) {
  return layer_of("Slice", Record("Slice").number(axis).number(start).number(end).number(step).bytes());
}

std::shared_ptr<NNLayer> along_time(std::int32_t start, std::int32_t end) {
  return layer_of("SliceAlongTime", Record("SliceAlongTime").number(start).number(end).bytes());
}

/// Value of row i and frame t: 10 i + t.
Matrix counted(Eigen::Index rows, Eigen::Index frames) {
  return Matrix::NullaryExpr(rows, frames,
                             [](Eigen::Index i, Eigen::Index t) { return static_cast<float>(10 * i + t); });
}

TEST(Slice, GivesTheRowsFromItsStartToItsEndIncluded) {
  const MinibatchPtr y = slice(0, 1, 3)->forward({minibatch(counted(6, 4))});
  EXPECT_EQ(y->content(), counted(6, 4).middleRows(1, 3));
  EXPECT_EQ(y->shape(), Minibatch::Shape{3});
  EXPECT_EQ(forward(*slice(0, 5, 5), counted(6, 1)), counted(6, 1).bottomRows(1));
  EXPECT_EQ(forward(*slice(0, 0, 5), counted(6, 2)), counted(6, 2));
}

TEST(Slice, SaysWhatSlicingAMinibatchSays) {
  const auto failure = [](const std::shared_ptr<NNLayer>& layer) {
    return failure_of<BaseRuntimeError>([&] { forward(*layer, counted(6, 2)); });
  };
  EXPECT_EQ(failure(slice(9, 9, 0, 2)), "Not implemented");
  EXPECT_EQ(failure(slice(1, 9, 0)), "Invalid axis is specified");
  EXPECT_EQ(failure(slice(0, 7, 0)), "Invalid start is specified");
  EXPECT_EQ(failure(slice(0, 3, 2)), "Invalid end is specified");
  const auto map = std::make_shared<Minibatch>(counted(6, 2), Minibatch::Shape{2, 3});
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { slice(1, 0, 1)->forward({map}); }), "Not implemented");
}

TEST(Slice, RefusesRowsThatTheFramesDoNotHave) {
  for (const auto& [start, end] : {std::pair{4u, 6u}, {6u, 6u}, {0u, 2147483646u}}) {
    EXPECT_EQ(failure_of<DimensionMismatchError>(
                  [start = start, end = end] { forward(*slice(0, start, end), counted(6, 2)); }),
              "Dimension mismatch in layer the layer");
  }
  for (const std::uint64_t start : {0u, 1u}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*slice(0, start, kMost), counted(6, 2)); }),
              "Specified dimensionlity does not match the size of the given minibatch content");
  }
}

TEST(Slice, TakesOneInput) {
  const auto layer = slice(0, 1, 2);
  const MinibatchPtr x = minibatch(counted(6, 2));
  EXPECT_EQ(failure_of([&] { layer->forward({x, x}); }), "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure_of([&] { layer->forward({nullptr}); }), "No data is being provided to layer the layer");
}

TEST(Slice, GivesNoFramesForNone) {
  EXPECT_EQ(slice(0, 1, 2)->forward({minibatch(Matrix(6, 0))})->shape(), Minibatch::Shape{2});
  // At the end of a stream a branch may have given none of its rows.
  for (const Eigen::Index rows : {0, 1, 2}) EXPECT_EQ(forward(*slice(0, 1, 2), Matrix(rows, 0)).cols(), 0);
}

TEST(Slice, HasDefaultsInADocument) {
  const Matrix first = counted(6, 3).topRows(1);
  EXPECT_EQ(forward(*layer_of_xml("Slice", "<layer type='Slice' id='a'/>"), counted(6, 3)), first);
  const auto layer = layer_of_xml("Slice", "<layer type='Slice' id='a' axis='0' start='2' end='4' step='1'/>");
  EXPECT_EQ(forward(*layer, counted(6, 3)), counted(6, 3).middleRows(2, 3));
}

TEST(SliceAlongTime, GivesTheFramesFromItsStartUpToItsEnd) {
  const Matrix x = counted(3, 7);
  EXPECT_EQ(forward(*along_time(2, 5), x), x.middleCols(2, 3));
  EXPECT_EQ(forward(*along_time(0, 1), x), x.leftCols(1));
  EXPECT_EQ(forward(*along_time(6, 7), x), x.rightCols(1));
}

TEST(SliceAlongTime, EndsWithTheLastFrameWhateverItsEnd) {
  const Matrix x = counted(3, 7);
  EXPECT_EQ(forward(*along_time(2, 8), x), x.rightCols(5));
  EXPECT_EQ(forward(*along_time(0, std::numeric_limits<std::int32_t>::max()), x), x);
}

TEST(SliceAlongTime, KeepsTheShapeOfTheFrames) {
  const auto map = std::make_shared<Minibatch>(counted(6, 4), Minibatch::Shape{2, 3});
  EXPECT_EQ(along_time(1, 3)->forward({map})->shape(), (Minibatch::Shape{2, 3}));
}

TEST(SliceAlongTime, FailsWhereNothingIsLeft) {
  const auto failure = [](std::int32_t start, std::int32_t end, Eigen::Index frames) {
    return failure_of<BaseRuntimeError>([&] { forward(*along_time(start, end), counted(3, frames)); });
  };
  const std::string input = "Start idx is larger or equal to the input size. Nothing can be output. ";
  const std::string end = "Start idx is larger or equal to end idx. Nothing can be output. ";
  EXPECT_EQ(failure(7, 9, 7), input + "7 vs 7");
  EXPECT_EQ(failure(9, 3, 7), input + "9 vs 7");
  EXPECT_EQ(failure(0, 3, 0), input + "0 vs 0");
  EXPECT_EQ(failure(3, 3, 7), end + "3 vs 3");
  EXPECT_EQ(failure(5, 2, 7), end + "5 vs 2");
  EXPECT_EQ(failure(6, 7, 7), "nothing failed");
}

TEST(SliceAlongTime, RefusesNegativeNumbers) {
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { along_time(-1, 3); }), "Incorrect \"start\" for \"SliceAlongTime\"");
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { along_time(0, -1); }), "Incorrect \"end\" for \"SliceAlongTime\"");
  for (const char* attribute : {"start", "end"}) {
    for (const char* value : {"-1", "x", "", "2147483648"}) {
      const std::string element =
          std::string("<layer type='SliceAlongTime' id='a' ") + attribute + "='" + value + "'/>";
      EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml("SliceAlongTime", element); }),
                std::string("Incorrect \"") + attribute + "\" for \"SliceAlongTime\"");
    }
  }
}

TEST(SliceAlongTime, TakesAllFramesByDefault) {
  EXPECT_EQ(forward(*layer_of_xml("SliceAlongTime", "<layer type='SliceAlongTime' id='a'/>"), counted(2, 5)),
            counted(2, 5));
  const auto layer = layer_of_xml("SliceAlongTime", "<layer type='SliceAlongTime' id='a' start='3'/>");
  EXPECT_EQ(forward(*layer, counted(2, 5)), counted(2, 5).rightCols(2));
}

}  // namespace
}  // namespace meridane::test
