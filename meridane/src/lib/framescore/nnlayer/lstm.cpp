#include "lib/framescore/nnlayer/lstm.h"

namespace meridane {

void LSTMLayer::loaded() {
  direction_.check(family());
  settle(direction_);
}

std::shared_ptr<NNLayerState> LSTMLayer::create_state() const {
  return std::make_shared<LSTMLayerState>(direction_.cells());
}

MinibatchPtr LSTMLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, direction_.rows());
  auto* const own = dynamic_cast<LSTMLayerState*>(state.get());
  if (own == nullptr || !direction_.fits(own->memory)) raise_foreign_state();
  const Eigen::Index frames = x.content().cols();
  MinibatchPtr y = inputs.result(direction_.cells(), frames);
  direction_.run(x.content().data(), frames, LSTMDirection::Order::forward, own->memory, y->content().data(),
                 direction_.cells());
  return y;
}

}  // namespace meridane
