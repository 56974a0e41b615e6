// RelPosEnc: the encodings of distances beside the frames that they belong to.

#include <gtest/gtest.h>

#include <limits>

#include "attention_reference.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr double kRounding = 0x1p-24;  // half a unit in the last place of a number below 1

std::string record(int cache_frame, int reserve) {
  return Record("RelPosEnc").number<std::int32_t>(cache_frame).number<std::int32_t>(reserve).bytes();
}

std::shared_ptr<NNLayer> layer(int cache_frame, int reserve = 0) {
  return layer_of("RelPosEnc", record(cache_frame, reserve));
}

/// The frames of a result, and the encodings that they carry: distances 0, 1, 2 ... and 0, -1, -2 ...
struct Unpacked {
  explicit Unpacked(const Minibatch& y) {
    const auto d = static_cast<Eigen::Index>(y.shape().at(0)), share = static_cast<Eigen::Index>(y.shape().at(1) / 2);
    frames = y.content().topRows(d);
    ahead = behind = Matrix(d, 0);
    for (Eigen::Index t = 0; t < y.content().cols(); ++t) {
      for (Eigen::Index k = 0; k < share; ++k) {
        append(ahead, y.content().block((1 + k) * d, t, d, 1));
        append(behind, y.content().block((1 + share + k) * d, t, d, 1));
      }
    }
  }
  static void append(Matrix& matrix, const Matrix& column) {
    matrix.conservativeResize(Eigen::NoChange, matrix.cols() + 1);
    matrix.rightCols(1) = column;
  }
  Matrix frames, ahead, behind;
};

void expect_encodings(const Unpacked& y, Eigen::Index least) {
  EXPECT_GE(y.ahead.cols(), least);
  for (Eigen::Index n = 0; n < y.ahead.cols(); ++n) {
    EXPECT_LE(distance(y.ahead.col(n), encoding(y.ahead.rows(), n)), kRounding) << n;
    EXPECT_LE(distance(y.behind.col(n), encoding(y.ahead.rows(), -n)), kRounding) << -n;
  }
}

TEST(RelPosEnc, GivesItsFramesAndTheEncodingsOfAllTheirDistances) {
  for (const Eigen::Index d : {1, 2, 5, 8}) {
    for (const Eigen::Index T : {1, 2, 7, 50}) {
      const Matrix x = Dice(1).matrix(d, T);
      const Unpacked y(*layer(0)->forward({minibatch(x)}));
      EXPECT_EQ(y.frames, x);
      expect_encodings(y, T);
    }
  }
}

TEST(RelPosEnc, ReachesToTheCachedFramesFromTheSecondCallOn) {
  for (const int reserve : {0, 1, 16}) {
    const auto enc = layer(12, reserve);
    const auto state = enc->create_state();
    const Matrix x = Dice(2).matrix(6, 5);
    EXPECT_EQ(Unpacked(*enc->forward({minibatch(x)}, state)).ahead.cols(), 5);
    for (const Eigen::Index T : {5, 1, 2, 5}) {
      const MinibatchPtr y = enc->forward({minibatch(x.leftCols(T))}, state);
      EXPECT_EQ(y->content().cols(), T);  // the number of frames stays
      EXPECT_EQ(Unpacked(*y).frames, x.leftCols(T));
      expect_encodings(Unpacked(*y), T + 12);
    }
  }
}

TEST(RelPosEnc, GivesTheSameWhateverTheStepOfItsTable) {
  const Matrix x = Dice(3).matrix(6, 9);
  const auto plain = layer(20), reserving = layer(20, 64);
  const auto a = plain->create_state(), b = reserving->create_state();
  for (const Eigen::Index T : {3, 3, 9, 1}) {  // the plain one's table grows twice, the other's once
    EXPECT_EQ(plain->forward({minibatch(x.leftCols(T))}, a)->content(),
              reserving->forward({minibatch(x.leftCols(T))}, b)->content());
  }
}

TEST(RelPosEnc, TakesFramesOfAnotherSizeWithTheSameState) {
  const auto enc = layer(2);
  const auto state = enc->create_state();
  for (const Eigen::Index d : {4, 6, 4}) {
    const Matrix x = Dice(4).matrix(d, 3);
    expect_encodings(Unpacked(*enc->forward({minibatch(x)}, state)), 3);
  }
}

TEST(RelPosEnc, DoesNotCountACallWithoutFrames) {
  const auto enc = layer(10);
  const auto state = enc->create_state();
  for (const Eigen::Index rows : {0, 4}) {
    EXPECT_EQ(enc->forward({minibatch(Matrix(rows, 0))}, state)->content().cols(), 0);
  }
  const Matrix x = Dice(5).matrix(4, 5);
  EXPECT_EQ(Unpacked(*enc->forward({minibatch(x)}, state)).ahead.cols(), 5);
}

TEST(RelPosEnc, ClonesItsState) {
  const auto enc = layer(10);
  const Matrix x = Dice(6).matrix(4, 5);
  const auto state = enc->create_state();
  const auto fresh = state->clone();
  enc->forward({minibatch(x)}, state);
  const auto started = state->clone();
  const Matrix later = enc->forward({minibatch(x)}, state)->content();
  EXPECT_EQ(enc->forward({minibatch(x)}, started)->content(), later);
  EXPECT_EQ(enc->forward({minibatch(x)}, fresh)->content(), forward(*enc, x));
  EXPECT_NE(later.rows(), forward(*enc, x).rows());
}

TEST(RelPosEnc, WritesIntoMemoryOfAnOldResultAndNotIntoItsInput) {
  const Matrix x = Dice(7).matrix(4, 5);
  const MinibatchPtr input = minibatch(x);
  LayerInputs inputs = {input};
  inputs.set_spare(minibatch(Matrix::Constant(99, 2, std::nanf(""))));
  EXPECT_EQ(layer(3)->forward(inputs)->content(), forward(*layer(3), x));
  EXPECT_EQ(input->content(), x);
}

TEST(RelPosEnc, KeepsItsBytesFromBinaryToXmlToBinary) {
  const auto loaded = layer(7, 32);
  EXPECT_EQ(binary_of(*loaded), record(7, 32));
  const std::string document = xml_of(*loaded);
  EXPECT_EQ(binary_of(*layer_of_xml("RelPosEnc", document)), record(7, 32));
  EXPECT_EQ(xml_of(*layer_of_xml("RelPosEnc", document)), document);
  EXPECT_EQ(binary_of(*layer_of_xml("RelPosEnc", "<layer type='RelPosEnc' id='a'/>")), record(0, 0));
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST(RelPosEnc, SurvivesAnyByteChanged) {
  const Matrix x = Dice(8).matrix(2, 3);
  int loads = 0;
  for (std::size_t at = 0; at < record(1, 2).size(); ++at) {
    for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
      std::string changed = record(1, 2);
      changed[at] = static_cast<char>(value);
      try {
        const auto loaded = layer_of("RelPosEnc", changed);
        ++loads;
        const auto state = loaded->create_state();
        for (int call = 0; call < 2; ++call) EXPECT_EQ(loaded->forward({minibatch(x)}, state)->content().cols(), 3);
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_GT(loads, 0);
}

TEST(RelPosEnc, RefusesNumbersThatNoLayerHas) {
  constexpr int kMost = std::numeric_limits<std::int32_t>::max(), kLeast = std::numeric_limits<std::int32_t>::min();
  for (const int value : {-1, kLeast, kMost}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer(value); }), "Incorrect \"cache_frame\" for \"RelPosEnc\"");
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer(0, value); }), "Incorrect \"reserve\" for \"RelPosEnc\"");
  }
  const auto wide = layer(1 << 20);
  const auto state = wide->create_state();
  wide->forward({minibatch(Matrix::Zero(64, 1))}, state);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { wide->forward({minibatch(Matrix::Zero(64, 1))}, state); }),
            "Layer the layer would need a table of 1048577 positions for frames of 64 values");
}

TEST(RelPosEnc, RefusesWhatIsNotItsOwn) {
  EXPECT_EQ(failure_of<InvalidFormat>([] { layer_of("RelPosEnc", "RelPosEnd" + std::string(8, '\0')); }),
            "invalid format (expected \"RelPosEnc Layer\")");
  for (std::size_t length = 0; length < record(1, 2).size(); ++length) {
    EXPECT_THROW(layer_of("RelPosEnc", record(1, 2).substr(0, length)), BaseRuntimeError) << length;
  }
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { layer_of_xml("RelPosEnc", "<layer type='Other' id='a'/>"); }),
            "RelPositionalEncodingLayer::load_xml() has been called for a wrong layer type - indicating an "
            "implementation error");
  const MinibatchPtr x = minibatch(Matrix::Zero(4, 3));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer(0)->forward({x}, nullptr); }), "No state for layer the layer");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] {
              layer(0)->forward({x, x});
            }),
            "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure_of<BaseRuntimeError>([] { layer(0)->forward(LayerInputs()); }),
            "No data is being provided to layer the layer");
  EXPECT_FALSE(layer(0)->is_variable_length());
}

}  // namespace
}  // namespace meridane::test
