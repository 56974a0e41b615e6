#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Gives frames the encodings of the distances between them, as PositionedFrames packs and PositionTable defines them:
/// for a call of T frames those of all distances of less than L frames, L = T for the first call of a stream and
/// T + cache_frame for the others. A call without frames gives none and isn't counted.
/// Record: int cache_frame, int reserve (the step in which the table of encodings grows; 0: as needed). Attributes: the
/// same two (default 0).
class RelPositionalEncodingLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  std::shared_ptr<NNLayerState> create_state() const override;
  MinibatchPtr forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const override;
  /// A stream of one call.
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }

 protected:
  std::string tag() const override { return "RelPosEnc"; }
  std::string class_name() const override { return "RelPositionalEncodingLayer"; }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  std::int32_t cache_frame_ = 0;
  std::int32_t reserve_ = 0;
};

}  // namespace meridane
