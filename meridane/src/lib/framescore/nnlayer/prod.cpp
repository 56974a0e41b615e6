#include "lib/framescore/nnlayer/prod.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr ProdLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, bias_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    scale(x.content().col(t).data(), static_cast<std::size_t>(bias_.size()), bias_.data(), y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
