#pragma once

#include "lib/framescore/nnlayer/fullyconnected.h"

namespace meridane {

/// y = bias + W x in each frame, W in 8 bits. Record: the quantized weight, bias. One that is made as "FullyConnected"
/// reads the record of that type and quantizes its weight; the layer is a "QuantizedFullyConnected" all the same.
/// Frames of another size are refused in whichever form the weight came: a product of theirs would read beyond them.
class QuantizedFullyConnectedLayer : public FullyConnectedLayer {
 public:
  QuantizedFullyConnectedLayer(std::string id, const std::string& type)
      : FullyConnectedLayer(std::move(id), kQuantizedType), reads_float_(type != kQuantizedType) {}
  MinibatchPtr forward(const LayerInputs& inputs) const override;

  void load_binary(std::istream& stream) override;
  void load_xml(const XmlElement& element) override;

 protected:
  std::string tag() const override;
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  static constexpr const char* kQuantizedType = "QuantizedFullyConnected";

  QuantizedMatrix quantized_;
  const bool reads_float_;
  bool is_float_ = false;  ///< while a float form is being loaded
};

}  // namespace meridane
