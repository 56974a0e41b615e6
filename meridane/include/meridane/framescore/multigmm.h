#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "meridane/framescore/frame_scorer.h"
#include "meridane/io/matrix.h"
#include "meridane/io/streamable.h"

namespace meridane {

class MultiGMMStat;

/// First bytes of a binary file of mixtures.
inline constexpr char kGMMMagic[] = "MeGMMpar";

/// Mixtures of Gaussians that share their parts: a pool of means, a pool of lower Cholesky factors L of covariances
/// L L', Gaussians that name one of each, and mixtures of Gaussians. The density of mixture j is
///   p(x|j) = sum over its entries of exp(logweight) N(x; mean, L L'),
///   log N(x; m, L L') = -D/2 log(2 pi) - sum of log L(i,i) - |L^-1 (x - m)|^2 / 2.
/// The stored form is told in docs/network-files.md.
class MultiGMMParameter : public FrameScoreParameter,
                          public BinaryStreamableImpl<MultiGMMParameter>,
                          public XmlStorableImpl<MultiGMMParameter> {
 public:
  struct Gaussian {
    std::int32_t mean;  ///< index of its mean
    std::int32_t chol;  ///< index of its factor
  };
  struct Entry {
    std::int32_t gaussian;  ///< index
    float logweight;
  };
  using Mixture = std::vector<Entry>;

  std::string type() const override { return "GMM"; }
  std::shared_ptr<FrameScorer> create_scorer() const override;
  void load(std::istream& stream, const std::string& mime) override;
  void dump(std::ostream& stream, const std::string& mime) const override;

  Eigen::Index dimension() const { return means_.empty() ? 0 : means_.front().size(); }
  const std::vector<Vector>& means() const { return means_; }
  const std::vector<RowMatrix>& chols() const { return chols_; }
  const std::vector<Gaussian>& gaussians() const { return gaussians_; }
  const std::vector<Mixture>& mixtures() const { return mixtures_; }

  /// log p(x|mixture). posteriors, if any, becomes the share of each entry in the density.
  double log_density(const Vector& x, std::size_t mixture, std::vector<double>* posteriors = nullptr) const;

  /// One step of expectation maximisation: each mean becomes that of the observations of its Gaussians, each factor
  /// that of the mean square of their deviations from the new means, each weight the share of its entry. What was
  /// observed with no weight stays. "covariance matrix rank defficient" leaves all as it was.
  void update(const MultiGMMStat& statistics);

 private:
  friend struct BinaryStreamTraits<MultiGMMParameter>;
  friend struct XmlStoreTraits<MultiGMMParameter>;

  void add_mean(const RowMatrix& matrix);
  void add_mixture(const RowMatrix& matrix);
  /// Checks the parts against each other and prepares what all scores need. Throws InvalidFormat.
  void loaded();

  std::vector<Vector> means_;
  std::vector<RowMatrix> chols_;
  std::vector<Gaussian> gaussians_;
  std::vector<Mixture> mixtures_;
  std::vector<double> log_factors_;  // of each Cholesky factor: what the density has before the exponential
};

template <>
struct BinaryStreamTraits<MultiGMMParameter> {
  static void load(MultiGMMParameter& parameter, std::istream& stream);
  static void dump(const MultiGMMParameter& parameter, std::ostream& stream);
};

template <>
struct XmlStoreTraits<MultiGMMParameter> {
  static void load(MultiGMMParameter& parameter, const XmlFile& file);
  static void dump(const MultiGMMParameter& parameter, XmlFile& file);
};

/// The log densities of all mixtures, frame by frame: nothing is carried from frame to frame.
class MultiGMMScorer : public FrameScorer {
 public:
  explicit MultiGMMScorer(const MultiGMMParameter& parameter) : parameter_(&parameter) {}

  using FrameScorer::set_input;
  void set_input(const std::shared_ptr<FrameSequence>& frames) override { set_data(frames); }
  /// Throws "number of dimentions of input data does not accord" for vectors of another size than the means.
  void set_data(const std::shared_ptr<FrameSequence>& frames);

  /// Throws DimensionMismatchError for a frame or a mixture that isn't there.
  float score(std::uint64_t frame, std::uint64_t mixture) override;
  std::uint64_t output_dimension() const override { return parameter_->mixtures().size(); }
  Matrix output() override;
  void execute() override;

 private:
  const MultiGMMParameter* parameter_;
  std::unique_ptr<Minibatch> input_;
  std::unique_ptr<Matrix> output_;  // once it's computed
};

}  // namespace meridane
