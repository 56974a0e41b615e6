#pragma once

#include "meridane/framescore/nnlayer/nnlayer.h"

namespace meridane {

/// The start of every network: hands its single input on. It has no stored form.
class InputLayer : public NNLayer {
 public:
  InputLayer() : NNLayer("_input", "Input") {}
  void load_binary(std::istream& stream) override;
  void dump_binary(std::ostream& stream) const override;
  void load_xml(const XmlElement& element) override;
  void dump_xml(XmlElement& parent, XmlDocument& document) const override;
  using NNLayer::forward;
  MinibatchPtr forward(const LayerInputs& inputs) const override;
};

}  // namespace meridane
