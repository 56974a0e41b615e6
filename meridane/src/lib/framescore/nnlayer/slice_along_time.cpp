#include "lib/framescore/nnlayer/slice_along_time.h"

#include <algorithm>

#include "meridane/error.h"

namespace meridane {

void SliceAlongTime::parameters(ParameterVisitor& visitor) {
  visitor.whole("start", start_, 0, 0);
  visitor.whole("end", end_, kAll, 0);
}

MinibatchPtr SliceAlongTime::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  const Eigen::Index frames = x.content().cols();
  if (start_ >= frames) {
    raise("Start idx is larger or equal to the input size. Nothing can be output. %d vs %d", start_,
          static_cast<int>(frames));
  }
  const Eigen::Index end = std::min<Eigen::Index>(end_, frames);
  if (start_ >= end) {
    raise("Start idx is larger or equal to end idx. Nothing can be output. %d vs %d", start_, static_cast<int>(end));
  }
  MinibatchPtr y = inputs.result(x.shape(), end - start_);
  y->content() = x.content().middleCols(start_, end - start_);
  return y;
}

}  // namespace meridane
