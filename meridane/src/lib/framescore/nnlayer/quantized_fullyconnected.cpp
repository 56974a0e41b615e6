#include "lib/framescore/nnlayer/quantized_fullyconnected.h"

#include <vector>

namespace meridane {

std::string QuantizedFullyConnectedLayer::tag() const {
  return is_float_ ? FullyConnectedLayer::tag() : kQuantizedType;
}

void QuantizedFullyConnectedLayer::parameters(ParameterVisitor& visitor) {
  if (is_float_) {
    FullyConnectedLayer::parameters(visitor);
    return;
  }
  visitor.quantized("weight", quantized_);
  visitor.vector("bias", bias_);
}

void QuantizedFullyConnectedLayer::load_binary(std::istream& stream) {
  is_float_ = reads_float_;
  FullyConnectedLayer::load_binary(stream);
}

void QuantizedFullyConnectedLayer::load_xml(const XmlElement& element) {
  is_float_ = reads_float_;
  FullyConnectedLayer::load_xml(element);
}

void QuantizedFullyConnectedLayer::loaded() {
  if (bias_.size() != (is_float_ ? weight_.rows() : quantized_.size_major)) raise_invalid_format();
  if (!is_float_) return;
  quantized_ = QuantizedMatrix::of_rows(weight_.map().data(), weight_.rows(), weight_.cols());
  weight_ = Weight();
  is_float_ = false;
}

MinibatchPtr QuantizedFullyConnectedLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  expect_rows(x, quantized_.size_minor);
  MinibatchPtr y = inputs.result(quantized_.size_major, x.content().cols());
  quantized_.multiply(x.content().data(), static_cast<std::size_t>(quantized_.size_minor), x.size(), bias_.data(),
                      y->content().data(), static_cast<std::size_t>(quantized_.size_major));
  return y;
}

}  // namespace meridane
