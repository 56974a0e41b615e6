#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// In each frame, with m = max x: e(i) = exp((x(i) - m) / temperature); y(i) = e(i) / sum of e.
/// Record: float temperature. Attribute: temperature (default 1).
class SoftmaxLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Softmax"; }
  void parameters(ParameterVisitor& visitor) override { visitor.number("temperature", temperature_, 1); }

 private:
  float temperature_ = 1;
};

}  // namespace meridane
