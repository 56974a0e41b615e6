#include "lib/framescore/nnlayer/softmax.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr SoftmaxLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  const auto rows = static_cast<std::size_t>(x.content().rows());
  if (rows == 0) return y;
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    softmax(x.content().col(t).data(), rows, temperature_, y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
