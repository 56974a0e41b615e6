#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = max(0, x) + a min(0, x), element by element. Record: float a. Attribute: a (default 0.25).
class PReLULayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "PReLU"; }
  void parameters(ParameterVisitor& visitor) override { visitor.number("a", a_, 0.25f); }

 private:
  float a_ = 0.25f;
};

}  // namespace meridane
