// Convolutions along time in a network: the scorer that they ask for, a new stream, the end of a stream.

#include "../recurrent/bidirectional_reference.h"
#include "meridane/error.h"
#include "meridane/framescore/nn.h"
#include "meridane/framescore/scorer.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index kRows = 3;

struct NamedLayer {
  std::string id, type, record;
};

/// The layers one behind the other.
std::shared_ptr<NNParameter> chain_of(const std::vector<NamedLayer>& layers, std::uint64_t outputs) {
  Record file("MerNNpar");
  for (const std::uint64_t value : {std::uint64_t{kRows}, outputs, std::uint64_t{layers.size()}, layers.size() + 1}) {
    file.number(value);
  }
  std::string text = file.bytes();
  for (const NamedLayer& layer : layers) text += Record().text(layer.id).text(layer.type).bytes() + layer.record;
  std::string from = "_input";
  for (const NamedLayer& layer : layers) text += Record().text(std::exchange(from, layer.id)).text(layer.id).bytes();
  text += Record().text(from).text("_output").bytes();
  std::istringstream stream(text);
  auto network = std::make_shared<NNParameter>();
  network->load(stream, "application/meridane-bin");
  return network;
}

/// A causal layer of three taps.
std::string taps(const std::string& type, std::int32_t stride, Eigen::Index in, Eigen::Index out) {
  const bool is_transpose = type == "TransposeTDNN";
  Dice dice(1);
  Record record(type);
  for (const std::int32_t value : {0, 1, 3, 1, stride, 3}) record.number(value);
  const Matrix weight = dice.matrix(3 * (is_transpose ? in : out), is_transpose ? out : in);
  return record.matrix(weight).matrix(dice.matrix(out, 1)).bytes();
}

Matrix fed(NNScorer& scorer, const Matrix& x) {
  scorer.set_input(minibatch(x));
  return scorer.output();
}

std::shared_ptr<NNScorer> scorer_of(const NNParameter& network) {
  return std::dynamic_pointer_cast<NNScorer>(network.create_scorer());
}

TEST(AStride, AsksForTheScorerThatLetsTheNumberOfFramesChange) {
  const auto network = chain_of({{"halved", "TDNN", taps("TDNN", 2, kRows, 4)}}, 4);
  const auto scorer = scorer_of(*network);
  EXPECT_NE(dynamic_cast<NNScorerVariableLength*>(scorer.get()), nullptr);
  EXPECT_EQ(fed(*scorer, Matrix::Ones(kRows, 8)).cols(), 4);
  NNScorer other(*network);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { fed(other, Matrix::Ones(kRows, 8)); }),
            "Minibatch size was changed through forward-propagation in halved");
}

TEST(AReset, GivesBackTheZerosBeforeTheStream) {
  for (const std::string type : {"TDNN", "TransposeTDNN"}) {
    const auto network = chain_of({{"taps", type, taps(type, 1, kRows, 4)}}, 4);
    const auto scorer = scorer_of(*network);
    const Matrix x = Dice(2).matrix(kRows, 9);
    const Matrix first = fed(*scorer, x);
    EXPECT_NE(fed(*scorer, x).leftCols(1), first.leftCols(1)) << "it goes on";
    scorer->reset();
    EXPECT_EQ(fed(*scorer, x), first);
  }
}

/// One tap that copies, each frame `stride` frames behind the one before.
std::string spread(std::int32_t stride) {
  Record record("TransposeTDNN");
  for (const std::int32_t value : {1, 0, 0, 1, stride, 1}) record.number(value);
  return record.matrix(Matrix::Ones(kRows, 1)).matrix(Matrix::Zero(kRows, 1)).bytes();
}

TEST(FramesThatLayersMake, AreCountedAgainstThoseOfTheStream) {
  const Matrix x = Dice(4).matrix(kRows, 3);
  const auto most = chain_of({{"a", "TransposeTDNN", spread(64)}, {"b", "TransposeTDNN", spread(58)}}, kRows);
  EXPECT_EQ(fed(*scorer_of(*most), x).cols(), 3 * 64 * 58);  // of 1024 * (3 + 8)
  const auto more = chain_of({{"a", "TransposeTDNN", spread(64)}, {"b", "TransposeTDNN", spread(59)}}, kRows);
  const auto scorer = scorer_of(*more);
  const std::string refusal = "Layer b makes too many frames: 11328, where 3 have gone into the network";
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { fed(*scorer, x); }), refusal);
  EXPECT_EQ(fed(*scorer, x).cols(), 3 * 64 * 59) << "the stream has six frames now";
  scorer->reset();
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { fed(*scorer, x); }), refusal);
}

/// A layer holds frames back until the flush, and two convolutions are behind it.
TEST(TheFramesOfAFlush, GoThroughConvolutionsAsAllOthers) {
  constexpr Eigen::Index N = 4;
  const BothDirections directions(5, N, kRows);
  const std::vector<NamedLayer> layers = {
      {"held", "LCBLSTM", bidirectional_record("LCBLSTM", Form::plain, directions, {3, 2, 1, 0})},
      {"down", "TDNN", taps("TDNN", 1, 2 * N, 5)},
      {"up", "TransposeTDNN", taps("TransposeTDNN", 2, 5, 2)}};
  const auto network = chain_of(layers, 2);
  const Matrix x = Dice(3).matrix(kRows, 38);
  Matrix expected = x;
  for (const NamedLayer& each : layers) expected = forward(*layer_of(each.type, each.record), expected);
  for (const Eigen::Index chunk : {1, 2, 5}) {
    const auto scorer = scorer_of(*network);
    Matrix y(2, 0);
    const auto append = [&y](const Matrix& part) {
      const Matrix before = y;
      y.resize(2, before.cols() + part.cols());
      y << before, part;
    };
    for (Eigen::Index t = 0; t < x.cols(); t += chunk) {
      append(fed(*scorer, x.middleCols(t, std::min(chunk, x.cols() - t))));
    }
    EXPECT_LT(y.cols(), expected.cols()) << "some are waiting";
    scorer->set_input(std::shared_ptr<FrameSequence>());
    append(scorer->output());
    EXPECT_EQ(y, expected) << chunk;
  }
}

}  // namespace
}  // namespace meridane::test
