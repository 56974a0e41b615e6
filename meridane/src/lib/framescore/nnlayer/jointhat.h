#pragma once

#include "lib/framescore/nnlayer/joint.h"

namespace meridane {

/// Joins an encoder (x) and a decoder (g) as JointLayer does, for a transducer whose blank is a decision of its own:
///   h = tanh(lin_enc_weight x + lin_dec_weight g + lin_bias)
///   b = s(lin_out_blk_weight h + lin_out_blk_bias), with s(a) = 1 / (1 + exp(-a))
///   p = softmax of lin_out_weight h + lin_out_bias
///   y = log b in row 0, log((1 - b) p) in the rows behind it
/// so that the exponentials of a frame sum to 1.
/// The state keeps the decoder's newest frame: a call whose decoder has none goes on with it. The first call of a
/// stream has one, unless its encoder has no frames either.
/// Record: that of JointLayer, lin_out_blk_weight (one row), lin_out_blk_bias.
class JointHATLayer : public JointLayer {
 public:
  using JointLayer::JointLayer;
  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  /// A stream of one call.
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }

 protected:
  std::string tag() const override { return "JointHAT"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  Linear blank_;
};

using CompressedJointHATLayer = Compressed<JointHATLayer>;

}  // namespace meridane
