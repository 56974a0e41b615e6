#pragma once

#include <cstdint>
#include <vector>

#include "lib/framescore/nnlayer/weight.h"

namespace meridane {

/// The taps W(k) of a convolution along time, stored one under the other, rows x cols each; packed for one use.
class TapWeight : public Weight {
 public:
  /// One matrix [W(0) W(1) ...]: for taps that read neighbours.
  void pack_side_by_side(Eigen::Index taps);
  /// A matrix for each tap.
  void pack_each(Eigen::Index taps);
  /// One matrix of the transposed taps, one under the other.
  void pack_transposed(Eigen::Index taps);

  void row(Eigen::Index i, float* out) const override;
  const std::vector<PackedWeight>& packed() const { return packed_; }

 private:
  enum class Form { stored, side_by_side, each, transposed };
  /// Makes the next of packed_ with element(i, k) in row i and column k.
  template <class Element>
  void add_packed(Eigen::Index rows, Eigen::Index cols, Element element);
  void set_form(Form form, Eigen::Index taps);

  Form form_ = Form::stored;
  Eigen::Index tap_rows_ = 0;
  std::vector<PackedWeight> packed_;
};

}  // namespace meridane
