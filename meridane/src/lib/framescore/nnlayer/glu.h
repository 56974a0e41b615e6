#pragma once

#include "lib/framescore/nnlayer/sloped.h"

namespace meridane {

/// With R = rows / 2 (an odd last row is dropped), p = rows 0 to R - 1 and q = rows R to 2 R - 1:
/// t = slope q - bias; y = p / (1 + exp(-t)), R rows.
class GLULayer : public SlopedLayer {
 public:
  using SlopedLayer::SlopedLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "GLU"; }
};

}  // namespace meridane
