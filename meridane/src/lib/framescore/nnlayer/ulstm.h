#pragma once

#include "lib/framescore/nnlayer/lstm.h"

namespace meridane {

/// An LSTM with a second bias, for the recurrent product.
/// Record: upward_weight (4N x D), upward_bias (4N), lateral_weight (4N x N), lateral_bias (4N).
class ULSTMLayer : public LSTMLayer {
 public:
  ULSTMLayer(std::string id, std::string type) : LSTMLayer(std::move(id), std::move(type), true) {}

 protected:
  std::string tag() const override { return "ULSTM"; }
  const char* family() const override { return "ULSTM"; }
};

using CompressedULSTMLayer = Compressed<ULSTMLayer>;
using QuantizedULSTMLayer = QuantizedRecurrent<ULSTMLayer>;

}  // namespace meridane
