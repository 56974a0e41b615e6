#pragma once

#include "lib/framescore/nnlayer/fullyconnected.h"

namespace meridane {

/// y = bias + W x in each frame, W in 8 bits. Record: the quantized weight, bias. With the plain tag the record is that
/// of FullyConnected, and its weight is quantized when it is loaded.
class QuantizedFullyConnectedLayer : public FullyConnectedLayer {
 public:
  using FullyConnectedLayer::FullyConnectedLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

  /// Reads what the type says: "FullyConnected" the float form, else the quantized one.
  void load_binary(std::istream& stream) override;
  void load_xml(const XmlElement& element) override;

 protected:
  std::string tag() const override;
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  QuantizedMatrix quantized_;
  bool is_float_ = false;  ///< while a float form is being loaded
};

}  // namespace meridane
