#pragma once

#include <algorithm>

#include "lib/framescore/nnlayer/parameter_layer.h"
#include "lib/framescore/nnlayer/tap_weight.h"

namespace meridane {

/// What convolutions along time share. Record: groups, causal, pad, dilation, stride, kernel (the number of taps), the
/// taps one under the other as weight, bias. Attributes: the same six (default false, false, 0, 1, 1; kernel has none)
/// and input_size, the rows of the input, which follows from the weight.
///
/// groups: each tap is one weight per feature; tap k of feature i stands in row k * features + i. With more than one
/// column, output t of the stream takes column t modulo their number.
/// causal: no output looks at later input.  pad: frames of zeros on both sides, if not causal.  dilation: distance of
/// taps in frames.  stride: of outputs, in input frames.
class TapLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  bool is_variable_length() const override { return true; }

 protected:
  void parameters(ParameterVisitor& visitor) override;
  /// Checks all sizes, so that none of the following overflows.
  void loaded() override;
  virtual Eigen::Index input_rows() const = 0;
  virtual Eigen::Index output_rows() const = 0;
  virtual void pack_taps() = 0;  ///< of a layer without groups

  Eigen::Index tap_rows() const { return weight_.rows() / kernel_; }
  /// Frames from the first tap to the last, both included.
  Eigen::Index width() const { return Eigen::Index{kernel_ - 1} * dilation_ + 1; }
  /// Frames that the windows of neighbouring outputs have in common.
  Eigen::Index overlap() const { return std::max<Eigen::Index>(width() - stride_, 0); }
  /// Of a grouped layer, for frame t of the stream: a column that holds tap after tap.
  const float* grouped_taps(std::uint64_t t) const;
  void raise_rows(const Minibatch& input) const;
  /// Throws if a step is to give more frames than any stream needs: layers behind this one work on all of them, so that
  /// a few numbers would make the network as slow as they like.
  void expect_frames(const LayerInputs& inputs, Eigen::Index frames) const;

  bool groups_ = false;
  bool causal_ = false;
  std::int32_t pad_ = 0;
  std::int32_t dilation_ = 1;
  std::int32_t stride_ = 1;
  std::int32_t kernel_ = 1;
  TapWeight weight_;
  StoredVector bias_;
};

}  // namespace meridane
