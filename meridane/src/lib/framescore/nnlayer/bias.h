#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = x + bias in each frame. Record: bias, a vector.
class BiasLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;
  /// Of the size of the present bias, if there is one.
  void set_bias(const Vector& bias) override;

 protected:
  std::string tag() const override { return "Bias"; }
  void parameters(ParameterVisitor& visitor) override;

  StoredVector bias_;
};

}  // namespace meridane
