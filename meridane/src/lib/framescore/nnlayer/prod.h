#pragma once

#include "lib/framescore/nnlayer/bias.h"

namespace meridane {

/// y = x * bias, element by element in each frame. Record: bias, the vector of scales.
class ProdLayer : public BiasLayer {
 public:
  using BiasLayer::BiasLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Prod"; }
};

using CompressedProdLayer = Compressed<ProdLayer>;

}  // namespace meridane
