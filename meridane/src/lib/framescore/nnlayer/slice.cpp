#include "lib/framescore/nnlayer/slice.h"

namespace meridane {

void SliceLayer::parameters(ParameterVisitor& visitor) {
  visitor.size("axis", axis_, 0);
  visitor.size("start", start_, 0);
  visitor.size("end", end_, 0);
  visitor.size("step", step_, 1);
}

MinibatchPtr SliceLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  const Eigen::Index frames = x.content().cols();
  const bool has_rows = end_ < static_cast<std::uint64_t>(x.content().rows());
  if (frames == 0 && !has_rows) return inputs.result(0, 0);
  const std::uint64_t rows = x.slice_rows(axis_, start_, end_, step_);
  if (!has_rows) raise_dimension_mismatch();
  MinibatchPtr y = inputs.result(static_cast<Eigen::Index>(rows), frames);
  if (frames > 0) y->content() = x.content().middleRows(static_cast<Eigen::Index>(start_), y->content().rows());
  return y;
}

}  // namespace meridane
