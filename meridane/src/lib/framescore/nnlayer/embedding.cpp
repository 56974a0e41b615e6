#include "lib/framescore/nnlayer/embedding.h"

#include "meridane/error.h"
#include "meridane/io/number_text.h"

namespace meridane {

void EmbeddingLayer::parameters(ParameterVisitor& visitor) { visitor.weight("weight", weight_); }

LayerSize EmbeddingLayer::size() const { return {.parameters = ParameterLayer::size().parameters, .multiply_adds = 0}; }

MinibatchPtr EmbeddingLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, 1);
  const Eigen::Index frames = x.content().cols();
  MinibatchPtr y = inputs.result(weight_.cols(), frames);
  for (Eigen::Index t = 0; t < frames; ++t) {
    const float index = x.content()(0, t);
    if (!(index > -1.0f && index < static_cast<float>(weight_.rows()))) {
      raise("Index %s is not in the table of layer %s", number_text(index).c_str(), id().c_str());
    }
    weight_.row(static_cast<Eigen::Index>(index), y->content().col(t).data());
  }
  return y;
}

}  // namespace meridane
