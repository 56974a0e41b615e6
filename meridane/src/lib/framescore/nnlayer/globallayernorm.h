#pragma once

#include "lib/framescore/nnlayer/layernorm.h"

namespace meridane {

/// With the mean m and the variance v of all elements of all frames of the call:
/// y(i) = (x(i) - m) / sqrt(v + eps) * weight(i) + bias(i). The bounds of a chunk change its result. Record as that of
/// LayerNorm.
class GlobalLayerNormLayer : public LayerNormLayer {
 public:
  using LayerNormLayer::LayerNormLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "GlobalLayerNorm"; }
  std::string description() const override { return "LayerNorm Layer"; }
};

using CompressedGlobalLayerNormLayer = Compressed<GlobalLayerNormLayer>;

}  // namespace meridane
