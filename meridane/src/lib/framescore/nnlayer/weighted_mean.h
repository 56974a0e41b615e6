#pragma once

#include <cmath>
#include <limits>

#include "lib/framescore/nnlayer/held_bytes.h"
#include "meridane/matrix.h"

namespace meridane {

/// sum of exp(s) x / sum of exp(s) over frames x with scores s. Both sums stand relative to the largest exponential
/// until now.
class WeightedMean {
 public:
  explicit WeightedMean(Eigen::Index rows) : weighted_(Eigen::VectorXd::Zero(rows)) {}

  Eigen::Index rows() const { return weighted_.size(); }
  std::uint64_t bytes() const { return held_bytes(weighted_); }
  bool is_empty() const { return sum_ == 0; }

  void clear(Eigen::Index rows) {
    largest_ = -std::numeric_limits<double>::infinity();
    sum_ = 0;
    weighted_.setZero(rows);
  }
  template <class Frame>
  void add(double score, const Frame& x) {
    if (score > largest_) {
      const double scale = std::exp(largest_ - score);  // 0 at first
      sum_ *= scale;
      weighted_ *= scale;
      largest_ = score;
    }
    const double a = std::exp(score - largest_);
    sum_ += a;
    weighted_ += a * x.template cast<double>();
  }
  /// The mean, into a column.
  template <class Column>
  void write(Column&& y) const {
    y = (weighted_ / sum_).template cast<float>();
  }

 private:
  double largest_ = -std::numeric_limits<double>::infinity();
  double sum_ = 0;
  Eigen::VectorXd weighted_;
};

}  // namespace meridane
