#include "lib/framescore/nnlayer/fullyconnected.h"

namespace meridane {

void FullyConnectedLayer::parameters(ParameterVisitor& visitor) {
  visitor.weight("weight", weight_);
  visitor.vector("bias", bias_);
}

void FullyConnectedLayer::loaded() {
  if (bias_.size() != weight_.rows()) raise_invalid_format();
  pack(weight_);
}

MinibatchPtr FullyConnectedLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, weight_.cols());
  const Eigen::Index frames = x.content().cols();
  MinibatchPtr y = inputs.result(weight_.rows(), frames);
  weight_.multiply(x.content().data(), weight_.cols(), frames, bias_.data(), y->content().data(), weight_.rows());
  return y;
}

}  // namespace meridane
