#include "lib/framescore/nnlayer/relu.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr ReLULayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  leaky_rectifier(x.content().data(), static_cast<std::size_t>(x.content().size()), 0.0f, y->content().data());
  return y;
}

}  // namespace meridane
