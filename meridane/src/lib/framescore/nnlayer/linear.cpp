#include "lib/framescore/nnlayer/linear.h"

#include "meridane/error.h"

namespace meridane {

void Linear::expect(const Minibatch& x) const {
  if (x.size() == 0 || x.content().rows() == weight.cols()) return;
  raise<DimensionMismatchError>("Dimension mismatch in layer Attention::Linear");
}

void Linear::forward(const Matrix& x, Matrix& y) const {
  y.resize(weight.rows(), x.cols());
  if (x.cols() > 0) weight.multiply(x.data(), x.rows(), x.cols(), bias.data(), y.data(), y.rows());
}

}  // namespace meridane
