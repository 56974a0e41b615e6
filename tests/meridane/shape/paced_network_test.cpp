// A network in which a branch that looks ahead meets one that doesn't.

#include <gtest/gtest.h>

#include "../support/network_bytes.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index kTaps = 5;

/// Beside each frame x(t) of one value, sum over k of (k + 1) x(t + k).
std::shared_ptr<NNParameter> look_ahead_beside_its_input() {
  std::string tdnn = "TDNN";
  for (const std::int32_t number : {0, 0, 0, 1, 1, static_cast<std::int32_t>(kTaps)}) tdnn += bytes_of(number);
  tdnn += matrix_bytes(kTaps, 1, {1, 2, 3, 4, 5}) + matrix_bytes(1, 1, {0});
  return network_of(
      network_bytes(1, 2,
                    {layer_bytes("ahead", "TDNN", tdnn),
                     layer_bytes("both", "KeepPaceConcat", "KeepPaceConcat" + bytes_of<std::uint64_t>(0))},
                    {{"_input", "ahead"}, {"_input", "both"}, {"ahead", "both"}, {"both", "_output"}}));
}

TEST(ANetworkOfTwoPaces, JoinsWhatBelongsTogetherInAnyChunks) {
  const auto network = look_ahead_beside_its_input();
  Matrix x(1, 120);
  for (Eigen::Index t = 0; t < x.cols(); ++t) x(0, t) = static_cast<float>(t * t % 31);
  Matrix expected(2, x.cols() - kTaps + 1);
  for (Eigen::Index t = 0; t < expected.cols(); ++t) {
    expected(0, t) = x(0, t);
    expected(1, t) = x.middleCols(t, kTaps).row(0).dot(Eigen::RowVectorXf{{1, 2, 3, 4, 5}});
  }
  for (const Eigen::Index chunk : {5, 7, 50, 120}) {
    const auto scorer = network->create_scorer();
    Matrix all(2, 0);
    for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
      const Eigen::Index frames = std::min(chunk, x.cols() - t);
      auto& step = dynamic_cast<NNScorer&>(*scorer);
      step.set_input(std::make_shared<Minibatch>(Matrix(x.middleCols(t, frames))));
      const Matrix& y = step.output_minibatch().content();
      all.conservativeResize(2, all.cols() + y.cols());
      all.rightCols(y.cols()) = y;
    }
    EXPECT_EQ(all, expected) << chunk;
  }
}

}  // namespace
}  // namespace meridane::test
