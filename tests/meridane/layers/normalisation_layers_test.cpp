#include <cmath>
#include <limits>

#include "layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

constexpr double kRounding = 0x1p-24;  // relative error of one

struct Size {
  Eigen::Index rows, frames;
};
constexpr Size kSizes[] = {{1, 1}, {1, 9}, {2, 1}, {3, 5}, {16, 2}, {17, 3}, {65, 4}, {300, 7}};
const std::string kNorms[] = {"LayerNorm", "GlobalLayerNorm"};

std::shared_ptr<NNLayer> batch_norm(const Matrix& weight, const Matrix& bias, const Matrix& mean, const Matrix& var,
                                    double eps, bool half = false) {
  const std::string type = half ? "CompressedBatchNorm" : "BatchNorm";
  return layer_of(
      type,
      Record(type).matrix(weight, half).matrix(bias, half).matrix(mean, half).matrix(var, half).real(eps).bytes());
}

std::shared_ptr<NNLayer> norm(const std::string& type, const Matrix& weight, const Matrix& bias, double eps) {
  return layer_of(type, Record(type).matrix(weight).matrix(bias).real(eps).bytes());
}

// Roundings: x - mean; var + eps, its root and the quotient; the product; the sum.
TEST(BatchNorm, IsBiasPlusTheNormalisedInputTimesWeight) {
  for (const Size size : kSizes) {
    for (const double offset : {0.0, 1000.0}) {  // a mean that is large beside the deviation costs nothing
      Dice dice(1);
      const Matrix weight = dice.matrix(size.rows, 1, 1.1f), bias = dice.matrix(size.rows, 1, 0.9f);
      const Matrix mean = dice.matrix(size.rows, 1).array() + static_cast<float>(offset);
      const Matrix var = dice.matrix(size.rows, 1).cwiseAbs();
      const Matrix x = dice.matrix(size.rows, size.frames, 3).array() + static_cast<float>(offset);
      const float eps = 0.01f;
      const Matrix y = forward(*batch_norm(weight, bias, mean, var, eps), x);
      for (Eigen::Index t = 0; t < size.frames; ++t) {
        for (Eigen::Index i = 0; i < size.rows; ++i) {
          const double z = (static_cast<double>(x(i, t)) - mean(i)) /
                           std::sqrt(static_cast<double>(var(i)) + static_cast<double>(eps)) * weight(i);
          EXPECT_NEAR(y(i, t), bias(i) + z, 6 * kRounding * (std::fabs(z) + std::fabs(bias(i))));
        }
      }
    }
  }
}

TEST(BatchNorm, OfItsMeanIsItsBias) {
  Dice dice(2);
  const Matrix mean = dice.matrix(33, 1, 77.7f), bias = dice.matrix(33, 1);
  const auto layer = batch_norm(dice.matrix(33, 1), bias, mean, Matrix::Zero(33, 1), 1e-5);
  EXPECT_EQ(forward(*layer, mean), bias);
}

TEST(CompressedBatchNorm, ComputesWithTheFloatsOfItsHalves) {
  Dice dice(3);
  const Matrix weight = dice.matrix(5, 1), bias = dice.matrix(5, 1), mean = dice.matrix(5, 1);
  const Matrix var = dice.matrix(5, 1).cwiseAbs(), x = dice.matrix(5, 3);
  EXPECT_EQ(forward(*batch_norm(weight, bias, mean, var, 1e-5, true), x),
            forward(*batch_norm(weight, bias, mean, var, 1e-5, false), x));
}

/// The reference of both layers: (x - m) / sqrt(v + eps) * weight + bias with m and v of all of x. What m is off by
/// counts with the largest value, what v is off by with the result: a few roundings each, since sums run in vectors.
void expect_normalised(const Matrix& y, const Matrix& x, const Matrix& weight, const Matrix& bias, double eps) {
  const Eigen::ArrayXXd X = x.cast<double>();
  const double m = X.mean();
  const double d = std::sqrt((X - m).square().mean() + eps);
  const double most = X.abs().maxCoeff() / d;
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    for (Eigen::Index i = 0; i < x.rows(); ++i) {
      const double z = (X(i, t) - m) / d;
      const double error = std::fabs(weight(i)) * (4 * most + 8 * std::fabs(z)) + 2 * std::fabs(bias(i));
      EXPECT_NEAR(y(i, t), z * weight(i) + bias(i), error * kRounding) << "row " << i << ", frame " << t;
    }
  }
}

TEST(LayerNorm, NormalisesEachFrameByItsMeanAndVariance) {
  for (const Size size : kSizes) {
    Dice dice(4);
    const Matrix weight = dice.matrix(size.rows, 1, 1.1f), bias = dice.matrix(size.rows, 1, 0.9f);
    const Matrix x = dice.matrix(size.rows, size.frames, 2.5f).array() + 1;
    const float eps = 0.003f;
    const Matrix y = forward(*norm("LayerNorm", weight, bias, eps), x);
    for (Eigen::Index t = 0; t < size.frames; ++t) {
      expect_normalised(y.col(t), x.col(t), weight, bias, static_cast<double>(eps));
    }
  }
}

TEST(GlobalLayerNorm, NormalisesAllFramesByTheirCommonMeanAndVariance) {
  for (const Size size : kSizes) {
    Dice dice(5);
    const Matrix weight = dice.matrix(size.rows, 1, 1.1f), bias = dice.matrix(size.rows, 1, 0.9f);
    const Matrix x = dice.matrix(size.rows, size.frames, 2.5f).array() + 1;
    const float eps = 0.003f;
    expect_normalised(forward(*norm("GlobalLayerNorm", weight, bias, eps), x), x, weight, bias,
                      static_cast<double>(eps));
  }
}

// Without Bessel's correction: the variance of 1 and 3 is 1, with it it would be 2.
TEST(LayerNorm, DividesTheVarianceByTheNumberOfRows) {
  const Matrix weight = Matrix::Ones(2, 1), bias = Matrix::Zero(2, 1);
  const Matrix x = (Matrix(2, 1) << 1, 3).finished();
  for (const std::string& type : kNorms) {
    EXPECT_EQ(forward(*norm(type, weight, bias, 0), x), (Matrix(2, 1) << -1, 1).finished());
    EXPECT_EQ(forward(*norm(type, weight, bias, 3), x), (Matrix(2, 1) << -0.5f, 0.5f).finished());
  }
}

TEST(LayerNorm, OfAConstantIsItsBias) {
  Dice dice(6);
  for (const std::string& type : kNorms) {
    for (const Eigen::Index rows : {1, 3, 40, 1000}) {
      const Matrix weight = dice.matrix(rows, 1), bias = dice.matrix(rows, 1);
      const auto layer = norm(type, weight, bias, 1e-5);
      for (const float value : {0.0f, 0.1f, -1000.1f, 1e30f}) {
        EXPECT_EQ(forward(*layer, Matrix::Constant(rows, 1, value)), bias) << type << rows << ' ' << value;
      }
    }
  }
}

TEST(GlobalLayerNorm, OfOneFrameIsLayerNorm) {
  Dice dice(7);
  const Matrix weight = dice.matrix(9, 1), bias = dice.matrix(9, 1), x = dice.matrix(9, 1, 2);
  expect_normalised(forward(*norm("GlobalLayerNorm", weight, bias, 0.5), x), x, weight, bias, 0.5);
  expect_normalised(forward(*norm("LayerNorm", weight, bias, 0.5), x), x, weight, bias, 0.5);
}

TEST(GlobalLayerNorm, ComputesAnotherResultInChunks) {
  const auto layer = norm("GlobalLayerNorm", Matrix::Ones(1, 1), Matrix::Zero(1, 1), 0);
  const Matrix x = (Matrix(1, 4) << 0, 2, 4, 6).finished();
  // Mean 3 and variance 5 of all, means 1 and 5 and variances 1 of its halves.
  EXPECT_NEAR(forward(*layer, x)(0), -3 / std::sqrt(5.0), 1e-6);
  EXPECT_EQ(forward(*layer, x.leftCols(2)), (Matrix(1, 2) << -1, 1).finished());
  EXPECT_EQ(forward(*layer, x.rightCols(2)), (Matrix(1, 2) << -1, 1).finished());
}

TEST(GlobalLayerNorm, LosesAllFramesToWhatIsNoNumber) {
  Matrix x = Dice(8).matrix(3, 4);
  x(1, 2) = std::numeric_limits<float>::quiet_NaN();
  EXPECT_TRUE(forward(*norm("GlobalLayerNorm", Matrix::Ones(3, 1), Matrix::Zero(3, 1), 1), x).array().isNaN().all());
}

TEST(Normalisations, CarryTheShapeOver) {
  const Matrix ones = Matrix::Ones(6, 1);
  const auto input = std::make_shared<Minibatch>(Matrix::Ones(6, 2), Minibatch::Shape{3, 2});
  for (const auto& layer : {batch_norm(ones, ones, ones, ones, 0), norm("LayerNorm", ones, ones, 1),
                            norm("GlobalLayerNorm", ones, ones, 1)}) {
    EXPECT_EQ(layer->forward({input})->shape(), (Minibatch::Shape{3, 2}));
  }
}

const std::string kDimensions =
    "The number of dimensions of the weight and bias vectors for layer the layer is incorrect";
const std::string kShape = "The shape of the weight and bias vectors for layer the layer is incorrect";

/// Both forms of a record of vectors of that form, and the failure to load each.
std::vector<std::string> failures(const std::string& type, const std::vector<Matrix>& vectors) {
  const char* const names[] = {"weight", "bias", "mean", "var"};
  Record record(type);
  std::string document = "<layer type='" + type + "' id='a'>";
  for (std::size_t i = 0; i < vectors.size(); ++i) {
    record.matrix(vectors[i], type.starts_with("Compressed"));
    std::ostringstream text;
    text << '<' << names[i] << ">\n" << vectors[i] << "\n</" << names[i] << '>';
    document += text.str();
  }
  record.real(1);
  return {failure_of<BaseRuntimeError>([&] { layer_of(type, record.bytes()); }),
          failure_of<BaseRuntimeError>([&] { layer_of_xml(type, document + "</layer>"); })};
}

class Norm : public testing::TestWithParam<const char*> {
 protected:
  std::string type() const { return GetParam(); }
  std::size_t count() const { return type().ends_with("BatchNorm") ? 4 : 2; }
};
INSTANTIATE_TEST_SUITE_P(Types, Norm,
                         testing::Values("BatchNorm", "LayerNorm", "GlobalLayerNorm", "CompressedBatchNorm",
                                         "CompressedLayerNorm", "CompressedGlobalLayerNorm"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(Norm, LoadsVectorsOfOneSize) {
  EXPECT_THAT(failures(type(), std::vector<Matrix>(count(), Matrix::Ones(3, 1))), testing::Each("nothing failed"));
}

TEST_P(Norm, RefusesVectorsOfDifferentSizes) {
  for (std::size_t i = 0; i < count(); ++i) {
    std::vector<Matrix> vectors(count(), Matrix::Ones(3, 1));
    vectors[i] = Matrix::Ones(4, 1);
    EXPECT_THAT(failures(type(), vectors), testing::Each(kShape)) << i;
  }
}

// Before the rule that takes a stored row for a vector.
TEST_P(Norm, RefusesAMatrixOfSeveralColumns) {
  for (std::size_t i = 0; i < count(); ++i) {
    for (const Eigen::Index rows : {1, 3}) {
      std::vector<Matrix> vectors(count(), Matrix::Ones(3, 1));
      vectors[i] = Matrix::Ones(rows, 3);
      EXPECT_THAT(failures(type(), vectors), testing::Each(kDimensions)) << i;
    }
  }
}

TEST_P(Norm, HasADefaultInItsDocument) {
  std::string document = "<layer type='" + type() + "' id='a'><weight>1</weight><bias>0</bias>";
  if (count() == 4) document += "<mean>0</mean><var>1</var>";
  const std::string bytes = binary_of(*layer_of_xml(type(), document + "</layer>"));
  EXPECT_EQ(bytes.substr(bytes.size() - 4), Record().real(1e-5).bytes());
}

TEST_P(Norm, ReadsItsAttribute) {
  std::string document = "<layer type='" + type() + "' id='a' eps='0.5'><weight>1</weight><bias>0</bias>";
  if (count() == 4) document += "<mean>0</mean><var>1</var>";
  const std::string bytes = binary_of(*layer_of_xml(type(), document + "</layer>"));
  EXPECT_EQ(bytes.substr(bytes.size() - 4), Record().real(0.5).bytes());
}

}  // namespace
}  // namespace meridane::test
