#pragma once

#include "lib/framescore/nnlayer/recurrent_layer.h"

namespace meridane {

struct BLSTMLayerState : NNLayerState {
  explicit BLSTMLayerState(Eigen::Index cells) : forward(cells), backward(cells) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<BLSTMLayerState>(*this); }
  std::uint64_t bytes() const override { return forward.bytes() + backward.bytes(); }

  LSTMMemory forward, backward;
};

/// Two LSTMs over the frames of a call, one from the first frame on, one from the last; the memories of both go on to
/// the next call. Their outputs stand one under the other (concat, 2N rows) or are added (sum, N rows).
/// Record: forward_upward_weight (4N x D), forward_upward_bias (4N), forward_lateral_weight (4N x N),
/// forward_lateral_bias (4N), the same four for backward_, int output_format (0 concat, 1 sum).
/// Attribute: output_format (concat or sum, default concat). In the quantized form's document each direction is an
/// element, `forward` or `backward`, of a `layer` of type QuantizedLSTM and a `lateral_bias`.
class BLSTMLayer : public RecurrentLayer {
 public:
  using RecurrentLayer::RecurrentLayer;

  std::shared_ptr<NNLayerState> create_state() const override;
  using RecurrentLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;

 protected:
  std::string tag() const override { return "BLSTM"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;
  void set_in_codes(bool in_codes) override;

  /// The parameters of both directions.
  void directions(ParameterVisitor& visitor);
  void output_format(ParameterVisitor& visitor);

  Eigen::Index input_rows() const { return forward_.rows(); }
  Eigen::Index output_rows() const;
  Eigen::Index cells() const { return forward_.cells(); }
  bool fits(const BLSTMLayerState& state) const {
    return forward_.fits(state.forward) && backward_.fits(state.backward);
  }
  /// Both directions over `frames` frames at x, the backward one after `future` frames more; output_rows() values per
  /// frame at y.
  void run(const float* x, Eigen::Index frames, Eigen::Index future, BLSTMLayerState& state, float* y) const;

 private:
  LSTMDirection forward_{true}, backward_{true};
  std::int32_t output_format_ = 0;
};

using CompressedBLSTMLayer = Compressed<BLSTMLayer>;
using QuantizedBLSTMLayer = QuantizedRecurrent<BLSTMLayer>;

}  // namespace meridane
