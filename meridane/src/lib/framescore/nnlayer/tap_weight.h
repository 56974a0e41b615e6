#pragma once

#include <vector>

#include "lib/framescore/nnlayer/weight.h"

namespace meridane {

/// The taps W(k) of a convolution along time, stored one under the other, rows x cols each; packed for one use.
class TapWeight : public Weight {
 public:
  /// A matrix for each tap.
  void pack_each(Eigen::Index taps);
  /// Of taps with one column: one matrix, whose columns are the taps.
  void pack_side_by_side(Eigen::Index taps);
  /// One matrix of the transposed taps, one under the other.
  void pack_transposed(Eigen::Index taps);
  /// Column after column.
  void transpose();

  void row(Eigen::Index i, float* out) const override;
  const std::vector<PackedWeight>& packed() const { return packed_; }
  /// Of weights that were transposed.
  const float* column(Eigen::Index k) const { return columns_.get() + k * rows(); }

 private:
  enum class Form { each, side_by_side, transposed };

  Form form_ = Form::each;
  Eigen::Index tap_rows_ = 0;
  std::vector<PackedWeight> packed_;
  std::shared_ptr<float> columns_;
};

}  // namespace meridane
