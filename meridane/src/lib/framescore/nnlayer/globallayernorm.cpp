#include "lib/framescore/nnlayer/globallayernorm.h"

#include <cmath>

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr GlobalLayerNormLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, weight_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  if (x.content().size() == 0) return y;
  // Over a whole call there are many terms: sums of columns keep their rounding errors small, and those of differences
  // from one of the values are 0 where all are equal.
  const auto rows = static_cast<std::size_t>(x.content().rows());
  const auto mean_of_columns = [&](auto sum_of_column) {
    double sum = 0;
    for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
      sum += static_cast<double>(sum_of_column(x.content().col(t).data()));
    }
    return sum / static_cast<double>(x.content().size());
  };
  const float first = x.content()(0, 0);
  const double offset = mean_of_columns([&](const float* column) { return sum_from(column, rows, first); });
  const auto m = static_cast<float>(static_cast<double>(first) + offset);
  const double v = mean_of_columns([&](const float* column) { return squares_from(column, rows, m); });
  const auto inverse = static_cast<float>(1 / std::sqrt(v + static_cast<double>(eps_)));
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    normalise_by(x.content().col(t).data(), rows, m, inverse, weight_.data(), bias_.data(), y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
