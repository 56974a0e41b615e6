#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Hands its input on and writes it to the log, behind "Layer:" and its name. Record: layer_name, a string. Attribute:
/// layer_name, optional.
class PrintLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Print"; }
  void parameters(ParameterVisitor& visitor) override { visitor.text("layer_name", layer_name_); }

 private:
  std::string layer_name_;
};

}  // namespace meridane
