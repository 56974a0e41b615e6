#pragma once

#include "meridane/framescore/multigmm.h"
#include "meridane/io/streamable.h"
#include "meridane/stat/gaussstat.h"
#include "meridane/stat/multstat.h"

namespace meridane {

/// First bytes of a binary file of statistics of mixtures.
inline constexpr char kGMMStatMagic[] = "MeGMMsta";

/// What MultiGMMParameter::update needs: of each Gaussian, by its index, the observations shared out among the entries
/// of their mixtures by posterior probability; of each mixture, by its index, how much each of its entries got.
class MultiGMMStat : public BinaryStreamableImpl<MultiGMMStat>, public XmlStorableImpl<MultiGMMStat> {
 public:
  using Gaussians = StatSet<std::int32_t, GaussianStat>;
  using Mixtures = StatSet<std::int32_t, MultinomialStat<std::int32_t>>;

  /// An observation of a mixture.
  void accumulate(const MultiGMMParameter& parameter, const Vector& x, std::int32_t mixture, double weight = 1);

  const Gaussians& gaussians() const { return gaussians_; }
  const Mixtures& mixtures() const { return mixtures_; }
  double score() const { return score_; }  ///< sum of weight times log density
  double total() const { return total_; }  ///< sum of weights
  /// Throws "statistics are of other parameters".
  void expect_of(const MultiGMMParameter& parameter) const;

 private:
  friend struct BinaryStreamTraits<MultiGMMStat>;
  friend struct XmlStoreTraits<MultiGMMStat>;

  Gaussians gaussians_;
  Mixtures mixtures_;
  double score_ = 0;
  double total_ = 0;
};

template <>
struct BinaryStreamTraits<MultiGMMStat> {
  static void load(MultiGMMStat& statistics, std::istream& stream);
  static void dump(const MultiGMMStat& statistics, std::ostream& stream);
};

template <>
struct XmlStoreTraits<MultiGMMStat> {
  static void load(MultiGMMStat& statistics, const XmlFile& file);
  static void dump(const MultiGMMStat& statistics, XmlFile& file);
};

}  // namespace meridane
