#include "lib/framescore/nnlayer/batchnorm.h"

#include "lib/framescore/nnlayer/norm_messages.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {

void BatchNormLayer::parameters(ParameterVisitor& visitor) {
  visitor.column("weight", weight_, kNormDimensions);
  visitor.column("bias", bias_, kNormDimensions);
  visitor.column("mean", mean_, kNormDimensions);
  visitor.column("var", var_, kNormDimensions);
  visitor.number("eps", eps_, 1e-5f);
}

void BatchNormLayer::loaded() {
  for (const StoredVector* vector : {&bias_, &mean_, &var_}) {
    if (vector->size() != weight_.size()) raise({kNormShape}, id().c_str());
  }
  scale_ = weight_.map().array() / (var_.map().array() + eps_).sqrt();
}

MinibatchPtr BatchNormLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, scale_.size());
  MinibatchPtr y = inputs.result(x.shape(), x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    standardise(x.content().col(t).data(), static_cast<std::size_t>(scale_.size()), mean_.data(), scale_.data(),
                bias_.data(), y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
