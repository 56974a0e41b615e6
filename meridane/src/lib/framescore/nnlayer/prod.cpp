#include "lib/framescore/nnlayer/prod.h"

namespace meridane {

MinibatchPtr ProdLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, bias_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  if (x.size() > 0) y->content() = x.content().array().colwise() * bias_.map().array();
  return y;
}

}  // namespace meridane
