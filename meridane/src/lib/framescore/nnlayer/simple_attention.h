#pragma once

#include "lib/framescore/nnlayer/linear.h"
#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// The mean of all frames x of a stream so far, weighted by how well each answers a fixed context:
///   u(t) = tanh(weight x(t) + bias)
///   s(t) = context . u(t)
///   y = sum of exp(s(t)) x(t) / sum of exp(s(t))
/// A call takes its frames in and gives y, one frame; none while there has been none. Without a state, the stream is
/// the call. Both sums are kept relative to the largest exponential, so that none overflows, and in double precision,
/// so that late frames of a long stream still count.
/// Record: weight (any number of rows x size of x), bias, context. Attribute: input_size, the columns of weight,
/// optional.
class SimpleAttentionLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, nullptr); }

 protected:
  std::string tag() const override { return "SimpleAttention"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  std::int32_t input_size_ = 0;
  Linear linear_;
  StoredVector context_;
};

using CompressedSimpleAttentionLayer = Compressed<SimpleAttentionLayer>;

}  // namespace meridane
