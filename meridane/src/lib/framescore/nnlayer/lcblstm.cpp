#include "lib/framescore/nnlayer/lcblstm.h"

namespace meridane {
namespace {

constexpr Words kSwitch = {.value = [](const std::optional<std::string>& word) -> std::int32_t {
                             return word == "on" || word == "true" || word == "1" ? 1 : 0;
                           },
                           .word = [](std::int32_t value) { return value != 0 ? "true" : "false"; }};

}  // namespace

void LCBLSTMLayer::parameters(ParameterVisitor& visitor) {
  directions(visitor);
  visitor.mandatory("chunk_size", chunk_size_);
  visitor.mandatory("future_chunk_size", future_chunk_size_);
  visitor.word("store_buffer", store_buffer_, kSwitch);
  output_format(visitor);
}

void LCBLSTMLayer::loaded() {
  if (chunk_size_ < 1) raise("Incorrect \"chunk_size\" for \"LCBLSTM\"");
  if (future_chunk_size_ < 0) raise("Incorrect \"future_chunk_size\" for \"LCBLSTM\"");
  store_buffer_ = store_buffer_ != 0 ? 1 : 0;  // whatever stands in a record, as in a document
  BLSTMLayer::loaded();
}

std::shared_ptr<NNLayerState> LCBLSTMLayer::create_state() const {
  return std::make_shared<LCBLSTMLayerState>(cells());
}

MinibatchPtr LCBLSTMLayer::forward(const LayerInputs& inputs) const {
  LCBLSTMLayerState state(cells());
  return step(inputs, state, true);
}

MinibatchPtr LCBLSTMLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, input_rows());
  auto* const own = dynamic_cast<LCBLSTMLayerState*>(state.get());
  if (own == nullptr || !fits(*own)) raise_foreign_state();
  const bool is_flush = x.content().rows() == 0 && x.content().cols() == 0;
  return step(inputs, *own, is_flush || inputs.is_last());
}

MinibatchPtr LCBLSTMLayer::step(const LayerInputs& inputs, LCBLSTMLayerState& state, bool is_last) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, input_rows());
  const bool store = store_buffer_ != 0;
  const Eigen::Index D = input_rows();
  const Eigen::Index unit = Eigen::Index{chunk_size_} + future_chunk_size_;
  const Eigen::Index chunk = store ? chunk_size_ : unit;
  const Eigen::Index future = unit - chunk;
  const Eigen::Index frames = static_cast<Eigen::Index>(state.buffer.size()) / D + x.content().cols();
  const Eigen::Index chunks = frames < unit ? 0 : (frames - unit) / chunk + 1;
  const Eigen::Index rest = frames - chunks * chunk;
  const bool serves_all = !store || is_last || x.content().cols() > unit;

  MinibatchPtr result = inputs.result(output_rows(), serves_all ? frames : frames - rest);
  const float* from = x.content().data();
  if (store) {
    state.buffer.insert(state.buffer.end(), from, from + x.content().size());
    from = state.buffer.data();
  }
  float* to = result->content().data();
  for (Eigen::Index k = 0; k < chunks; ++k) {
    forward_unit(from + k * chunk * D, chunk, future, state, to + k * chunk * output_rows());
  }
  if (serves_all) forward_unit(from + chunks * chunk * D, rest, 0, state, to + chunks * chunk * output_rows());
  const auto consumed = static_cast<std::ptrdiff_t>(result->size()) * D;
  if (store) state.buffer.erase(state.buffer.begin(), state.buffer.begin() + consumed);
  return result;
}

void LCBLSTMLayer::forward_unit(const float* x, Eigen::Index frames, Eigen::Index future, LCBLSTMLayerState& state,
                                float* y) const {
  state.backward.clear();
  run(x, frames, future, state, y);
}

}  // namespace meridane
