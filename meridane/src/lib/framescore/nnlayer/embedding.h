#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Each frame holds one index, truncated to an integer; y is that row of the table. The table is stored with one vector
/// per row: weight is (number of vectors) x (size of a vector). An index outside of it, or one that is no number, is an
/// error. Record: weight.
class EmbeddingLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;
  LayerSize size() const override;

 protected:
  std::string tag() const override { return "Embedding"; }
  void parameters(ParameterVisitor& visitor) override;

 private:
  Weight weight_;
};

using CompressedEmbeddingLayer = Compressed<EmbeddingLayer>;

}  // namespace meridane
