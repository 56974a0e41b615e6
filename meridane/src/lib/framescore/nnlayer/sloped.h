#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// What the layers around a logistic function or hyperbolic tangent share: t = slope x - bias (the bias is subtracted).
/// Record: float slope, float bias. Attributes: slope (default 1), bias (default 0).
class SlopedLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;

 protected:
  void parameters(ParameterVisitor& visitor) override;

  float slope_ = 1;
  float bias_ = 0;
};

}  // namespace meridane
