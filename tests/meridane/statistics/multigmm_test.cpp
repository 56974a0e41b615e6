// Densities and estimation, against formulas on explicit inverses and determinants in double precision.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <cmath>
#include <numbers>
#include <random>

#include "gmm_samples.h"
#include "meridane/error.h"
#include "meridane/stat/multigmmstat.h"

namespace meridane {
namespace {

using test::Bytes;
using test::loaded;
using test::mixtures;
using test::vector;
using testing::ThrowsMessage;

/// N(x; mean, chol chol') as it stands in books.
double normal_density(const Vector& x, const Vector& mean, const RowMatrix& chol) {
  const Eigen::MatrixXd factor = chol.cast<double>();
  const Eigen::MatrixXd covariance = factor * factor.transpose();
  const Eigen::VectorXd d = (x - mean).cast<double>();
  return std::exp(-0.5 * d.dot(covariance.inverse() * d)) /
         std::sqrt((2 * std::numbers::pi * covariance).determinant());
}

double mixture_density(const MultiGMMParameter& gmm, const Vector& x, std::size_t mixture) {
  double density = 0;
  for (const auto& [g, logweight] : gmm.mixtures()[mixture]) {
    const auto [mean, chol] = gmm.gaussians()[static_cast<std::size_t>(g)];
    density += std::exp(double{logweight}) * normal_density(x, gmm.means()[static_cast<std::size_t>(mean)],
                                                            gmm.chols()[static_cast<std::size_t>(chol)]);
  }
  return density;
}

std::shared_ptr<FrameSequence> frames(const std::vector<Vector>& vectors) {
  return std::make_shared<FrameSequence>(vectors.begin(), vectors.end());
}

TEST(MultiGMMScorer, GivesTheLogDensityOfEachMixture) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  const auto scorer = gmm.create_scorer();
  const std::vector<Vector> x = {vector({0, 0}), vector({1, -2}), vector({0.4f, 2.5f})};
  scorer->set_input(frames({x[0], x[1], x[2]}));
  EXPECT_EQ(scorer->output_dimension(), 2u);
  const Matrix y = scorer->output();
  ASSERT_EQ(y.rows(), 2);
  ASSERT_EQ(y.cols(), 3);
  for (std::size_t t = 0; t < 3; ++t) {
    for (std::size_t j = 0; j < 2; ++j) {
      const auto expected = static_cast<float>(std::log(mixture_density(gmm, x[t], j)));
      EXPECT_FLOAT_EQ(y(static_cast<Eigen::Index>(j), static_cast<Eigen::Index>(t)), expected);
      EXPECT_FLOAT_EQ(scorer->score(t, j), expected);
    }
  }
}

TEST(MultiGMMScorer, TakesEachInputForItself) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  const auto scorer = gmm.create_scorer();
  EXPECT_THAT([&] { scorer->output(); }, ThrowsMessage<BaseRuntimeError>(std::string("didn't set input data")));
  scorer->set_input(frames({vector({0, 0})}));
  const float first = scorer->score(0, 1);
  scorer->set_input(frames({vector({1, -2}), vector({0, 0})}));
  EXPECT_EQ(scorer->score(1, 1), first);
  EXPECT_NE(scorer->score(0, 1), first);
}

TEST(MultiGMMScorer, HasNoScoreBeyondItsFramesAndMixtures) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  const auto scorer = gmm.create_scorer();
  scorer->set_input(frames({vector({0, 0}), vector({1, -2})}));
  EXPECT_NO_THROW(scorer->score(1, 1));
  EXPECT_THAT([&] { scorer->score(2, 1); },
              ThrowsMessage<DimensionMismatchError>(std::string("There is no score of frame 2 and dimension 1")));
  EXPECT_THAT([&] { scorer->score(1, 2); },
              ThrowsMessage<DimensionMismatchError>(std::string("There is no score of frame 1 and dimension 2")));
}

TEST(MultiGMMScorer, RefusesVectorsOfAnotherSize) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  MultiGMMScorer scorer(gmm);
  const auto message =
      ThrowsMessage<BaseRuntimeError>(std::string("number of dimentions of input data does not accord"));
  EXPECT_THAT([&] { scorer.set_data(frames({vector({1, 2, 3})})); }, message);
  EXPECT_THAT([&] { scorer.set_data(frames({vector({1, 2}), vector({1})})); }, message);
  EXPECT_THROW(scorer.set_data(frames({})), std::out_of_range);
  EXPECT_THROW(scorer.set_data(std::make_shared<FrameSequence>(FrameSequence{std::string("a")})),
               std::bad_variant_access);
}

/// One dimension: N(0, 1) and N(10, 1) in a mixture of the given weights.
MultiGMMParameter two_bells(float logweight0, float logweight1) {
  Bytes file;
  file.text("MeGMMpar").number(2).matrix(1, 1, {0}).matrix(1, 1, {10}).number(1).matrix(1, 1, {1});
  file.number(2).number(0).number(0).number(1).number(0).number(1).matrix(2, 2, {0, logweight0, 1, logweight1});
  return loaded(file.str());
}

TEST(MultiGMM, HasDensitiesFarFromAllOfItsMeans) {
  const MultiGMMParameter gmm = two_bells(std::log(0.5f), std::log(0.5f));
  const double log_peak = -0.5 * std::log(2 * std::numbers::pi);
  EXPECT_NEAR(gmm.log_density(vector({1e6f}), 0), std::log(0.5) + log_peak - 0.5 * (1e6 - 10) * (1e6 - 10), 1);
  EXPECT_TRUE(std::isfinite(gmm.log_density(vector({3e38f}), 0)));
  std::vector<double> posteriors;
  gmm.log_density(vector({-1e4f}), 0, &posteriors);
  EXPECT_THAT(posteriors, testing::ElementsAre(1, 0));
}

TEST(MultiGMM, KnowsEntriesWithoutWeight) {
  std::vector<double> posteriors;
  EXPECT_DOUBLE_EQ(two_bells(-INFINITY, 0).log_density(vector({10}), 0, &posteriors),
                   -0.5 * std::log(2 * std::numbers::pi));
  EXPECT_THAT(posteriors, testing::ElementsAre(0, 1));
  EXPECT_EQ(two_bells(-INFINITY, -INFINITY).log_density(vector({10}), 0, &posteriors), -INFINITY);
  EXPECT_THAT(posteriors, testing::ElementsAre(0, 0));
}

TEST(MultiGMM, SharesAnObservationOutByPosterior) {
  const MultiGMMParameter gmm = loaded(mixtures().str());
  const Vector x = vector({0.6f, 1});
  std::vector<double> posteriors;
  gmm.log_density(x, 1, &posteriors);
  ASSERT_EQ(posteriors.size(), 3u);
  for (std::size_t k = 0; k < 3; ++k) {
    const auto [g, logweight] = gmm.mixtures()[1][k];
    const auto [mean, chol] = gmm.gaussians()[static_cast<std::size_t>(g)];
    const double part = std::exp(double{logweight}) * normal_density(x, gmm.means()[static_cast<std::size_t>(mean)],
                                                                     gmm.chols()[static_cast<std::size_t>(chol)]);
    EXPECT_NEAR(posteriors[k], part / mixture_density(gmm, x, 1), 1e-9);
  }
}

TEST(MultiGMMUpdate, OfOneGaussianIsMeanAndCovarianceOfTheData) {
  Bytes file;
  file.text("MeGMMpar").number(1).matrix(2, 1, {5, 5}).number(1).matrix(2, 2, {1, 0, 0, 1});
  file.number(1).number(0).number(0).number(1).matrix(1, 2, {0, -7});
  MultiGMMParameter gmm = loaded(file.str());
  MultiGMMStat statistics;
  Eigen::Matrix<double, 2, 4> x;
  x << 1, 2, 4, -3, 0, 7, 2, 1;
  const Eigen::Vector4d weight(1, 2, 0.5, 1);
  for (Eigen::Index t = 0; t < 4; ++t) statistics.accumulate(gmm, x.col(t).cast<float>(), 0, weight(t));
  gmm.update(statistics);

  const Eigen::Vector2d mean = x * weight / weight.sum();
  const Eigen::Matrix<double, 2, 4> deviation = x.colwise() - mean;
  const Eigen::Matrix2d covariance = deviation * weight.asDiagonal() * deviation.transpose() / weight.sum();
  EXPECT_TRUE(gmm.means()[0].isApprox(mean.cast<float>(), 1e-6f));
  const Eigen::MatrixXd factor = gmm.chols()[0].cast<double>();
  EXPECT_TRUE((factor * factor.transpose()).isApprox(covariance, 1e-6));
  EXPECT_EQ(gmm.mixtures()[0][0].logweight, 0);
  EXPECT_DOUBLE_EQ(statistics.total(), 4.5);
}

TEST(MultiGMMUpdate, RaisesTheLikelihoodUntilItFitsTheData) {
  std::mt19937 random(7);
  std::normal_distribution<float> normal;
  std::vector<Vector> data;
  for (int i = 0; i < 3000; ++i) data.push_back(vector({i % 4 == 0 ? 6 + 0.5f * normal(random) : normal(random)}));
  Bytes file;  // each Gaussian with a factor of its own
  file.text("MeGMMpar").number(2).matrix(1, 1, {1}).matrix(1, 1, {4}).number(2).matrix(1, 1, {2}).matrix(1, 1, {2});
  file.number(2).number(0).number(0).number(1).number(1);
  file.number(1).matrix(2, 2, {0, std::log(0.5f), 1, std::log(0.5f)});
  MultiGMMParameter gmm = loaded(file.str());
  double before = -INFINITY;
  for (int step = 0; step < 30; ++step) {
    MultiGMMStat statistics;
    for (const Vector& x : data) statistics.accumulate(gmm, x, 0);
    EXPECT_GE(statistics.score(),
              before - 1e-3 * std::abs(before) * 1e-3);  // parameters are stored in single precision
    before = statistics.score();
    gmm.update(statistics);
  }
  // Within three standard errors of what the data were made of.
  EXPECT_NEAR(gmm.means()[0](0), 0, 3 / std::sqrt(2250.));
  EXPECT_NEAR(gmm.means()[1](0), 6, 3 * 0.5 / std::sqrt(750.));
  EXPECT_NEAR(gmm.chols()[0](0, 0), 1, 3 / std::sqrt(2 * 2250.));
  EXPECT_NEAR(gmm.chols()[1](0, 0), 0.5, 3 * 0.5 / std::sqrt(2 * 750.));
  EXPECT_NEAR(std::exp(gmm.mixtures()[0][1].logweight), 0.25, 0.005);
}

TEST(MultiGMMUpdate, PoolsTheObservationsOfSharedParts) {
  // Two bells with one factor: its variance is the mean of both deviations from their own means.
  MultiGMMParameter gmm = two_bells(std::log(0.5f), std::log(0.5f));
  MultiGMMStat statistics;
  for (const float x : {-1.f, 1.f, 8.f, 12.f, 8.f, 12.f}) statistics.accumulate(gmm, vector({x}), 0);
  gmm.update(statistics);
  EXPECT_NEAR(gmm.means()[0](0), 0, 1e-6);
  EXPECT_NEAR(gmm.means()[1](0), 10, 1e-5);
  EXPECT_NEAR(gmm.chols()[0](0, 0), std::sqrt((2 * 1 + 4 * 4) / 6.), 1e-5);
  EXPECT_NEAR(std::exp(gmm.mixtures()[0][0].logweight), 2 / 6., 1e-6);
}

/// What observations of the mixtures of a file add up to, in double precision and by the formulas as they stand.
struct Sums {
  struct Gaussian {
    double denom = 0;
    Eigen::Vector2d sum = Eigen::Vector2d::Zero();
    Eigen::Matrix2d products = Eigen::Matrix2d::Zero();
  };
  std::vector<Gaussian> gaussians = std::vector<Gaussian>(3);
  std::vector<std::vector<double>> counts = {{0, 0}, {0, 0, 0}};
  double score = 0;

  void add(const MultiGMMParameter& gmm, const Vector& x, std::size_t mixture, double weight) {
    const double density = mixture_density(gmm, x, mixture);
    score += weight * std::log(density);
    const Eigen::Vector2d wide = x.cast<double>();
    for (std::size_t k = 0; k < gmm.mixtures()[mixture].size(); ++k) {
      const auto [g, logweight] = gmm.mixtures()[mixture][k];
      const auto [mean, chol] = gmm.gaussians()[static_cast<std::size_t>(g)];
      const double part = std::exp(double{logweight}) * normal_density(x, gmm.means()[static_cast<std::size_t>(mean)],
                                                                       gmm.chols()[static_cast<std::size_t>(chol)]);
      const double share = weight * part / density;
      counts[mixture][k] += share;
      Gaussian& sums = gaussians[static_cast<std::size_t>(g)];
      sums.denom += share;
      sums.sum += share * wide;
      sums.products += share * wide * wide.transpose();
    }
  }
};

TEST(MultiGMMUpdate, IsOneStepOfExpectationMaximisationWithSharedParts) {
  MultiGMMParameter gmm = loaded(mixtures().str());  // Gaussians 0 and 2 share a mean, 1 and 2 a factor
  MultiGMMStat statistics;
  Sums sums;
  std::mt19937 random(3);
  std::normal_distribution<float> normal;
  for (int t = 0; t < 40; ++t) {
    const Vector x = vector({0.75f + normal(random), 0.5f + 3 * normal(random)});
    const int mixture = t % 2;
    const double weight = 0.25 * (1 + t % 5);
    statistics.accumulate(gmm, x, mixture, weight);
    sums.add(gmm, x, static_cast<std::size_t>(mixture), weight);
  }

  EXPECT_NEAR(statistics.score(), sums.score, 1e-5 * std::abs(sums.score));
  for (int g = 0; g < 3; ++g) {
    const Sums::Gaussian& expected = sums.gaussians[static_cast<std::size_t>(g)];
    const GaussianStat& stat = statistics.gaussians().get(g);
    EXPECT_NEAR(stat.denom(), expected.denom, 1e-5 * expected.denom);
    EXPECT_TRUE(stat.sum().isApprox(expected.sum, 1e-5));
    EXPECT_TRUE(stat.numer().rightCols(2).isApprox(expected.products, 1e-5));
  }
  for (int j = 0; j < 2; ++j) {
    const std::vector<double>& counts = sums.counts[static_cast<std::size_t>(j)];
    for (std::size_t k = 0; k < counts.size(); ++k) {
      EXPECT_NEAR(statistics.mixtures().get(j).count(static_cast<int>(k)), counts[k], 1e-5 * counts[k]);
    }
  }

  gmm.update(statistics);
  const auto& g = sums.gaussians;
  const Eigen::Vector2d mean0 = (g[0].sum + g[2].sum) / (g[0].denom + g[2].denom);
  const Eigen::Vector2d mean1 = g[1].sum / g[1].denom;
  EXPECT_TRUE(gmm.means()[0].cast<double>().isApprox(mean0, 1e-5));
  EXPECT_TRUE(gmm.means()[1].cast<double>().isApprox(mean1, 1e-5));
  // Sum of w (x - m)(x - m)'.
  const auto scatter = [](const Sums::Gaussian& s, const Eigen::Vector2d& m) -> Eigen::Matrix2d {
    return s.products - s.sum * m.transpose() - m * s.sum.transpose() + s.denom * m * m.transpose();
  };
  const Eigen::Matrix2d covariance0 = scatter(g[0], mean0) / g[0].denom;
  const Eigen::Matrix2d covariance1 = (scatter(g[1], mean1) + scatter(g[2], mean0)) / (g[1].denom + g[2].denom);
  const Eigen::Matrix2d factor0 = gmm.chols()[0].cast<double>(), factor1 = gmm.chols()[1].cast<double>();
  EXPECT_TRUE((factor0 * factor0.transpose()).isApprox(covariance0, 1e-5));
  EXPECT_TRUE((factor1 * factor1.transpose()).isApprox(covariance1, 1e-5));
  for (std::size_t j = 0; j < 2; ++j) {
    double total = 0;
    for (const double count : sums.counts[j]) total += count;
    for (std::size_t k = 0; k < sums.counts[j].size(); ++k) {
      EXPECT_NEAR(std::exp(gmm.mixtures()[j][k].logweight), sums.counts[j][k] / total, 1e-5);
    }
  }
}

TEST(MultiGMMUpdate, LeavesWhatWasNotObserved) {
  MultiGMMParameter gmm = loaded(mixtures().str());
  gmm.update(MultiGMMStat());
  EXPECT_EQ(test::dumped(gmm), mixtures().str());
}

TEST(MultiGMMUpdate, RefusesACovarianceWithoutFullRank) {
  MultiGMMParameter gmm = loaded(mixtures().str());
  const auto message = ThrowsMessage<BaseRuntimeError>(std::string("covariance matrix rank defficient"));
  MultiGMMStat on_a_line;
  for (const float a : {0.f, 1.f, 3.f, -2.f}) on_a_line.accumulate(gmm, vector({a, 3 * a + 1}), 0);
  EXPECT_THAT([&] { gmm.update(on_a_line); }, message);
  MultiGMMStat one_point;
  one_point.accumulate(gmm, vector({1, 1}), 1);
  EXPECT_THAT([&] { gmm.update(one_point); }, message);
  EXPECT_EQ(test::dumped(gmm), mixtures().str());
}

TEST(MultiGMMUpdate, RefusesStatisticsOfOtherParameters) {
  MultiGMMParameter bells = two_bells(0, 0);
  const MultiGMMParameter gmm = loaded(mixtures().str());
  MultiGMMStat statistics;
  statistics.accumulate(gmm, vector({1, 1}), 1);
  EXPECT_THAT([&] { bells.update(statistics); },
              ThrowsMessage<BaseRuntimeError>(std::string("statistics are of other parameters")));
  EXPECT_THAT([&] { statistics.accumulate(gmm, vector({1}), 1); },
              ThrowsMessage<BaseRuntimeError>(std::string("number of dimentions of input data does not accord")));
  EXPECT_THAT(
      [&] {
        statistics.accumulate(gmm, vector({1, 1}), 2);
      },
      ThrowsMessage<BaseRuntimeError>(std::string("Statistics is not found")));
}

}  // namespace
}  // namespace meridane
