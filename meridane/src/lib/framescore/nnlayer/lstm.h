#pragma once

#include "lib/framescore/nnlayer/recurrent_layer.h"

namespace meridane {

struct LSTMLayerState : NNLayerState {
  explicit LSTMLayerState(Eigen::Index cells) : memory(cells) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<LSTMLayerState>(*this); }
  std::uint64_t bytes() const override { return memory.bytes(); }

  LSTMMemory memory;
};

/// An LSTM that runs forward in time, as LSTMDirection states it; N rows out. Frames in chunks give what one call does.
/// Record: upward_weight (4N x D), upward_bias (4N), lateral_weight (4N x N).
class LSTMLayer : public RecurrentLayer {
 public:
  LSTMLayer(std::string id, std::string type) : LSTMLayer(std::move(id), std::move(type), false) {}

  std::shared_ptr<NNLayerState> create_state() const override;
  using RecurrentLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;

 protected:
  LSTMLayer(std::string id, std::string type, bool has_lateral_bias)
      : RecurrentLayer(std::move(id), std::move(type)), direction_(has_lateral_bias) {}

  std::string tag() const override { return "LSTM"; }
  void parameters(ParameterVisitor& visitor) override { direction_.parameters(visitor); }
  void loaded() override;
  void set_in_codes(bool in_codes) override { direction_.set_in_codes(in_codes); }
  /// What its messages call the layer.
  virtual const char* family() const { return "LSTM"; }

 private:
  LSTMDirection direction_;
};

using CompressedLSTMLayer = Compressed<LSTMLayer>;
using QuantizedLSTMLayer = QuantizedRecurrent<LSTMLayer>;

}  // namespace meridane
