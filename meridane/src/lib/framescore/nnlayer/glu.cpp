#include "lib/framescore/nnlayer/glu.h"

#include "lib/kernels/element_wise.h"

namespace meridane {

MinibatchPtr GLULayer::forward(const LayerInputs& inputs) const {
  const Matrix& x = only_input(inputs)->content();
  const Eigen::Index R = x.rows() / 2;
  MinibatchPtr y = inputs.result(R, x.cols());
  for (Eigen::Index t = 0; t < x.cols(); ++t) {
    const float* const p = x.col(t).data();
    gated(p, p + R, static_cast<std::size_t>(R), slope_, bias_, y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
