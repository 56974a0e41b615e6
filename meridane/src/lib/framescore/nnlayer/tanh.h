#pragma once

#include "lib/framescore/nnlayer/sloped.h"

namespace meridane {

/// t = slope x - bias; y = tanh(t), element by element.
class TanhLayer : public SlopedLayer {
 public:
  using SlopedLayer::SlopedLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Tanh"; }
};

}  // namespace meridane
