#include "lib/framescore/nnlayer/globallayernorm.h"

#include <cmath>

namespace meridane {

MinibatchPtr GlobalLayerNormLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, weight_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  if (x.content().size() == 0) return y;
  // Over a whole call there are many terms: sums of columns keep their rounding errors small, and those of differences
  // from one of the values are 0 where all are equal.
  const auto count = static_cast<double>(x.content().size());
  const float first = x.content()(0, 0);
  const double offset = (x.content().array() - first).colwise().sum().cast<double>().sum() / count;
  const auto m = static_cast<float>(static_cast<double>(first) + offset);
  const double v = (x.content().array() - m).square().colwise().sum().cast<double>().sum() / count;
  const auto d = static_cast<float>(std::sqrt(v + static_cast<double>(eps_)));
  y->content() = (((x.content().array() - m) / d).colwise() * weight_.map().array()).colwise() + bias_.map().array();
  return y;
}

}  // namespace meridane
