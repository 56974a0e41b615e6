#pragma once

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Convolution along the positions of a map inside each frame:
///   y(o, p) = bias(o) + sum over positions q below filter_size and channels c of W(o, q channels + c) x(c, p + q)
/// for p = 0 to input_len - filter_size. A map of shape {channels, positions} lies position after position in its
/// frame, the channels of each beside each other; the patch of a position is so a run of memory. An input of one axis
/// is taken for input_len positions; with an input_len of 0, it must come with its shape. The result has the shape
/// {num_filter, input_len - filter_size + 1}. Record: 8-byte input_len, 8-byte filter_size, weight (num_filter x
/// filter_size channels), bias. Attributes: the same (input_len: default 0) and num_filter, input_size (channels x
/// input_len), org_rows and org_cols (those of weight), which follow from the others.
template <class Product>
class Convolution1DLayerBase : public ParameterLayer {
 public:
  Convolution1DLayerBase(std::string id, const std::string& type)
      : ParameterLayer(std::move(id), Product::kType), product_(type) {}
  MinibatchPtr forward(const LayerInputs& inputs) const override;
  void load_binary(std::istream& stream) override;
  void load_xml(const XmlElement& element) override;
  void dump_binary(std::ostream& stream) const override;
  void dump_xml(XmlElement& parent, XmlDocument& document) const override;

 protected:
  std::string tag() const override { return product_.tag(); }
  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;

 private:
  /// Positions of the input. Throws unless its frames are maps of this layer.
  std::uint64_t positions(const Minibatch& x) const;
  void check_dump() const;
  std::uint64_t channels() const { return static_cast<std::uint64_t>(product_.cols()) / filter_size_; }

  std::uint64_t input_len_ = 0;
  std::uint64_t filter_size_ = 0;
  Product product_;
  StoredVector bias_;
};

/// The product with a float weight.
class FloatProduct {
 public:
  static constexpr const char* kType = "Convolution1D";
  explicit FloatProduct(const std::string& /*type*/) {}
  std::string tag() const { return kType; }
  void begin() {}
  void parameter(ParameterVisitor& visitor) { visitor.weight("weight", weight_); }
  void loaded() { weight_.pack(); }
  bool needs_length() const { return false; }
  Eigen::Index rows() const { return weight_.rows(); }
  Eigen::Index cols() const { return weight_.cols(); }
  void multiply(const float* x, Eigen::Index x_stride, Eigen::Index count, const float* bias, float* y) const {
    weight_.multiply(x, x_stride, count, bias, y, weight_.rows());
  }

 private:
  Weight weight_;
};

/// The product in 8 bits: the element is qweight. Of a layer that is made as the plain type the float form is read, and
/// quantized; the layer's type is the quantized one all the same.
class QuantizedProduct {
 public:
  static constexpr const char* kType = "QuantizedConvolution1D";
  explicit QuantizedProduct(const std::string& type) : reads_float_(type != kType) {}
  std::string tag() const { return is_float_ ? FloatProduct::kType : kType; }
  void begin() { is_float_ = reads_float_; }
  void parameter(ParameterVisitor& visitor);
  void loaded();
  bool needs_length() const { return true; }
  Eigen::Index rows() const { return is_float_ ? weight_.rows() : quantized_.size_major; }
  Eigen::Index cols() const { return is_float_ ? weight_.cols() : quantized_.size_minor; }
  void multiply(const float* x, Eigen::Index x_stride, Eigen::Index count, const float* bias, float* y) const;

 private:
  Weight weight_;
  QuantizedMatrix quantized_;
  bool reads_float_;
  bool is_float_ = false;  ///< while a float form is being loaded
};

using Convolution1DLayer = Convolution1DLayerBase<FloatProduct>;
using QuantizedConvolution1DLayer = Convolution1DLayerBase<QuantizedProduct>;

}  // namespace meridane
