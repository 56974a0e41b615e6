#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = bias + (x - mean) / sqrt(var + eps) * weight in each frame. Record: weight, bias, mean, var, float eps.
/// Attribute: eps (default 1e-5).
class BatchNormLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "BatchNorm"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  StoredVector weight_, bias_, mean_, var_;
  float eps_ = 1e-5f;
  Vector scale_;  ///< weight / sqrt(var + eps)
};

using CompressedBatchNormLayer = Compressed<BatchNormLayer>;

}  // namespace meridane
