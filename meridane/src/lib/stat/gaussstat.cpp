#include "meridane/stat/gaussstat.h"

#include <cmath>

#include "lib/framescore/parameter_file.h"

namespace meridane {
namespace {

constexpr const char* kMagic = "MeGaStat";
constexpr const char* kGaussStatDescription = "Gaussian statistics";

}  // namespace

void GaussianStat::accumulate(const Vector& x, double weight) {
  if (dimension() == 0) numer_ = DoubleMatrix::Zero(x.size(), x.size() + 1);
  if (x.size() != dimension()) raise("number of dimentions of input data does not accord");
  if (weight == 0) return;  // 0 times a NaN is none
  const Eigen::VectorXd wide = x.cast<double>();
  denom_ += weight;
  numer_.col(0) += weight * wide;
  numer_.rightCols(dimension()) += weight * wide * wide.transpose();
}

Eigen::MatrixXd GaussianStat::scatter(const Eigen::VectorXd& mean) const {
  const Eigen::MatrixXd cross = sum() * mean.transpose();
  return numer_.rightCols(dimension()) - cross - cross.transpose() + denom_ * mean * mean.transpose();
}

void GaussianStat::set(double denom, DoubleMatrix numer) {
  const bool is_one = numer.cols() == numer.rows() + 1 && numer.allFinite() && std::isfinite(denom);
  if (!is_one) raise_invalid_statistics(kGaussStatDescription);
  denom_ = denom;
  numer_ = std::move(numer);
}

void GaussianStat::load_storage(std::istream& stream) {
  expect_magic(stream, kMagic, kGaussStatDescription);
  const auto denom = read_number<double>(stream);
  set(denom, load_double_matrix(stream));
}

void GaussianStat::dump_storage(std::ostream& stream) const {
  write_magic(stream, kMagic);
  write_number(stream, denom_);
  dump_double_matrix(stream, numer_);
}

void GaussianStat::load_storage(const XmlElement& element) {
  const auto denom = number_of<double>(fetch_attribute(element, "denom"));
  DoubleMatrix numer = load_double_matrix(expect_child(element, "numer"));
  if (numer.size() == 0) numer.resize(0, 1);
  set(denom, std::move(numer));
}

void GaussianStat::dump_storage(XmlElement& element, XmlDocument& document) const {
  append_attribute(element, document, "denom", text_of(denom_));
  dump_double_matrix(element, document, "numer", numer_);
}

}  // namespace meridane
