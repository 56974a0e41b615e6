#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = max(0, x), element by element; what is no number stays so. Record: nothing.
class ReLULayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "ReLU"; }
  void parameters(ParameterVisitor&) override {}
};

}  // namespace meridane
