#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// y = rows start to end of each frame, the latter included, as Minibatch::slice has it: only frames of one axis are
/// cut, and only with step 1. Rows that the frames don't have are a mismatch; of a minibatch without frames
/// nothing is left then, as at a stream's end.
/// Record: 8-byte axis, start, end, step. Attributes: the same (default 0, 0, 0, 1).
class SliceLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  std::string tag() const override { return "Slice"; }
  void parameters(ParameterVisitor& visitor) override;

 private:
  std::uint64_t axis_ = 0;
  std::uint64_t start_ = 0;
  std::uint64_t end_ = 0;
  std::uint64_t step_ = 1;
};

}  // namespace meridane
