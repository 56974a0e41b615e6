#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// In each frame, with the mean m and the variance v (divided by the number of rows) of x:
/// y = (x - m) / sqrt(v + eps) * weight + bias. Record: weight, bias, float eps. Attribute: eps (default 1e-5).
class LayerNormLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "LayerNorm"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

  StoredVector weight_, bias_;
  float eps_ = 1e-5f;
};

using CompressedLayerNormLayer = Compressed<LayerNormLayer>;

}  // namespace meridane
