#pragma once

#include "meridane/matrix.h"
#include "meridane/stat/base.h"
#include "meridane/stat/number.h"

namespace meridane {

/// Of a Gaussian over vectors x with weights w: denom = sum of w, numer = [sum of w x, sum of w x x'], D x (D + 1).
/// Record: `MeGaStat`, 8-byte denom, numer in double precision. Element: attribute denom, child numer. Without an
/// observation D is 0.
class GaussianStat : public BaseStat<Vector> {
 public:
  /// Throws "number of dimentions of input data does not accord" for a vector of another size than those before.
  /// What has no weight changes no sum, whatever it holds.
  void accumulate(const Vector& x, double weight) override;
  void load_storage(std::istream& stream) override;
  void load_storage(const XmlElement& element) override;
  void dump_storage(std::ostream& stream) const override;
  void dump_storage(XmlElement& element, XmlDocument& document) const override;

  Eigen::Index dimension() const { return numer_.rows(); }
  double denom() const { return denom_; }
  const DoubleMatrix& numer() const { return numer_; }
  Eigen::VectorXd sum() const { return numer_.col(0); }
  /// Sum of w (x - mean)(x - mean)'.
  Eigen::MatrixXd scatter(const Eigen::VectorXd& mean) const;

 private:
  void set(double denom, DoubleMatrix numer);

  double denom_ = 0;
  DoubleMatrix numer_ = DoubleMatrix(0, 1);
};

}  // namespace meridane
