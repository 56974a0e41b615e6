#include "lib/framescore/nnlayer/concat.h"

namespace meridane {

MinibatchPtr ConcatLayer::forward(const LayerInputs& inputs) const {
  if (inputs.size() > 0) expect_inputs(inputs);  // what a list without any is, concatenate() says
  MinibatchPtr y = inputs.result();
  y->concatenate(inputs.streams(), axis_);
  return y;
}

}  // namespace meridane
