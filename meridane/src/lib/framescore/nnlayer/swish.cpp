#include "lib/framescore/nnlayer/swish.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr SwishLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  meridane::swish(x.content().data(), static_cast<std::size_t>(x.content().size()), slope_, bias_, y->content().data());
  return y;
}

}  // namespace meridane
