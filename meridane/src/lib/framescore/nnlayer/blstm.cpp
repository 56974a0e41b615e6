#include "lib/framescore/nnlayer/blstm.h"

namespace meridane {
namespace {

enum OutputFormat : std::int32_t { kConcat = 0, kSum = 1, kUnknown = -1 };

constexpr Words kOutputFormats = {.value = [](const std::optional<std::string>& word) -> std::int32_t {
                                    return !word || word == "concat" ? kConcat : word == "sum" ? kSum : kUnknown;
                                  },
                                  .word = [](std::int32_t value) { return value == kSum ? "sum" : "concat"; }};

}  // namespace

void BLSTMLayer::set_in_codes(bool in_codes) {
  forward_.set_in_codes(in_codes);
  backward_.set_in_codes(in_codes);
}

void BLSTMLayer::directions(ParameterVisitor& visitor) {
  if (forward_.in_codes()) {
    forward_.nested_parameters(visitor, "forward");
    backward_.nested_parameters(visitor, "backward");
  } else {
    forward_.parameters(visitor, "forward_");
    backward_.parameters(visitor, "backward_");
  }
}

void BLSTMLayer::output_format(ParameterVisitor& visitor) {
  visitor.word("output_format", output_format_, kOutputFormats);
}

void BLSTMLayer::parameters(ParameterVisitor& visitor) {
  directions(visitor);
  output_format(visitor);
}

void BLSTMLayer::loaded() {
  if (output_format_ != kConcat && output_format_ != kSum) raise("Invalid value for attribute output_format.");
  forward_.check("LSTM", "forward_");
  backward_.check("LSTM", "backward_");
  const bool alike = forward_.cells() == backward_.cells() && forward_.rows() == backward_.rows();
  if (!alike || input_rows() < 1) raise_invalid_format();
  settle(forward_);
  settle(backward_);
}

std::shared_ptr<NNLayerState> BLSTMLayer::create_state() const { return std::make_shared<BLSTMLayerState>(cells()); }

Eigen::Index BLSTMLayer::output_rows() const { return output_format_ == kSum ? cells() : 2 * cells(); }

MinibatchPtr BLSTMLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, input_rows());
  auto* const own = dynamic_cast<BLSTMLayerState*>(state.get());
  if (own == nullptr || !fits(*own)) raise_foreign_state();
  MinibatchPtr y = inputs.result(output_rows(), x.content().cols());
  run(x.content().data(), x.content().cols(), 0, *own, y->content().data());
  return y;
}

void BLSTMLayer::run(const float* x, Eigen::Index frames, Eigen::Index future, BLSTMLayerState& state, float* y) const {
  if (frames == 0) return;  // what would be pointed into may be nowhere
  using Order = LSTMDirection::Order;
  const bool sum = output_format_ == kSum;
  forward_.run(x, frames, Order::forward, state.forward, y, output_rows());
  backward_.run(x + frames * input_rows(), future, Order::reversed, state.backward, nullptr, 0);
  backward_.run(x, frames, Order::reversed, state.backward, sum ? y : y + cells(), output_rows(),
                sum ? LSTMDirection::Output::added : LSTMDirection::Output::written);
}

}  // namespace meridane
