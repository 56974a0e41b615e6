#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = sum (mode add) or product (mode product) of all inputs, element by element. They have the same rows and frames;
/// where none has frames, rows don't count. The shape is that of input 0.
/// Record: string mode. Attribute: mode, mandatory. Another mode is refused when the layer is loaded.
class MergeLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Merge"; }
  void parameters(ParameterVisitor& visitor) override { visitor.mandatory_text("mode", mode_); }
  void loaded() override;

 private:
  std::string mode_;
};

}  // namespace meridane
