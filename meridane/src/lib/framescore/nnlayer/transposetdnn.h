#pragma once

#include "lib/framescore/nnlayer/tap_layer.h"

namespace meridane {

/// The transpose of TDNN with the same groups, causal, pad, dilation, stride and weight: each frame x(f) adds
/// transpose(W(k)) x(f) to y(f stride + k dilation - m), for all taps k; every y has the bias added once. In time of y,
/// m and K are those of TDNN: m = K - stride (0 for a kernel that is narrower than its stride) if causal, else pad.
/// What falls before the stream, where TDNN reads zeros, is dropped. A frame of y is given as soon as no later x can
/// add to it, so that chunks give what one call gives. After n frames of x, n stride frames of y are done, less the m
/// that were dropped; not causal with a pad above K - stride, they are n stride - (2 pad - (K - stride)), as many as
/// TDNN makes n frames of. Record and attributes: see TapLayer. Taps are (rows of x) x (rows of y), bias has the rows
/// of y. Grouped taps of more than one column take the one of x's frame number.
class TransposeTDNNLayer : public TapLayer {
 public:
  using TapLayer::TapLayer;
  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  /// A stream of one call.
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }

 protected:
  std::string tag() const override { return "TransposeTDNN"; }
  Eigen::Index input_rows() const override { return tap_rows(); }
  Eigen::Index output_rows() const override { return groups_ ? tap_rows() : weight_.cols(); }
  void pack_taps() override { weight_.pack_transposed(kernel_); }

 private:
  /// Frames that are done, but wait for a pad that TDNN has more than its kernel.
  Eigen::Index held() const { return causal_ ? 0 : std::max<Eigen::Index>(pad_ - overlap(), 0); }
  /// Adds the taps of the frames of x to the sums of y, of which the first is that of tap 0 and frame 0.
  void add_taps(const Matrix& x, std::uint64_t first, std::vector<float>& products, float* sums) const;
};

using CompressedTransposeTDNNLayer = Compressed<TransposeTDNNLayer>;

}  // namespace meridane
