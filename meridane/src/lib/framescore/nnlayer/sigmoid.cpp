#include "lib/framescore/nnlayer/sigmoid.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr SigmoidLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  logistic(x.content().data(), static_cast<std::size_t>(x.content().size()), slope_, bias_, y->content().data());
  return y;
}

}  // namespace meridane
