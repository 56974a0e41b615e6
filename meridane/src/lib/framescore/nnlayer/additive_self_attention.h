#pragma once

#include "lib/framescore/nnlayer/linear.h"
#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// The mean of the frames x of a call, weighted by an additive score against a fixed query:
///   k(t) = key_weight x(t) + key_bias
///   s(t) = scaling (gvec_weight tanh(k(t) + query) + gvec_bias)
///   y = sum of exp(s(t)) x(t) / sum of exp(s(t))
/// y is one frame; none for a call without frames. There is no state: how a stream is cut changes the result.
/// Record: float scaling, key_weight (any number of rows x size of x), key_bias, query, gvec_weight (one row),
/// gvec_bias. Attributes: scaling (default 1); input_size, the columns of key_weight, optional.
class AdditiveSelfAttentionLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "AdditiveSelfAttention"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  std::int32_t input_size_ = 0;
  float scaling_ = 1;
  Linear key_;
  StoredVector query_;
  Weight gvec_weight_;
  StoredVector gvec_bias_;
};

using CompressedAdditiveSelfAttentionLayer = Compressed<AdditiveSelfAttentionLayer>;

}  // namespace meridane
