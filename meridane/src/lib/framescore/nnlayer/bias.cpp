#include "lib/framescore/nnlayer/bias.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

void BiasLayer::parameters(ParameterVisitor& visitor) { visitor.vector("bias", bias_); }

void BiasLayer::set_bias(const Vector& bias) {
  if (bias.size() == 0 || (bias_.size() != 0 && bias.size() != bias_.size())) raise_dimension_mismatch();
  auto block = alloc_param("bias", bias.size(), 1);
  std::copy_n(bias.data(), bias.size(), block.get());
  bias_.set(std::move(block), bias.size());
}

MinibatchPtr BiasLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, bias_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    add(x.content().col(t).data(), static_cast<std::size_t>(bias_.size()), bias_.data(), y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
