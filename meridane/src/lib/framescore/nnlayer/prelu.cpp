#include "lib/framescore/nnlayer/prelu.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr PReLULayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  leaky_rectifier(x.content().data(), static_cast<std::size_t>(x.content().size()), a_, y->content().data());
  return y;
}

}  // namespace meridane
