#include <numeric>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

std::shared_ptr<NNLayer> keep_pace_concat() {
  return layer_of("KeepPaceConcat", Record("KeepPaceConcat").number<std::uint64_t>(0).bytes());
}
std::shared_ptr<NNLayer> keep_pace_merge(const std::string& mode = "add") {
  return layer_of("KeepPaceMerge", Record("KeepPaceMerge").text(mode).bytes());
}

/// Value of row i and frame t of stream s, different in each place.
Matrix stream(int s, Eigen::Index rows, Eigen::Index frames) {
  return Matrix::NullaryExpr(
      rows, frames, [=](Eigen::Index i, Eigen::Index t) { return static_cast<float>(10000 * s + 1000 * i + t); });
}

Matrix step(const NNLayer& layer, const std::shared_ptr<NNLayerState>& state, const std::vector<Matrix>& streams) {
  LayerInputs inputs;
  for (const Matrix& each : streams) inputs.add(minibatch(each));
  return layer.forward(inputs, state)->content();
}

void append(Matrix& all, const Matrix& more) {
  all.conservativeResize(more.rows(), all.cols() + more.cols());
  all.rightCols(more.cols()) = more;
}

/// What comes of streams of this many frames a call each, over and over.
Matrix paced(const NNLayer& layer, const std::vector<Matrix>& streams, const std::vector<Eigen::Index>& pace,
             int calls) {
  const auto state = layer.create_state();
  std::vector<Eigen::Index> at(streams.size());
  Matrix all;
  for (int call = 0; call < calls; ++call) {
    std::vector<Matrix> chunks;
    for (std::size_t s = 0; s < streams.size(); ++s) {
      const Eigen::Index frames =
          std::min(pace[(s + static_cast<std::size_t>(call)) % pace.size()], streams[s].cols() - at[s]);
      chunks.emplace_back(streams[s].middleCols(at[s], frames));
      at[s] += frames;
    }
    append(all, step(layer, state, chunks));
  }
  return all;
}

TEST(KeepPace, JoinsTheFramesThatAllStreamsHave) {
  const auto layer = keep_pace_concat();
  const auto state = layer->create_state();
  const Matrix a = stream(1, 2, 9), b = stream(2, 1, 9);
  Matrix whole(3, 9);
  whole << a, b;
  EXPECT_EQ(step(*layer, state, {a.leftCols(4), b.leftCols(1)}), whole.leftCols(1));
  EXPECT_EQ(step(*layer, state, {a.middleCols(4, 1), b.middleCols(1, 3)}), whole.middleCols(1, 3));
  EXPECT_EQ(step(*layer, state, {Matrix(2, 0), b.middleCols(4, 5)}), whole.middleCols(4, 1));
  EXPECT_EQ(step(*layer, state, {a.middleCols(5, 4), Matrix(1, 0)}), whole.rightCols(4));
}

TEST(KeepPace, GivesTheSameWhateverThePaceOfItsStreams) {
  const std::vector<Matrix> streams = {stream(1, 3, 101), stream(2, 3, 101), stream(3, 3, 101)};
  Matrix stacked(9, 101);
  stacked << streams[0], streams[1], streams[2];
  const Matrix sum = streams[0] + streams[1] + streams[2];
  for (const std::vector<Eigen::Index>& pace : std::vector<std::vector<Eigen::Index>>{
           {1}, {2}, {3}, {5}, {7}, {50}, {101}, {0, 1, 2}, {5, 0}, {101, 0, 0}, {7, 1, 3, 0, 2}}) {
    const int calls = 101 * static_cast<int>(pace.size());
    EXPECT_EQ(paced(*keep_pace_concat(), streams, pace, calls), stacked) << pace[0];
    EXPECT_EQ(paced(*keep_pace_merge(), streams, pace, calls), sum) << pace[0];
  }
}

TEST(KeepPace, GivesNoFramesWhileOneStreamHasNone) {
  const auto layer = keep_pace_merge("product");
  const auto state = layer->create_state();
  const Matrix a = Matrix::Constant(2, 4, 3), b = Matrix::Constant(2, 4, 5);
  const Matrix none = step(*layer, state, {a, Matrix(2, 0)});
  EXPECT_EQ(none.rows(), 2);
  EXPECT_EQ(none.cols(), 0);
  EXPECT_EQ(step(*layer, state, {Matrix(2, 0), b}), Matrix::Constant(2, 4, 15));  // nothing was lost
}

TEST(KeepPace, KeepsWhatALongerStreamHasLeft) {
  const auto layer = keep_pace_merge();
  const auto state = layer->create_state();
  step(*layer, state, {stream(1, 1, 5), stream(2, 1, 3)});
  LayerInputs last = {minibatch(Matrix(1, 0)), minibatch(Matrix(1, 0))};
  last.set_last(true);
  EXPECT_EQ(layer->forward(last, state)->size(), 0u);
  const Matrix later = Matrix::Zero(1, 2);
  EXPECT_EQ(step(*layer, state, {Matrix(1, 0), later}), stream(1, 1, 5).rightCols(2));
}

// A network's input is 0 x 0 where a stream ends; so is what comes of it in some branches.
TEST(KeepPace, TakesTheEmptyMinibatchOfAStreamsEnd) {
  const auto layer = keep_pace_concat();
  const auto state = layer->create_state();
  const Matrix a = stream(1, 2, 3), b = stream(2, 1, 3);
  step(*layer, state, {a.leftCols(2), b.leftCols(1)});
  EXPECT_EQ(step(*layer, state, {Matrix(0, 0), b.middleCols(1, 1)}).cols(), 1);
  EXPECT_EQ(step(*layer, state, {Matrix(0, 0), Matrix(0, 0)}).cols(), 0);
  Matrix last(3, 1);
  last << a.col(2), b.col(2);
  EXPECT_EQ(step(*layer, state, {a.rightCols(1), b.rightCols(1)}), last);
}

TEST(KeepPace, KeepsItsRowsWhereNothingIsLeft) {
  const auto layer = keep_pace_concat();
  const auto state = layer->create_state();
  step(*layer, state, {stream(1, 2, 3), stream(2, 1, 3)});
  EXPECT_EQ(step(*layer, state, {Matrix(0, 0), Matrix(1, 0)}).rows(), 3);
  EXPECT_EQ(step(*layer, state, {stream(1, 2, 3), Matrix(0, 0)}).rows(), 3);
}

TEST(KeepPace, HasStatesWhoseClonesGoTheirOwnWay) {
  const auto layer = keep_pace_merge();
  const auto state = layer->create_state();
  const Matrix a = stream(1, 2, 6), zero = Matrix::Zero(2, 6);
  step(*layer, state, {a, zero.leftCols(1)});
  const auto clone = state->clone();
  EXPECT_EQ(step(*layer, state, {Matrix(2, 0), zero.leftCols(2)}), a.middleCols(1, 2));
  EXPECT_EQ(step(*layer, state, {Matrix(2, 0), zero.leftCols(3)}), a.middleCols(3, 3));
  EXPECT_EQ(step(*layer, clone, {Matrix(2, 0), zero.leftCols(5)}), a.middleCols(1, 5));
  const auto fresh = layer->create_state();
  EXPECT_EQ(step(*layer, fresh, {a.leftCols(1), zero.leftCols(1)}), a.leftCols(1));
}

TEST(KeepPace, KeepsTheShapeOfItsFrames) {
  const auto layer = keep_pace_merge();
  const auto state = layer->create_state();
  const auto map = [](Eigen::Index frames) {
    return std::make_shared<Minibatch>(Matrix(Matrix::Ones(6, frames)), Minibatch::Shape{2, 3});
  };
  EXPECT_EQ(layer->forward({map(3), map(1)}, state)->shape(), (Minibatch::Shape{2, 3}));
  EXPECT_EQ(layer->forward({map(0), map(2)}, state)->shape(), (Minibatch::Shape{2, 3}));
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] {
              layer->forward({minibatch(Matrix::Ones(6, 1)), map(1)}, state);
            }),
            "Dimension mismatch in layer the layer");
}

TEST(KeepPace, SaysWhatThePlainLayersSay) {
  const auto failure = [](const NNLayer& layer, const std::vector<Matrix>& streams) {
    return failure_of<BaseRuntimeError>([&] { step(layer, layer.create_state(), streams); });
  };
  EXPECT_EQ(failure(*keep_pace_merge(), {Matrix::Ones(2, 3), Matrix::Ones(4, 1)}),
            "Row size unmatch between 0-th and 1-th tensor. 4 vs 2");
  EXPECT_EQ(failure(*keep_pace_merge(), {}), "No data is being provided to layer the layer");
  EXPECT_EQ(failure(*keep_pace_concat(), {}), "No data is being provided to layer the layer");
  const auto second = layer_of("KeepPaceConcat", Record("KeepPaceConcat").number<std::uint64_t>(1).bytes());
  EXPECT_EQ(failure(*second, {Matrix::Ones(2, 3)}), "Invalid axis is specified");
}

TEST(KeepPace, LosesNothingInACallThatFails) {
  const auto layer = keep_pace_concat();
  const auto state = layer->create_state();
  const Matrix a = stream(1, 2, 4), b = stream(2, 1, 4);
  step(*layer, state, {a.leftCols(3), b.leftCols(1)});
  const std::string text = "Dimension mismatch in layer the layer";
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { step(*layer, state, {a, a}); }), text);
  EXPECT_EQ(failure_of<DimensionMismatchError>([&] { step(*layer, state, {a}); }), text);
  EXPECT_EQ(failure_of([&] {
              layer->forward({minibatch(a), nullptr}, state);
            }),
            "No data is being provided to layer the layer");
  Matrix rest(3, 3);
  rest << a.rightCols(3), b.rightCols(3);
  EXPECT_EQ(step(*layer, state, {a.rightCols(1), b.rightCols(3)}), rest);
}

TEST(KeepPace, WorksWithItsOwnStateOnly) {
  const auto layer = keep_pace_merge();
  const MinibatchPtr x = minibatch(Matrix::Ones(2, 3));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward({x, x}); }), "NOT IMPLEMENTED");
  const auto foreign = layer_of("TDNN", Record("TDNN")
                                            .number<std::int32_t>(0)
                                            .number<std::int32_t>(0)
                                            .number<std::int32_t>(0)
                                            .number<std::int32_t>(1)
                                            .number<std::int32_t>(1)
                                            .number<std::int32_t>(1)
                                            .matrix(Matrix::Ones(2, 2))
                                            .matrix(Matrix::Ones(2, 1))
                                            .bytes())
                           ->create_state();
  ASSERT_NE(foreign, nullptr);
  for (const auto& state : {foreign, std::shared_ptr<NNLayerState>()}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward({x, x}, state); }), "No state for layer the layer");
  }
}

TEST(KeepPace, WritesIntoTheMemoryOfAnOldResult) {
  const auto layer = keep_pace_merge();
  const auto state = layer->create_state();
  const MinibatchPtr old = minibatch(Matrix::Zero(2, 3));
  LayerInputs inputs = {minibatch(Matrix::Ones(2, 3)), minibatch(Matrix::Ones(2, 3))};
  inputs.set_spare(old);
  EXPECT_EQ(layer->forward(inputs, state), old);
  EXPECT_EQ(old->content(), Matrix::Constant(2, 3, 2));
}

}  // namespace
}  // namespace meridane::test
