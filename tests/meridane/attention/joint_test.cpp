#include "attention_samples.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

Matrix forward(const NNLayer& layer, const Matrix& x, const Matrix& g) {
  return layer.forward({minibatch(x), minibatch(g)})->content();
}

Matrix step(const NNLayer& layer, const Matrix& x, const Matrix& g, const std::shared_ptr<NNLayerState>& state) {
  return layer.forward({minibatch(x), minibatch(g)}, state)->content();
}

std::shared_ptr<NNLayer> joint(const JointParameters& p) { return layer_of("Joint", p.record(false)); }
std::shared_ptr<NNLayer> joint_hat(const JointParameters& p) { return layer_of("JointHAT", p.record(true)); }

TEST(Joint, ProjectsTheSumOfBothStreams) {
  for (const Eigen::Index hidden : {1, 6, 37}) {
    const JointParameters p(1, hidden);
    for (const Eigen::Index frames : {1, 2, 9}) {
      Dice dice(2);
      const Matrix x = dice.matrix(5, frames), g = dice.matrix(3, frames);
      EXPECT_LT(distance(forward(*joint(p), x, g), p.joint(x, g)), kRounding) << hidden << ", " << frames;
    }
  }
}

TEST(Joint, LetsASingleFrameGoWithEachOfTheOthers) {
  const JointParameters p(3);
  Dice dice(4);
  const Matrix x = dice.matrix(5, 7), g = dice.matrix(3, 7);
  const Matrix first_g = g.col(0).replicate(1, 7), first_x = x.col(0).replicate(1, 7);
  EXPECT_LT(distance(forward(*joint(p), x, g.leftCols(1)), p.joint(x, first_g)), kRounding);
  EXPECT_LT(distance(forward(*joint(p), x.leftCols(1), g), p.joint(first_x, g)), kRounding);
}

TEST(Joint, GivesNoFramesForNone) {
  const auto layer = joint(JointParameters(5));
  EXPECT_EQ(forward(*layer, Matrix(0, 0), Matrix(0, 0)).cols(), 0);
  EXPECT_EQ(forward(*layer, Matrix(5, 0), Matrix::Ones(3, 1)).cols(), 0);
  EXPECT_EQ(forward(*layer, Matrix::Ones(5, 1), Matrix(3, 0)).cols(), 0);
  EXPECT_EQ(forward(*layer, Matrix(5, 0), Matrix(3, 0)).rows(), 4);
}

TEST(Joint, RefusesFramesThatAreNoPairs) {
  const auto layer = joint(JointParameters(6));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Ones(5, 4), Matrix::Ones(3, 2)); }),
            "Column size unmatch between 0-th and 1-th tensor. 2 vs 4");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Ones(5, 4), Matrix(3, 0)); }),
            "Column size unmatch between 0-th and 1-th tensor. 0 vs 4");
}

TEST(Joint, ChecksItsInputs) {
  for (const auto& layer : {joint(JointParameters(7)), joint_hat(JointParameters(7))}) {
    const MinibatchPtr x = minibatch(Matrix::Ones(5, 2)), g = minibatch(Matrix::Ones(3, 2));
    const std::string none = "No data is being provided to layer the layer";
    EXPECT_EQ(failure_of([&] { layer->forward(LayerInputs()); }), none);
    EXPECT_EQ(failure_of([&] { layer->forward({x}); }), none);
    EXPECT_EQ(failure_of([&] { layer->forward({x, nullptr}); }), none);
    EXPECT_EQ(failure_of([&] { layer->forward({x, g, g}); }), "Layer the layer takes two input streams");
    EXPECT_EQ(failure_of<DimensionMismatchError>([&] {
                layer->forward({g, g});
              }),
              "Dimension mismatch in layer Attention::Linear");
    EXPECT_EQ(failure_of<DimensionMismatchError>([&] {
                layer->forward({x, x});
              }),
              "Dimension mismatch in layer Attention::Linear");
  }
}

TEST(JointHAT, GivesTheLogarithmsOfBlankAndLabels) {
  for (const Eigen::Index hidden : {1, 6, 37}) {
    const JointParameters p(8, hidden);
    for (const Eigen::Index frames : {1, 2, 9}) {
      Dice dice(9);
      const Matrix x = dice.matrix(5, frames), g = dice.matrix(3, frames);
      const Exact expected = p.probabilities(x, g).array().log();
      EXPECT_LT(distance(forward(*joint_hat(p), x, g), expected), 2 * kRounding) << hidden << ", " << frames;
    }
  }
}

TEST(JointHAT, GivesADistribution) {
  const JointParameters p(10);
  Dice dice(11);
  const Matrix y = forward(*joint_hat(p), dice.matrix(5, 20), dice.matrix(3, 20));
  const Eigen::RowVectorXd sums = y.cast<double>().array().exp().matrix().colwise().sum();
  for (const double sum : sums) EXPECT_NEAR(sum, 1, 1e-6);
}

// With a blank this sure, the probabilities themselves would be 0 or 1.
TEST(JointHAT, KeepsTheLogarithmOfWhatIsImprobable) {
  JointParameters p(12);
  p.blank_bias(0, 0) = 200;
  p.blank.setZero();
  const Matrix y = forward(*joint_hat(p), Matrix::Zero(5, 1), Matrix::Zero(3, 1));
  EXPECT_NEAR(y(0, 0), 0, 1e-30);
  const double labels = std::log(y.bottomRows(4).cast<double>().array().exp().sum());
  EXPECT_NEAR(labels, -200, 1e-4);
  p.blank_bias(0, 0) = -3e38f;
  p.out_bias *= 1e38f;
  EXPECT_TRUE(forward(*joint_hat(p), Matrix::Zero(5, 1), Matrix::Zero(3, 1)).allFinite());
}

TEST(JointHAT, GoesOnWithTheDecodersNewestFrame) {
  const JointParameters p(13);
  const auto layer = joint_hat(p);
  Dice dice(14);
  const Matrix x = dice.matrix(5, 6), g = dice.matrix(3, 2), none(3, 0);
  const auto state = layer->create_state();
  const auto expected = [&](const Matrix& frames, const Matrix& of_decoder) {
    return Exact(p.probabilities(frames, of_decoder.replicate(1, frames.cols())).array().log());
  };
  step(*layer, x.leftCols(2), g, state);
  EXPECT_LT(distance(step(*layer, x.middleCols(2, 3), none, state), expected(x.middleCols(2, 3), g.col(1))),
            2 * kRounding);
  const auto clone = state->clone();
  EXPECT_EQ(step(*layer, Matrix(5, 0), g.leftCols(1), state).cols(), 0);  // a label ahead of its frames
  EXPECT_LT(distance(step(*layer, x.rightCols(1), none, state), expected(x.rightCols(1), g.col(0))), 2 * kRounding);
  EXPECT_LT(distance(step(*layer, x.rightCols(1), none, clone), expected(x.rightCols(1), g.col(1))), 2 * kRounding);
}

TEST(JointHAT, NeedsAFrameOfTheDecoderFirst) {
  const auto layer = joint_hat(JointParameters(15));
  const std::string none = "No data is being provided to layer the layer";
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Ones(5, 1), Matrix(3, 0)); }), none);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Ones(5, 3), Matrix(0, 0)); }), none);
  EXPECT_EQ(forward(*layer, Matrix(0, 0), Matrix(0, 0)).cols(), 0);
  EXPECT_EQ(forward(*layer, Matrix(5, 0), Matrix(3, 0)).rows(), 5);
}

TEST(JointHAT, LeavesItsStateWhereACallFails) {
  const JointParameters p(16);
  const auto layer = joint_hat(p);
  const auto state = layer->create_state();
  const Matrix x = Dice(17).matrix(5, 3);
  step(*layer, x, Matrix::Zero(3, 1), state);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { step(*layer, x, Matrix::Ones(3, 2), state); }),
            "Column size unmatch between 0-th and 1-th tensor. 2 vs 3");
  EXPECT_EQ(step(*layer, x, Matrix(3, 0), state), forward(*layer, x, Matrix::Zero(3, 1)));
}

TEST(JointHAT, TakesAStateOfItsOwnOnly) {
  const auto layer = joint_hat(JointParameters(18)), other = joint_hat(JointParameters(18, 7));
  const auto state = other->create_state();
  step(*other, Matrix::Ones(5, 1), Matrix::Ones(3, 1), state);
  for (const auto& foreign : {state, std::shared_ptr<NNLayerState>()}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { step(*layer, Matrix::Ones(5, 1), Matrix::Ones(3, 1), foreign); }),
              "No state for layer the layer");
  }
}

}  // namespace
}  // namespace meridane::test
