#include <cmath>
#include <limits>

#include "dense_reference.h"
#include "layer_samples.h"
#include "lib/framescore/nnlayer/embedding.h"
#include "lib/framescore/nnlayer/prod.h"
#include "lib/framescore/nnlayer/quantized_fullyconnected.h"
#include "lib/framescore/nnlayer/shared_memory.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

static_assert(std::is_base_of_v<NNLayer, BiasLayer>);
static_assert(std::is_base_of_v<BiasLayer, ProdLayer> && std::is_base_of_v<BiasLayer, FullyConnectedLayer>);
static_assert(std::is_base_of_v<FullyConnectedLayer, CompressedFullyConnectedLayer> &&
              std::is_base_of_v<FullyConnectedLayer, QuantizedFullyConnectedLayer> &&
              std::is_base_of_v<FullyConnectedLayer, SharedMemory<FullyConnectedLayer>> &&
              std::is_base_of_v<EmbeddingLayer, CompressedEmbeddingLayer>);

TEST(Bias, IsAddedToEachFrame) {
  for (const DenseSize size : kDenseSizes) {
    Dice dice(1);
    const Matrix bias = dice.matrix(size.rows, 1, 1.1f);
    const Matrix x = dice.matrix(size.rows, size.frames, 0.7f);
    const Matrix y = forward(*layer_of("Bias", Record("Bias").matrix(bias).bytes()), x);
    for (Eigen::Index t = 0; t < size.frames; ++t) {
      for (Eigen::Index i = 0; i < size.rows; ++i) EXPECT_EQ(y(i, t), x(i, t) + bias(i));  // rounded once
    }
  }
}

TEST(Prod, MultipliesEachFrameElementByElement) {
  for (const DenseSize size : kDenseSizes) {
    Dice dice(2);
    const Matrix scale = dice.matrix(size.rows, 1, 1.1f);
    const Matrix x = dice.matrix(size.rows, size.frames, 0.7f);
    const Matrix y = forward(*layer_of("Prod", Record("Prod").matrix(scale).bytes()), x);
    for (Eigen::Index t = 0; t < size.frames; ++t) {
      for (Eigen::Index i = 0; i < size.rows; ++i) EXPECT_EQ(y(i, t), x(i, t) * scale(i));  // rounded once
    }
  }
}

TEST(Bias, CarriesTheShapeOver) {
  const auto input = std::make_shared<Minibatch>(Matrix::Ones(6, 2), Minibatch::Shape{3, 2});
  for (const std::string type : {"Bias", "Prod"}) {
    const auto layer = layer_of(type, Record(type).matrix(Matrix::Ones(6, 1)).bytes());
    EXPECT_EQ(layer->forward({input})->shape(), (Minibatch::Shape{3, 2})) << type;
  }
}

TEST(FullyConnected, IsBiasPlusWeightTimesX) {
  for (const DenseSize size : kDenseSizes) {
    Dice dice(3);
    const Matrix weight = dice.matrix(size.rows, size.cols, 1.1f), bias = dice.matrix(size.rows, 1, 0.3f);
    const Matrix x = dice.matrix(size.cols, size.frames, 0.7f);
    const auto layer = layer_of("FullyConnected", Record("FullyConnected").matrix(weight).matrix(bias).bytes());
    expect_product(forward(*layer, x), weight, bias, x);
  }
}

TEST(CompressedFullyConnected, ComputesWithTheFloatsOfItsHalves) {
  for (const DenseSize size : kDenseSizes) {
    Dice dice(4);
    const Matrix weight = dice.matrix(size.rows, size.cols), bias = dice.matrix(size.rows, 1);
    const Matrix x = dice.matrix(size.cols, size.frames, 0.7f);
    const std::string type = "CompressedFullyConnected";
    const auto compressed = layer_of(type, Record(type).half_matrix(weight).half_matrix(bias).bytes());
    const auto plain = layer_of("FullyConnected", Record("FullyConnected").matrix(weight).matrix(bias).bytes());
    EXPECT_EQ(forward(*compressed, x), forward(*plain, x));
  }
}

TEST(CompressedFullyConnected, TakesItsFloatsToHalvesWhenItIsWritten) {
  const auto layer = layer_of_xml(
      "CompressedFullyConnected",
      "<layer type='CompressedFullyConnected' id='a'><weight>1.00048828125 0.1</weight><bias>-2</bias></layer>");
  const Matrix y = forward(*layer, (Matrix(2, 1) << 1, 0).finished());
  EXPECT_EQ(y(0), 1.00048828125f - 2);  // a float until then
  // Half precision has 10 bits behind the leading one: 1 + 2^-11 lies between 1 and 1 + 2^-10, ties go to the even
  // neighbour; 0.1 = 1.6 x 2^-4 becomes 1638 / 1024 x 2^-4.
  Matrix weight(1, 2);
  weight << 1, 1638.0f / 1024 / 16;
  EXPECT_EQ(binary_of(*layer),
            Record("CompressedFullyConnected").half_matrix(weight).half_matrix(Matrix::Constant(1, 1, -2)).bytes());
}

TEST(FullyConnected, TakesARowForABias) {
  Dice dice(5);
  const Matrix weight = dice.matrix(4, 3), bias = dice.matrix(4, 1), x = dice.matrix(3, 2);
  const Matrix row = bias.transpose();
  Matrix rows(2, 4);  // row 0 counts
  rows << row, dice.matrix(1, 4);
  for (const Matrix& stored : {row, rows}) {
    const auto layer = layer_of("FullyConnected", Record("FullyConnected").matrix(weight).matrix(stored).bytes());
    expect_product(forward(*layer, x), weight, bias, x);
    EXPECT_EQ(binary_of(*layer), Record("FullyConnected").matrix(weight).matrix(bias).bytes());
  }
}

TEST(FullyConnected, TakesARowForABiasFromItsDocumentToo) {
  for (const std::string type : {"FullyConnected", "CompressedFullyConnected"}) {
    for (const char* bias : {"1 2", "1\n2", "1 2\n3 4"}) {
      const auto layer = layer_of_xml(
          type, "<layer type='" + type + "' id='a'><weight>1 0\n0 1</weight><bias>" + bias + "</bias></layer>");
      EXPECT_EQ(forward(*layer, Matrix::Zero(2, 1)), (Matrix(2, 1) << 1, 2).finished()) << type << ", " << bias;
    }
  }
}

TEST(FullyConnected, RefusesABiasOfAnotherSize) {
  for (const Eigen::Index rows : {1, 3, 5}) {
    const Record record = Record("FullyConnected").matrix(Matrix::Ones(4, 3)).matrix(Matrix::Ones(rows, 1));
    for (const auto load : {layer_of<NNLayerBuilder>, layer_of<QuantizedNNLayerBuilder>}) {
      EXPECT_EQ(failure_of<InvalidFormat>([&] { load("FullyConnected", record.bytes()); }),
                "invalid format (expected \"FullyConnected Layer\")");
    }
  }
}

TEST(FullyConnected, RefusesAMatrixWithoutValues) {
  for (const Matrix& weight : {Matrix(0, 3), Matrix(3, 0), Matrix(0, 0)}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>(
                  [&] { layer_of("FullyConnected", Record("FullyConnected").matrix(weight).bytes()); }),
              "Failed to read matrix binary");
  }
}

TEST(FullyConnected, RefusesAMatrixThatItsRecordCanNotHold) {
  for (const std::int64_t rows : {std::int64_t{1} << 20, std::int64_t{1} << 40, std::int64_t{1} << 62}) {
    for (const std::int64_t cols : {std::int64_t{1}, std::int64_t{1} << 31}) {
      for (const char* type : {"FullyConnected", "CompressedFullyConnected"}) {
        const std::string record = Record(type).number(rows).number(cols).real(1).bytes();
        EXPECT_THROW(layer_of(type, record), BaseRuntimeError);
      }
    }
  }
}

TEST(FullyConnected, ReadsAMatrixLineByLineFromItsDocument) {
  const auto layer = layer_of_xml("FullyConnected",
                                  "<layer type='FullyConnected' id='a'><weight>\n1 2 3\n4 5 6\n</weight>"
                                  "<bias>10\n20</bias></layer>");
  EXPECT_EQ(forward(*layer, (Matrix(3, 1) << 1, 0, 2).finished()), (Matrix(2, 1) << 17, 36).finished());
}

TEST(FullyConnected, GivesTheNewBiasThatItIsSet) {
  Dice dice(6);
  const Matrix weight = dice.matrix(6, 5), x = dice.matrix(5, 4);
  const Vector bias = dice.matrix(6, 1);
  for (const LayerSample& sample : layer_samples()) {
    if (!sample.type.ends_with("FullyConnected")) continue;
    const auto layer = sample.load(sample.record);
    layer->set_bias(Vector::Zero(6));
    const Matrix product = forward(*layer, x);
    layer->set_bias(bias);
    const Matrix y = forward(*layer, x);
    for (Eigen::Index k = 0; k < y.size(); ++k) {  // one rounding of the sum each, and those of the product's sums
      EXPECT_NEAR(y(k), product(k) + bias(k % 6), 6 * kRounding * 6) << sample.type;
    }
  }
}

TEST(Bias, IsReplacedByOneOfItsSize) {
  for (const std::string type : {"Bias", "Prod", "CompressedProd"}) {
    const bool half = type.starts_with("Compressed");
    const auto layer = layer_of(type, Record(type).matrix(Matrix::Ones(3, 1), half).bytes());
    const Vector bias = Dice(7).matrix(3, 1);
    layer->set_bias(bias);
    EXPECT_EQ(binary_of(*layer), Record(type).matrix(bias, half).bytes());
    for (const Eigen::Index rows : {0, 2, 4}) {
      EXPECT_EQ(failure_of<DimensionMismatchError>([&] { layer->set_bias(Vector::Ones(rows)); }),
                "Dimension mismatch in layer the layer");
    }
  }
}

/// Round to nearest, ties away from zero, as the 8-bit form has it.
float rounded(float x) {
  float r = std::nearbyint(std::fabs(x));
  if (std::fabs(x) - r == 0.5f) ++r;
  return std::copysign(r, x);
}

/// The 8-bit form of a line, from its formulas.
struct Line {
  explicit Line(const Vector& x) {
    const float m = x.minCoeff(), M = x.maxCoeff();
    scale = M != m ? 255 / (M - m) : m != 0 ? 1 / m : 255;
    zero = static_cast<int>(rounded(scale * m));
    for (const float value : x)
      codes.push_back(static_cast<int>(rounded(scale * value) - static_cast<float>(zero)) & 255);
  }
  float scale;
  int zero;
  std::vector<int> codes;
};

double product(const Line& w, const Line& x) {
  std::int64_t sum = 0;
  for (std::size_t k = 0; k < w.codes.size(); ++k)
    sum += static_cast<std::int64_t>(w.codes[k] + w.zero) * (x.codes[k] + x.zero);
  return static_cast<double>(sum) / (static_cast<double>(x.scale) * w.scale);
}

// Integers are exact; the sum becomes a float, the scales are multiplied, divided by, and the bias is added: four
// roundings.
TEST(QuantizedFullyConnected, MultipliesCodesOfWeightsAndFrames) {
  for (const DenseSize size : kDenseSizes) {
    Dice dice(8);
    const Matrix weight = dice.matrix(size.rows, size.cols, 1.1f), bias = dice.matrix(size.rows, 1, 0.3f);
    const Matrix x = dice.matrix(size.cols, size.frames, 0.7f);
    const std::string record = Record("FullyConnected").matrix(weight).matrix(bias).bytes();
    const Matrix y = forward(*layer_of<QuantizedNNLayerBuilder>("FullyConnected", record), x);
    ASSERT_EQ(y.rows(), size.rows);
    for (Eigen::Index t = 0; t < size.frames; ++t) {
      const Line frame(x.col(t));
      for (Eigen::Index i = 0; i < size.rows; ++i) {
        const double Wx = product(Line(weight.row(i)), frame);
        EXPECT_NEAR(y(i, t), bias(i) + Wx, 4 * kRounding * (std::fabs(Wx) + std::fabs(bias(i))));
      }
    }
  }
}

// A code is off by half a step of its line, and so is the zero point that both share: never more than a step together.
TEST(QuantizedFullyConnected, IsNearTheProductOfTheFloats) {
  Dice dice(9);
  const Matrix weight = dice.matrix(20, 50), x = dice.matrix(50, 10);
  const std::string record = Record("FullyConnected").matrix(weight).matrix(Matrix::Zero(20, 1)).bytes();
  const Matrix y = forward(*layer_of<QuantizedNNLayerBuilder>("FullyConnected", record), x);
  const Matrix expected = weight * x;
  const float step = 2.0f / 255;  // values are between -1 and 1
  for (Eigen::Index k = 0; k < y.size(); ++k) EXPECT_NEAR(y(k), expected(k), 50 * (2 * 0.5f * step + step * step));
  EXPECT_GT((y - expected).norm(), 0);
}

TEST(QuantizedFullyConnected, ComputesTheSameFromItsOwnRecord) {
  Dice dice(10);
  const std::string record = Record("FullyConnected").matrix(dice.matrix(9, 21)).matrix(dice.matrix(9, 1)).bytes();
  const auto from_floats = layer_of<QuantizedNNLayerBuilder>("FullyConnected", record);
  const auto from_codes = layer_of<QuantizedNNLayerBuilder>("QuantizedFullyConnected", binary_of(*from_floats));
  const Matrix x = dice.matrix(21, 6);
  EXPECT_EQ(forward(*from_codes, x), forward(*from_floats, x));
}

TEST(QuantizedFullyConnected, RefusesABiasOfAnotherSize) {
  std::string record = quantized_record();
  record.resize(record.size() - 16 - 6 * 4);
  record += Record().matrix(Matrix::Ones(5, 1)).bytes();
  EXPECT_EQ(failure_of<InvalidFormat>([&] { layer_of<QuantizedNNLayerBuilder>("QuantizedFullyConnected", record); }),
            "invalid format (expected \"QuantizedFullyConnected Layer\")");
}

/// A line without those that pad to four is the column of a right operand.
TEST(QuantizedFullyConnected, RefusesARightOperandForAWeight) {
  Record record("QuantizedFullyConnected");
  for (const std::int32_t size : {1, 1, 1, 16}) record.number(size);
  record.number<std::int64_t>(1).number<std::int64_t>(1).real(1);
  for (int i = 0; i < 2; ++i) record.number<std::int64_t>(1).number<std::int32_t>(0);
  for (int i = 0; i < 16; ++i) record.number<std::uint8_t>(0);
  record.matrix(Matrix::Ones(1, 1));
  EXPECT_EQ(
      failure_of<InvalidFormat>([&] { layer_of<QuantizedNNLayerBuilder>("QuantizedFullyConnected", record.bytes()); }),
      "invalid format (expected \"QuantizedMatrix\")");
}

TEST(QuantizedFullyConnected, SurvivesFramesThatAreNoNumbers) {
  const auto layer = layer_of<QuantizedNNLayerBuilder>("QuantizedFullyConnected", quantized_record());
  for (const float value : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 3e38f}) {
    EXPECT_EQ(forward(*layer, Matrix::Constant(5, 3, value)).cols(), 3);
    Matrix x = Matrix::Zero(5, 1);
    x(2) = value;
    EXPECT_EQ(forward(*layer, x).rows(), 6);
  }
}

TEST(Embedding, GivesTheRowOfItsTableThatAnIndexNames) {
  const Matrix table = Dice(11).matrix(7, 3);
  const auto layer = layer_of("Embedding", Record("Embedding").matrix(table).bytes());
  Matrix indices(1, 5);
  indices << 6, 0, 3, 3, 1;
  const MinibatchPtr y = layer->forward({minibatch(indices)});
  EXPECT_EQ(y->shape(), Minibatch::Shape{3});
  for (Eigen::Index t = 0; t < 5; ++t) {
    EXPECT_EQ(y->content().col(t), table.row(static_cast<Eigen::Index>(indices(t))).transpose());
  }
}

TEST(Embedding, TruncatesItsIndex) {
  const auto layer = layer_of("Embedding", Record("Embedding").matrix((Matrix(3, 1) << 10, 20, 30).finished()).bytes());
  Matrix indices(1, 5);
  indices << 0.99f, 1.5f, 2.999f, -0.5f, -0.0f;  // towards zero
  EXPECT_EQ(forward(*layer, indices), (Matrix(1, 5) << 10, 20, 30, 10, 10).finished());
}

TEST(Embedding, NamesAnIndexThatIsNotInItsTable) {
  for (const char* type : {"Embedding", "CompressedEmbedding"}) {
    const bool half = type[0] == 'C';
    const auto layer = layer_of(type, Record(type).matrix(Matrix::Ones(3, 2), half).bytes());
    const auto failure = [&](float index) {
      return failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Constant(1, 2, index)); });
    };
    EXPECT_EQ(failure(3), "Index 3 is not in the table of layer the layer");
    EXPECT_EQ(failure(-1), "Index -1 is not in the table of layer the layer");
    EXPECT_EQ(failure(1e20f), "Index 1e+20 is not in the table of layer the layer");
    EXPECT_EQ(failure(-std::numeric_limits<float>::infinity()), "Index -inf is not in the table of layer the layer");
  }
}

}  // namespace
}  // namespace meridane::test
