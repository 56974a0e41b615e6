#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = the inputs one under the other along the axis, in the order of the links; only frames of one axis can be joined,
/// and all inputs have as many.
/// Record: 8-byte axis. Attribute: axis (default 0).
class ConcatLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Concat"; }
  void parameters(ParameterVisitor& visitor) override { visitor.size("axis", axis_, 0); }

 private:
  std::uint64_t axis_ = 0;
};

}  // namespace meridane
