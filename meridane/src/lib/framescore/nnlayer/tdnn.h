#pragma once

#include "lib/framescore/nnlayer/tap_layer.h"

namespace meridane {

struct TDNNLayerState;

/// Convolution along time:
///   y(f) = bias + sum over taps k of W(k) x(f stride + k dilation - m)
/// Streaming keeps the last K - stride frames, K = (kernel - 1) dilation + 1, for the next call (none for a kernel that
/// is narrower than its stride).
/// causal: m = K - stride; the stream begins behind so many zeros, and T frames give T / stride. Chunks of a multiple
/// of the stride give what one call gives. Only the check of the length looks at pad: a call fails unless its frames,
/// the kept ones and pad together are as wide as the kernel.
/// Not causal: m = pad, and each call sees pad frames of zeros before and behind the kept frames and its own.
/// A call without frames gives none and changes nothing.
/// Record and attributes: see TapLayer. Taps are (output rows) x (input rows), bias has the output's rows.
class TDNNLayer : public TapLayer {
 public:
  using TapLayer::TapLayer;
  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  /// A stream of one call.
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }

 protected:
  std::string tag() const override { return "TDNN"; }
  Eigen::Index input_rows() const override { return groups_ ? tap_rows() : weight_.cols(); }
  Eigen::Index output_rows() const override { return tap_rows(); }
  void pack_taps() override;

 private:
  /// y of a grouped layer for a chunk that is as wide as the kernel at least: windows that lie in the chunk are read
  /// there, only the others are put together.
  void convolve_around(const Matrix& x, Eigen::Index before, Eigen::Index after, Eigen::Index frames,
                       TDNNLayerState& stream, float* y) const;
  /// y of `frames` frames, from the window that begins with the first tap of the first of them.
  void convolve(const float* window, Eigen::Index frames, std::uint64_t first, float* y) const;
};

using CompressedTDNNLayer = Compressed<TDNNLayer>;

}  // namespace meridane
