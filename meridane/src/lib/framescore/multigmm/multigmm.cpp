#include "meridane/framescore/multigmm.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "lib/framescore/parameter_file.h"
#include "meridane/error.h"
#include "meridane/stat/multigmmstat.h"

namespace meridane {
namespace {

// A pivot of a covariance below this share of its variance is what rounding leaves of 0.
constexpr double kLeastPivot = 1e-10;

[[noreturn]] void raise_invalid_format() { raise<InvalidFormat>("invalid format (expected \"GMM parameter\")"); }

bool is_index(std::int32_t index, std::size_t count) { return index >= 0 && static_cast<std::size_t>(index) < count; }

/// A square, lower triangular matrix whose diagonal is positive.
bool is_factor(const RowMatrix& matrix, Eigen::Index dimension) {
  if (matrix.rows() != dimension || matrix.cols() != dimension || !matrix.allFinite()) return false;
  for (Eigen::Index i = 0; i < dimension; ++i) {
    if (matrix(i, i) <= 0 || (matrix.row(i).tail(dimension - i - 1).array() != 0).any()) return false;
  }
  return true;
}

/// |L^-1 (x - mean)|^2, by forward substitution.
double squared_distance(const RowMatrix& chol, const Vector& x, const Vector& mean) {
  Eigen::VectorXd z(x.size());
  for (Eigen::Index i = 0; i < x.size(); ++i) {
    z(i) = double{x(i)} - mean(i);
    for (Eigen::Index k = 0; k < i; ++k) z(i) -= chol(i, k) * z(k);
    z(i) /= chol(i, i);
  }
  return z.squaredNorm();
}

/// The lower Cholesky factor. Throws "covariance matrix rank defficient".
RowMatrix factor_of(const Eigen::MatrixXd& covariance) {
  const Eigen::LLT<Eigen::MatrixXd> decomposition(covariance);
  RowMatrix factor = Eigen::MatrixXd(decomposition.matrixL()).cast<float>();
  const auto pivots = factor.diagonal().cast<double>().array();
  const bool is_full = decomposition.info() == Eigen::Success && is_factor(factor, covariance.rows()) &&
                       (pivots.square() > kLeastPivot * covariance.diagonal().array()).all();
  if (!is_full) raise("covariance matrix rank defficient");
  return factor;
}

}  // namespace

std::shared_ptr<FrameScorer> MultiGMMParameter::create_scorer() const {
  return std::make_shared<MultiGMMScorer>(*this);
}

void MultiGMMParameter::load(std::istream& stream, const std::string& mime) {
  if (is_xml(mime)) {
    load_xml_stream(stream);
  } else {
    load_binary_stream(stream);
  }
}

void MultiGMMParameter::dump(std::ostream& stream, const std::string& mime) const {
  if (is_xml(mime)) {
    dump_xml_stream(stream);
  } else {
    dump_binary_stream(stream);
  }
}

void MultiGMMParameter::add_mean(const RowMatrix& matrix) { means_.push_back(vector_of(matrix)); }

void MultiGMMParameter::add_mixture(const RowMatrix& matrix) {
  if (matrix.cols() != 2) raise_invalid_format();
  Mixture mixture;
  for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
    const float index = matrix(i, 0);
    const bool is_whole = index >= 0 && index < static_cast<float>(gaussians_.size()) && index == std::floor(index);
    if (!is_whole) raise_invalid_format();
    mixture.push_back({static_cast<std::int32_t>(index), matrix(i, 1)});
  }
  mixtures_.push_back(std::move(mixture));
}

void MultiGMMParameter::loaded() {
  for (const Vector& mean : means_) {
    if (mean.size() != dimension() || !mean.allFinite()) raise_invalid_format();
  }
  log_factors_.clear();
  for (const RowMatrix& chol : chols_) {
    if (means_.empty() || !is_factor(chol, dimension())) raise_invalid_format();
    const double log_two_pi = std::log(2 * std::numbers::pi);
    log_factors_.push_back(-0.5 * static_cast<double>(dimension()) * log_two_pi -
                           chol.diagonal().cast<double>().array().log().sum());
  }
  for (const auto& [mean, chol] : gaussians_) {
    if (!is_index(mean, means_.size()) || !is_index(chol, chols_.size())) raise_invalid_format();
  }
  for (const Mixture& mixture : mixtures_) {
    for (const auto& [gaussian, logweight] : mixture) {
      const bool is_weight = logweight <= std::numeric_limits<float>::max();  // -inf: no weight at all
      if (!is_index(gaussian, gaussians_.size()) || !is_weight) raise_invalid_format();
    }
  }
}

double MultiGMMParameter::log_density(const Vector& x, std::size_t mixture, std::vector<double>* posteriors) const {
  std::vector<double> terms;
  for (const auto& [gaussian, logweight] : mixtures_[mixture]) {
    const auto [mean, chol] = gaussians_[static_cast<std::size_t>(gaussian)];
    const auto c = static_cast<std::size_t>(chol);
    terms.push_back(logweight + log_factors_[c] -
                    0.5 * squared_distance(chols_[c], x, means_[static_cast<std::size_t>(mean)]));
  }
  double most = -std::numeric_limits<double>::infinity();
  for (const double term : terms) most = std::max(most, term);
  double sum = 0;
  if (std::isfinite(most)) {  // exp() of none of them overflows
    for (double& term : terms) sum += term = std::exp(term - most);
  }
  if (posteriors != nullptr) {
    for (double& term : terms) term = sum > 0 ? term / sum : 0;
    *posteriors = std::move(terms);
  }
  return sum > 0 ? most + std::log(sum) : most;
}

void MultiGMMParameter::update(const MultiGMMStat& statistics) {
  statistics.expect_of(*this);
  const auto dim = dimension();
  /// Calls visit for each observed Gaussian that uses the part of a pool at that index.
  const auto for_each_of = [&](std::int32_t Gaussian::*part, std::size_t index, auto visit) {
    for (const auto& [g, stat] : statistics.gaussians().all()) {
      const Gaussian& gaussian = gaussians_[static_cast<std::size_t>(g)];
      if (gaussian.*part == static_cast<std::int32_t>(index) && stat.denom() > 0) visit(gaussian, stat);
    }
  };

  MultiGMMParameter updated = *this;
  std::vector<Vector>& means = updated.means_;
  for (std::size_t m = 0; m < means.size(); ++m) {
    double denom = 0;
    Eigen::VectorXd sum = Eigen::VectorXd::Zero(dim);
    for_each_of(&Gaussian::mean, m, [&](const Gaussian&, const GaussianStat& stat) {
      denom += stat.denom();
      sum += stat.sum();
    });
    if (denom > 0) means[m] = (sum / denom).cast<float>();
  }

  std::vector<RowMatrix>& chols = updated.chols_;
  for (std::size_t c = 0; c < chols.size(); ++c) {
    double denom = 0;
    Eigen::MatrixXd scatter = Eigen::MatrixXd::Zero(dim, dim);
    for_each_of(&Gaussian::chol, c, [&](const Gaussian& gaussian, const GaussianStat& stat) {
      denom += stat.denom();
      scatter += stat.scatter(means[static_cast<std::size_t>(gaussian.mean)].cast<double>());
    });
    if (denom > 0) chols[c] = factor_of(scatter / denom);
  }

  for (const auto& [j, stat] : statistics.mixtures().all()) {
    Mixture& mixture = updated.mixtures_[static_cast<std::size_t>(j)];
    if (stat.total() <= 0) continue;
    for (std::size_t k = 0; k < mixture.size(); ++k) {
      mixture[k].logweight = static_cast<float>(std::log(stat.count(static_cast<std::int32_t>(k)) / stat.total()));
    }
  }

  updated.loaded();
  *this = std::move(updated);
}

}  // namespace meridane
