#pragma once

#include <vector>

#include "lib/framescore/nnlayer/blstm.h"

namespace meridane {

struct LCBLSTMLayerState : BLSTMLayerState {
  using BLSTMLayerState::BLSTMLayerState;
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<LCBLSTMLayerState>(*this); }
  std::uint64_t bytes() const override { return BLSTMLayerState::bytes() + held_bytes(buffer); }

  std::vector<float> buffer;  ///< frames not yet consumed, one after the other
};

/// A latency-controlled BLSTM, for streams. It goes through its frames in units; in each the forward direction goes on
/// from where it was, and the backward direction starts from zeros at the unit's last frame.
///
/// With store_buffer a unit is chunk_size frames and the future_chunk_size frames behind them, which only the backward
/// direction looks at and which are the first frames of the next unit. Frames that fill no unit yet wait in the state,
/// so a call may give no frames. They are served as one shorter unit without a future, that is, none is lost,
///  - by a call of 0 rows and 0 frames, or by LayerInputs::is_last(): the end of the stream;
///  - behind a call of more frames than a unit has: such a call ends with all its frames served;
///  - without a state, where the call is the whole stream.
/// Calls of other lengths, cut anywhere, give together what one call over all of their frames does.
///
/// Without store_buffer the caller cuts the stream: units are chunk_size + future_chunk_size frames, the last one of a
/// call maybe fewer, all of which are put out, and nothing waits. Calls of whole units give together what one call
/// does.
///
/// Record: the matrices of BLSTM, then int chunk_size (at least 1), int future_chunk_size (at least 0), int
/// store_buffer (not 0 is true), int output_format (0 concat, 1 sum). Attributes: chunk_size, future_chunk_size, both
/// mandatory; store_buffer ("on", "true" and "1" are true; default false), output_format (concat or sum, default
/// concat).
class LCBLSTMLayer : public BLSTMLayer {
 public:
  using BLSTMLayer::BLSTMLayer;

  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  MinibatchPtr forward(const LayerInputs& inputs) const override;
  bool is_variable_length() const override { return true; }

 protected:
  std::string tag() const override { return "LCBLSTM"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  MinibatchPtr step(const LayerInputs& inputs, LCBLSTMLayerState& state, bool is_last) const;
  void forward_unit(const float* x, Eigen::Index frames, Eigen::Index future, LCBLSTMLayerState& state, float* y) const;

  std::int32_t chunk_size_ = 0;
  std::int32_t future_chunk_size_ = 0;
  std::int32_t store_buffer_ = 0;
};

using CompressedLCBLSTMLayer = Compressed<LCBLSTMLayer>;
using QuantizedLCBLSTMLayer = QuantizedRecurrent<LCBLSTMLayer>;

}  // namespace meridane
