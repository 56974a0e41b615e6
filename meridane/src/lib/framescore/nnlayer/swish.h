#pragma once

#include "lib/framescore/nnlayer/sloped.h"

namespace meridane {

/// t = slope x - bias; y = x / (1 + exp(-t)), element by element.
class SwishLayer : public SlopedLayer {
 public:
  using SlopedLayer::SlopedLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Swish"; }
};

}  // namespace meridane
