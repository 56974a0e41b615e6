#include "lib/framescore/nnlayer/layernorm.h"

#include "lib/framescore/nnlayer/norm_messages.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {

void LayerNormLayer::parameters(ParameterVisitor& visitor) {
  visitor.column("weight", weight_, kNormDimensions);
  visitor.column("bias", bias_, kNormDimensions);
  visitor.number("eps", eps_, 1e-5f);
}

void LayerNormLayer::loaded() {
  if (bias_.size() != weight_.size()) raise({kNormShape}, id().c_str());
}

MinibatchPtr LayerNormLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, weight_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    normalise(x.content().col(t).data(), static_cast<std::size_t>(weight_.size()), weight_.data(), bias_.data(), eps_,
              y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
