#pragma once

#include "lib/framescore/nnlayer/linear.h"
#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Scaled dot-product self-attention of one head over the T frames of a call, n being input_size:
///   (q; k; v)(t) = in_weight x(t) + in_bias       three blocks of n rows
///   w(s, t) = exp(q(t) . k(s) / sqrt(n)) / sum of these over s
///   y(t) = out_weight (sum over s of w(s, t) v(s)) + out_bias
/// There is no state: how a stream is cut changes the result.
/// Record: 4-byte input_size, in_weight (3n x n), in_bias, out_weight (outputs x n), out_bias. Attribute: input_size,
/// mandatory.
class AttentionLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Attention"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  std::int32_t input_size_ = 0;
  Linear in_;
  Linear out_;
};

using CompressedAttentionLayer = Compressed<AttentionLayer>;

}  // namespace meridane
