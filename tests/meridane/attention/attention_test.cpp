#include "attention_samples.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

const Eigen::Index kFrames[] = {1, 2, 7, 48, 50, 100};

Matrix step(const NNLayer& layer, const Matrix& x, const std::shared_ptr<NNLayerState>& state) {
  return layer.forward({minibatch(x)}, state)->content();
}

TEST(Attention, WeighsValuesByScaledProductsOfQueriesAndKeys) {
  for (const Eigen::Index n : {1, 5, 16, 33}) {
    const AttentionParameters p(1, n, 7);
    const auto layer = layer_of("Attention", p.record(false, static_cast<std::int32_t>(n)));
    for (const Eigen::Index frames : kFrames) {
      const Matrix x = Dice(2).matrix(n, frames);
      EXPECT_LT(distance(forward(*layer, x), p(x)), kRounding * static_cast<double>(n)) << n << ", " << frames;
    }
  }
}

TEST(Attention, OfOneFrameIsItsValueProjected) {
  AttentionParameters p(3);
  p.out_weight = Matrix::Identity(5, 5);
  p.out_bias = Matrix::Zero(5, 1);
  const Matrix x = Dice(4).matrix(5, 1);
  const Matrix value = p.in_weight.bottomRows(5) * x + p.in_bias.bottomRows(5);
  EXPECT_LT(distance(forward(*layer_of("Attention", p.record()), x), value.cast<double>()), kRounding);
}

TEST(Attention, DoesNotCareForTheOrderOfKeys) {
  const AttentionParameters p(5);
  const auto layer = layer_of("Attention", p.record());
  const Matrix x = Dice(6).matrix(5, 9), reversed = x.rowwise().reverse();
  EXPECT_LT(distance(forward(*layer, reversed), forward(*layer, x).rowwise().reverse().cast<double>()), kRounding);
}

TEST(Attention, WeighsEquallyWhereAllScoresAreNothing) {
  AttentionParameters p(33);
  for (const float scale : {1e-30f, 1e-44f, 0.0f}) {
    p.in_weight.topRows(10) = scale * AttentionParameters(33).in_weight.topRows(10);
    p.in_bias.topRows(10).setZero();
    const Matrix x = Dice(34).matrix(5, 9);
    EXPECT_LT(distance(forward(*layer_of("Attention", p.record()), x), p(x)), kRounding) << scale;
  }
}

TEST(Attention, IsTheSameForLargeQueriesAndSmallKeys) {
  AttentionParameters p(35);
  const Matrix x = Dice(36).matrix(5, 9);
  const Exact expected = p(x);
  for (const int exponent : {20, 100, -100}) {
    AttentionParameters scaled(35);
    for (Matrix* each : {&scaled.in_weight, &scaled.in_bias}) {
      each->topRows(5) *= std::ldexp(1.0f, exponent);
      each->middleRows(5, 5) *= std::ldexp(1.0f, -exponent);
    }
    EXPECT_LT(distance(forward(*layer_of("Attention", scaled.record()), x), expected), 5 * kRounding) << exponent;
  }
}

// The products of queries and keys are as large as 1e70 here; the best key takes all.
TEST(Attention, OverflowsForNoFiniteInput) {
  AttentionParameters p(7);
  for (const float scale : {1e3f, 1e10f, 1e35f}) {
    const Matrix y = forward(*layer_of("Attention", p.record()), scale * Dice(8).matrix(5, 9));
    EXPECT_TRUE(y.allFinite()) << scale;
    EXPECT_GT(y.cwiseAbs().maxCoeff(), scale / 100);
  }
}

TEST(Attention, LooksAtTheFramesOfACallOnly) {
  const auto layer = layer_of("Attention", AttentionParameters(9).record());
  EXPECT_EQ(layer->create_state(), nullptr);
  const Matrix x = Dice(10).matrix(5, 8);
  EXPECT_EQ(forward(*layer, x), forward(*layer, x));
  EXPECT_NE(forward(*layer, x.leftCols(4)), forward(*layer, x).leftCols(4));
}

TEST(SimpleAttention, IsTheMeanWeightedByTheScoresOfItsContext) {
  for (const Eigen::Index n : {1, 5, 33}) {
    const SimpleParameters p(11, n, 4);
    const auto layer = layer_of("SimpleAttention", p.record());
    for (const Eigen::Index frames : kFrames) {
      const Matrix x = Dice(12).matrix(n, frames);
      EXPECT_LT(distance(forward(*layer, x), p(x)), kRounding) << n << ", " << frames;
    }
  }
}

TEST(SimpleAttention, GivesTheMeanOfTheStreamSoFar) {
  const SimpleParameters p(13);
  const auto layer = layer_of("SimpleAttention", p.record());
  const Matrix x = Dice(14).matrix(5, 60);
  for (const Eigen::Index chunk : {1, 2, 3, 5, 7, 50, 60}) {
    const auto state = layer->create_state();
    for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
      const Eigen::Index frames = std::min(chunk, x.cols() - t);
      EXPECT_LT(distance(step(*layer, x.middleCols(t, frames), state), p(x.leftCols(t + frames))), kRounding) << chunk;
    }
  }
}

TEST(SimpleAttention, BeginsANewStreamWithoutAState) {
  const SimpleParameters p(15);
  const auto layer = layer_of("SimpleAttention", p.record());
  const Matrix first = Dice(16).matrix(5, 4), second = Dice(17).matrix(5, 4);
  step(*layer, first, nullptr);
  EXPECT_LT(distance(step(*layer, second, nullptr), p(second)), kRounding);
  EXPECT_LT(distance(forward(*layer, second), p(second)), kRounding);
}

TEST(SimpleAttention, HasStatesWhoseClonesGoTheirOwnWay) {
  const SimpleParameters p(18);
  const auto layer = layer_of("SimpleAttention", p.record());
  const Matrix x = Dice(19).matrix(5, 9);
  const auto state = layer->create_state();
  step(*layer, x.leftCols(3), state);
  const auto clone = state->clone();
  step(*layer, 100 * x.rightCols(6), state);
  EXPECT_LT(distance(step(*layer, x.rightCols(6), clone), p(x)), kRounding);
}

TEST(SimpleAttention, GivesTheSameMeanForACallWithoutFrames) {
  const SimpleParameters p(20);
  const auto layer = layer_of("SimpleAttention", p.record());
  const auto state = layer->create_state();
  EXPECT_EQ(step(*layer, Matrix(5, 0), state).cols(), 0);
  EXPECT_EQ(step(*layer, Matrix(0, 0), state).cols(), 0);
  const Matrix y = step(*layer, Dice(21).matrix(5, 4), state);
  EXPECT_EQ(step(*layer, Matrix(5, 0), state), y);
  EXPECT_EQ(step(*layer, Matrix(0, 0), state), y);
  EXPECT_EQ(forward(*layer, Matrix(5, 0)).cols(), 0);
}

// exp(s) is beyond double precision for these scores, at either end.
TEST(SimpleAttention, OverflowsForNoFiniteInput) {
  SimpleParameters p(22, 2, 2);
  p.weight = 10 * Matrix::Identity(2, 2);
  p.bias.setZero();
  p.context = Matrix::Constant(2, 1, 3e38f);
  const auto layer = layer_of("SimpleAttention", p.record());
  const Matrix low = Matrix::Constant(2, 1, -1), high = Matrix::Constant(2, 1, 1);
  const auto state = layer->create_state();
  EXPECT_EQ(step(*layer, low, state), low);
  EXPECT_EQ(step(*layer, high, state), high);  // takes all
  EXPECT_EQ(step(*layer, low, state), high);
  for (int i = 0; i < 100; ++i) step(*layer, Matrix::Constant(2, 10, 3e37f), state);
  const Matrix y = step(*layer, Matrix(2, 0), state);
  EXPECT_TRUE(y.allFinite());
  EXPECT_NEAR(y(0, 0), 3e37 * 1000 / 1001, 3e37 * 1e-5);
}

// 2^16 frames, each with 2^-25 of the weight of the first one: added to 1, a float would lose all of them.
TEST(SimpleAttention, StillCountsLateFramesOfALongStream) {
  SimpleParameters p(23, 2, 1);
  p.weight << 1000, 0;
  p.bias.setZero();
  p.context << static_cast<float>(25 * std::log(2.0));
  const auto layer = layer_of("SimpleAttention", p.record());
  const auto state = layer->create_state();
  Matrix first(2, 1), late = Matrix::Zero(2, 1 << 16);
  first << 1, 0;
  late.row(1).setOnes();
  step(*layer, first, state);
  EXPECT_NEAR(step(*layer, late, state)(1, 0), 1.0 / 513, 1e-5 / 513);
}

TEST(SimpleAttention, TakesAStateOfItsOwnOnly) {
  const auto layer = layer_of("SimpleAttention", SimpleParameters(24).record());
  const auto other = layer_of("SimpleAttention", SimpleParameters(24, 7).record());
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { step(*layer, Matrix::Ones(5, 1), other->create_state()); }),
            "No state for layer the layer");
}

TEST(AdditiveSelfAttention, IsTheMeanWeightedByAdditiveScores) {
  for (const Eigen::Index n : {1, 5, 33}) {
    AdditiveParameters p(25, n, 4);
    for (const float scaling : {0.75f, -2.0f, 0.0f}) {
      p.scaling = scaling;
      const auto layer = layer_of("AdditiveSelfAttention", p.record());
      for (const Eigen::Index frames : kFrames) {
        const Matrix x = Dice(26).matrix(n, frames);
        EXPECT_LT(distance(forward(*layer, x), p(x)), kRounding) << n << ", " << frames;
      }
    }
  }
}

TEST(AdditiveSelfAttention, IsThePlainMeanWithoutScaling) {
  AdditiveParameters p(27);
  p.scaling = 0;
  const Matrix x = Dice(28).matrix(5, 8);
  EXPECT_LT(distance(forward(*layer_of("AdditiveSelfAttention", p.record()), x), x.cast<double>().rowwise().mean()),
            kRounding);
}

TEST(AdditiveSelfAttention, OverflowsForNoFiniteInput) {
  AdditiveParameters p(29);
  p.scaling = 3e38f;
  p.gvec_weight *= 1e30f;
  for (const float scale : {1e3f, 1e30f}) {
    EXPECT_TRUE(forward(*layer_of("AdditiveSelfAttention", p.record()), scale * Dice(30).matrix(5, 9)).allFinite());
  }
}

TEST(AdditiveSelfAttention, GivesNoFrameForNone) {
  const auto layer = layer_of("AdditiveSelfAttention", AdditiveParameters(31).record());
  EXPECT_EQ(layer->create_state(), nullptr);
  EXPECT_EQ(forward(*layer, Matrix(5, 0)).cols(), 0);
  EXPECT_EQ(forward(*layer, Matrix(0, 0)).cols(), 0);
}

TEST(Attentions, CheckTheirInput) {
  for (const auto& [type, record] : {std::pair{"Attention", AttentionParameters(32).record()},
                                     {"SimpleAttention", SimpleParameters(32).record()},
                                     {"AdditiveSelfAttention", AdditiveParameters(32).record()}}) {
    const auto layer = layer_of(type, record);
    for (const Eigen::Index rows : {4, 6}) {
      EXPECT_EQ(failure_of<DimensionMismatchError>([&] { forward(*layer, Matrix::Ones(rows, 2)); }),
                "Dimension mismatch in layer Attention::Linear");
    }
    EXPECT_EQ(failure_of([&] {
                layer->forward({nullptr, nullptr});
              }),
              "Layer the layer does not accept multiple input streams");
    EXPECT_EQ(failure_of([&] { layer->forward({nullptr}); }), "No data is being provided to layer the layer");
    EXPECT_EQ(failure_of([&] { layer->forward(LayerInputs()); }), "No data is being provided to layer the layer");
    EXPECT_EQ(layer->forward({minibatch(Matrix(0, 0))})->size(), 0u);
  }
}

}  // namespace
}  // namespace meridane::test
