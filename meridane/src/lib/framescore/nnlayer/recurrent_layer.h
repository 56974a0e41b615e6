#pragma once

#include "lib/framescore/nnlayer/lstm_direction.h"
#include "meridane/error.h"

namespace meridane {

/// What the layers made of LSTM directions share. Without a state they start from a new one.
class RecurrentLayer : public ParameterLayer {
 public:
  using ParameterLayer::forward;
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override { return forward(inputs, create_state()); }

 protected:
  /// Whether the matrices of the record are 8-bit codes; before the parameters are loaded.
  virtual void set_in_codes(bool in_codes) = 0;
  /// Gives the loaded and checked matrices of a direction the form that the product reads.
  virtual void settle(LSTMDirection& direction) {
    pack(direction.upward_weight());
    pack(direction.lateral_weight());
  }
  [[noreturn]] void raise_foreign_state() const { raise("Layer %s has been given no state of its own", id().c_str()); }
};

/// A recurrent layer with its matrices in 8 bits; everything else is the same. Record: that of the plain layer with
/// quantized matrices. One that is made as the plain type reads the plain record and quantizes its matrices; its type
/// is the quantized one all the same.
template <class Layer>
class QuantizedRecurrent : public Layer {
 public:
  QuantizedRecurrent(std::string id, const std::string& type)
      : Layer(std::move(id), is_quantized(type) ? type : "Quantized" + type), reads_codes_(is_quantized(type)) {}

  void load_binary(std::istream& stream) override {
    expect_form();
    Layer::load_binary(stream);
  }
  void load_xml(const XmlElement& element) override {
    expect_form();
    Layer::load_xml(element);
  }

 protected:
  std::string tag() const override { return in_codes_ ? "Quantized" + Layer::tag() : Layer::tag(); }
  void settle(LSTMDirection& direction) override { direction.quantize(); }
  void loaded() override {
    Layer::loaded();
    in_codes_ = true;
  }

 private:
  static bool is_quantized(const std::string& type) { return type.starts_with("Quantized"); }

  void expect_form() {
    in_codes_ = reads_codes_;
    this->set_in_codes(in_codes_);
  }

  const bool reads_codes_;
  bool in_codes_ = false;
};

}  // namespace meridane
