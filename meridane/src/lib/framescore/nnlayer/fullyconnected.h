#pragma once

#include "lib/framescore/nnlayer/bias.h"

namespace meridane {

/// y = bias + weight x in each frame. Record: weight, bias.
class FullyConnectedLayer : public BiasLayer {
 public:
  using BiasLayer::BiasLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "FullyConnected"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

  Weight weight_;
};

using CompressedFullyConnectedLayer = Compressed<FullyConnectedLayer>;

}  // namespace meridane
