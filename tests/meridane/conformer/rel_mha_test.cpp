// RelMHA against attention in double precision, a pair of frames at a time.

#include <gtest/gtest.h>

#include "conformer_samples.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr Eigen::Index D = 12;
// Scores are below 100, and the roundings of their terms, 2^-24 each, go into the weights as they are.
constexpr double kRounding = 1e-5;

std::shared_ptr<NNLayer> loaded(const AttentionSample& sample, const std::string& type = "RelMHA") {
  return layer_of(type, sample.record(type));
}

AttentionSample sample(int heads = 3, unsigned seed = 1) {
  Dice dice(seed);
  return {dice, D, heads};
}

/// The blocks of the first input form; what is behind the encodings isn't looked at.
Matrix packed(const Matrix& Q, const Matrix& K, const Matrix& V) {
  const Eigen::Index d = Q.rows(), C = Q.cols();
  Matrix x = Matrix::Constant(2 * d, 3 * C, std::nanf(""));
  x.topRows(d) << Q, K, V;
  for (Eigen::Index m = 0; m < 2 * C - 1; ++m) x.col(m).tail(d) = encoding(d, m - (C - 1)).cast<float>();
  return x;
}

Matrix step(const NNLayer& layer, const Matrix& x) { return layer.forward({minibatch(x)}, nullptr)->content(); }

TEST(RelMHA, IsAttentionWithTheDistanceFromQueryToKey) {
  for (const int heads : {1, 3, 4, 12}) {
    const AttentionSample p = sample(heads);
    const auto layer = loaded(p);
    for (const Eigen::Index C : {1, 2, 3, 17, 47, 48, 49, 100}) {
      Dice dice(2);
      const Matrix Q = dice.matrix(D, C), K = dice.matrix(D, C), V = dice.matrix(D, C);
      const Exact expected = p.attention(Q.cast<double>(), K.cast<double>(), V.cast<double>(), ahead, sees_all);
      EXPECT_LT(distance(step(*layer, packed(Q, K, V)), expected), kRounding) << heads << " heads, " << C << " frames";
    }
  }
}

// Nothing but the sine of frequency 1 makes the scores: the greatest of sin(-3) to sin(3) is sin(2).
TEST(RelMHA, LooksAheadToKeysBehindItsQuery) {
  constexpr Eigen::Index kFrames = 4;
  AttentionSample p = sample(1);
  for (Matrix* m : {&p.q, &p.k, &p.q_bias, &p.k_bias, &p.v_bias, &p.out_bias, &p.bias_u, &p.bias_v}) m->setZero();
  for (Matrix* m : {&p.v, &p.out, &p.pos}) m->setIdentity();
  p.bias_v(0) = 1000;
  const Matrix V = Matrix::NullaryExpr(D, kFrames, [](Eigen::Index, Eigen::Index t) { return static_cast<float>(t); });
  const Matrix y = step(*loaded(p), packed(V, V, V));
  EXPECT_FLOAT_EQ(y(0, 0), 2);
  EXPECT_FLOAT_EQ(y(0, 1), 3);
}

TEST(RelMHA, AttendsToAllFramesOfWhatRelPosEncGives) {
  const AttentionSample p = sample();
  const auto layer = loaded(p);
  for (const int cache_frame : {0, 9}) {
    const auto enc =
        layer_of("RelPosEnc", Record("RelPosEnc").number<std::int32_t>(cache_frame).number<std::int32_t>(0).bytes());
    const auto state = enc->create_state();
    for (const Eigen::Index T : {1, 5, 20, 33}) {
      const Matrix x = Dice(3).matrix(D, T);
      const MinibatchPtr y = layer->forward({enc->forward({minibatch(x)}, state)}, nullptr);
      const Exact exact = x.cast<double>();
      EXPECT_LT(distance(y->content(), p.attention(exact, exact, exact, ahead, sees_all)), kRounding);
      EXPECT_EQ(y->shape(), Minibatch::Shape{D});
    }
  }
}

// Up to products of 1e72, which no float holds.
TEST(RelMHA, StaysFiniteForScoresBeyondTheRangeOfTheExponential) {
  const Matrix x = Dice(4).matrix(D, 60);
  const Exact exact = x.cast<double>();
  for (const float scale : {1e10f, 1e18f, 1e19f, 1e35f}) {
    AttentionSample p = sample();
    for (Matrix* m : {&p.q, &p.k}) *m *= scale;
    EXPECT_LT(distance(step(*loaded(p), packed(x, x, x)), p.attention(exact, exact, exact, ahead, sees_all)), kRounding)
        << scale;
    p.pos *= scale;
    EXPECT_LT(distance(step(*loaded(p), packed(x, x, x)), p.attention(exact, exact, exact, ahead, sees_all)), kRounding)
        << scale;
  }
}

// Enough rows for the products to pack their weights, whatever the width of a vector.
TEST(RelMHA, IsAttentionForWiderFrames) {
  constexpr Eigen::Index d = 40;
  Dice dice(8);
  const AttentionSample p(dice, d, 5);
  for (const Eigen::Index C : {1, 5, 49}) {
    const Matrix Q = dice.matrix(d, C), K = dice.matrix(d, C), V = dice.matrix(d, C);
    const Exact expected = p.attention(Q.cast<double>(), K.cast<double>(), V.cast<double>(), ahead, sees_all);
    EXPECT_LT(distance(step(*loaded(p), packed(Q, K, V)), expected), 5 * kRounding) << C;
    const MinibatchPtr positioned = positions_for(0)->forward({minibatch(Q)});
    const Exact self = p.attention(Q.cast<double>(), Q.cast<double>(), Q.cast<double>(), ahead, sees_all);
    EXPECT_LT(distance(loaded(p)->forward({positioned}, nullptr)->content(), self), 5 * kRounding) << C;
  }
}

TEST(RelMHA, TakesItsBlocksInAnyShape) {
  const auto layer = loaded(sample());
  const Matrix x = packed(Dice(5).matrix(D, 6), Dice(6).matrix(D, 6), Dice(7).matrix(D, 6));
  const Matrix plain = step(*layer, x);
  for (const Minibatch::Shape& shape : {Minibatch::Shape{8, 3}, {3, 8}, {D, 2}, {2, 4, 3}}) {
    const MinibatchPtr y = layer->forward({std::make_shared<Minibatch>(x, shape)}, nullptr);
    EXPECT_EQ(y->content(), plain);
    EXPECT_EQ(y->shape(), Minibatch::Shape{D});
  }
}

TEST(RelMHA, OfHalfPrecisionComputesWhatThePlainOneDoes) {
  const Matrix x = packed(Dice(5).matrix(D, 6), Dice(6).matrix(D, 6), Dice(7).matrix(D, 6));
  EXPECT_EQ(step(*loaded(sample(), "CompressedRelMHA"), x), step(*loaded(sample()), x));
}

TEST(RelMHA, RunsAsAPartOfAStreamOnly) {
  const auto layer = loaded(sample());
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Zero(2 * D, 3)); }), "NOT IMPLEMENTED");
  EXPECT_EQ(layer->create_state(), nullptr);
  EXPECT_TRUE(layer->is_variable_length());
}

TEST(RelMHA, ChecksItsInput) {
  const auto layer = loaded(sample());
  const MinibatchPtr x = minibatch(Matrix::Zero(2 * D, 3));
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] {
              layer->forward({x, x}, nullptr);
            }),
            "Layer the layer does not accept multiple input streams");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer->forward({nullptr}, nullptr); }),
            "No data is being provided to layer the layer");
  const auto expect_mismatch = [&](const MinibatchPtr& input) {
    EXPECT_EQ(failure_of<DimensionMismatchError>([&] { layer->forward({input}, nullptr); }),
              "Dimension mismatch in layer the layer");
  };
  for (const Eigen::Index rows : {Eigen::Index{0}, D, 2 * D - 1, 2 * D + 1}) {
    expect_mismatch(minibatch(Matrix::Zero(rows, 3)));
  }
  for (const Eigen::Index columns : {1, 2, 4}) expect_mismatch(minibatch(Matrix::Zero(2 * D, columns)));
  // Frames with encodings, but of another size.
  expect_mismatch(std::make_shared<Minibatch>(Matrix(Matrix::Zero(3 * (D + 1), 4)), Minibatch::Shape{D + 1, 3}));
  // Two axes, but no encodings.
  expect_mismatch(std::make_shared<Minibatch>(Matrix(Matrix::Zero(D, 3)), Minibatch::Shape{D, 1}));
  for (const Eigen::Index rows : {Eigen::Index{0}, 2 * D}) EXPECT_EQ(step(*layer, Matrix(rows, 0)).cols(), 0);
}

TEST(RelMHA, WritesIntoMemoryOfAnOldResultAndNotIntoItsInput) {
  const auto layer = loaded(sample());
  const Matrix x = packed(Dice(5).matrix(D, 6), Dice(6).matrix(D, 6), Dice(7).matrix(D, 6));
  const Matrix fresh = step(*layer, x);
  const MinibatchPtr input = minibatch(x);
  LayerInputs inputs = {input};
  inputs.set_spare(minibatch(Matrix::Constant(7, 3, std::nanf(""))));
  EXPECT_EQ(layer->forward(inputs, nullptr)->content(), fresh);
  EXPECT_EQ(input->content().topRows(D), x.topRows(D));
}

class RelMHARecords : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Types, RelMHARecords, testing::Values("RelMHA", "CompressedRelMHA"));

TEST_P(RelMHARecords, KeepTheirBytesFromBinaryToXmlToBinary) {
  const std::string record = sample().record(GetParam());
  const auto layer = layer_of(GetParam(), record);
  EXPECT_EQ(binary_of(*layer), record);
  const std::string document = xml_of(*layer);
  EXPECT_EQ(binary_of(*layer_of_xml(GetParam(), document)), record);
  EXPECT_EQ(xml_of(*layer_of_xml(GetParam(), document)), document);
}

TEST_P(RelMHARecords, AreRefusedCutOrOfAnotherLayer) {
  std::string record = sample().record(GetParam());
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THROW(layer_of(GetParam(), record.substr(0, length)), BaseRuntimeError) << length;
  }
  ++record[0];
  EXPECT_EQ(failure_of<InvalidFormat>([&] { layer_of(GetParam(), record); }),
            "invalid format (expected \"" + GetParam() + " Layer\")");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { layer_of_xml(GetParam(), "<layer type='Other' id='a'/>"); }),
            GetParam() +
                "Layer::load_xml() has been called for a wrong layer type - indicating an implementation "
                "error");
}

// Whatever stands in a record, it's refused by the engine's own exception or makes a layer that runs.
TEST_P(RelMHARecords, SurviveAnyByteChanged) {
  constexpr Eigen::Index d = 4;
  Dice dice(9);
  const std::string record = AttentionSample(dice, d, 2).record(GetParam());
  const Matrix x = packed(dice.matrix(d, 3), dice.matrix(d, 3), dice.matrix(d, 3));
  int loads = 0;
  for (std::size_t at = 0; at < record.size(); ++at) {
    for (const int value : {0x00, 0x01, 0x40, 0x7f, 0x80, 0xff}) {
      std::string changed = record;
      changed[at] = static_cast<char>(value);
      try {
        const auto layer = layer_of(GetParam(), changed);
        ++loads;
        EXPECT_EQ(step(*layer, x).cols(), 3);
      } catch (const BaseRuntimeError&) {
      }
    }
  }
  EXPECT_GT(loads, 0);
}

TEST_P(RelMHARecords, NameTheElementThatIsMissing) {
  std::string present;
  for (const char* child :
       {"linear_q_weight", "linear_q_bias", "linear_k_weight", "linear_k_bias", "linear_v_weight", "linear_v_bias",
        "linear_out_weight", "linear_out_bias", "linear_pos_weight", "pos_bias_u", "pos_bias_v"}) {
    const std::string document = "<layer type='" + GetParam() + "' id='a' nhead='1'>" + present + "</layer>";
    EXPECT_EQ(failure_of<MissingTagError>([&] { layer_of_xml(GetParam(), document); }),
              "\"<" + std::string(child) + ">\" not found in a layer of type \"" + GetParam() + "\" ");
    present += "<" + std::string(child) + ">1</" + child + ">";
  }
  EXPECT_NO_THROW(
      layer_of_xml(GetParam(), "<layer type='" + GetParam() + "' id='a' nhead='1'>" + present + "</layer>"));
  EXPECT_EQ(failure_of<BaseRuntimeError>(
                [&] { layer_of_xml(GetParam(), "<layer type='" + GetParam() + "' id='a'>" + present + "</layer>"); }),
            "Incorrect \"nhead\" for \"" + GetParam() + "\"");
}

TEST_P(RelMHARecords, AreRefusedWhereSizesContradictEachOther) {
  const auto refusal = [](const AttentionSample& p) {
    return failure_of<BaseRuntimeError>([&] { loaded(p, GetParam()); });
  };
  for (const int heads : {0, -1, 5, 24, 1 << 30}) {
    EXPECT_EQ(refusal(sample(heads)), "Incorrect \"nhead\" for \"" + GetParam() + "\"") << heads;
  }
  const std::string format = "invalid format (expected \"" + GetParam() + " Layer\")";
  using Member = Matrix AttentionSample::*;
  for (const Member weight :
       {&AttentionSample::q, &AttentionSample::k, &AttentionSample::v, &AttentionSample::out, &AttentionSample::pos}) {
    for (const auto& [rows, cols] : {std::pair{D + 1, D}, {D, D + 1}, {Eigen::Index{1}, Eigen::Index{1}}}) {
      AttentionSample p = sample();
      p.*weight = Matrix::Ones(rows, cols);
      EXPECT_EQ(refusal(p), format);
    }
  }
  for (const Member bias : {&AttentionSample::q_bias, &AttentionSample::k_bias, &AttentionSample::v_bias,
                            &AttentionSample::out_bias, &AttentionSample::bias_u, &AttentionSample::bias_v}) {
    AttentionSample p = sample();
    p.*bias = Matrix::Ones(D - 1, 1);
    EXPECT_EQ(refusal(p), format);
  }
}

TEST_P(RelMHARecords, CountTheirNumbersAndProducts) {
  const LayerSize size = loaded(sample(), GetParam())->size();
  EXPECT_EQ(size.parameters, 5u * D * D + 6u * D);
  EXPECT_EQ(size.multiply_adds, 5u * D * D);
}

}  // namespace
}  // namespace meridane::test
