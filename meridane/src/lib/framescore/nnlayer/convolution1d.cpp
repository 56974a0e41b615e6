#include "lib/framescore/nnlayer/convolution1d.h"

#include <array>

#include "lib/framescore/nnlayer/feature_map.h"
#include "meridane/error.h"

namespace meridane {

void QuantizedProduct::parameter(ParameterVisitor& visitor) {
  if (is_float_) {
    visitor.weight("weight", weight_);
  } else {
    visitor.quantized("qweight", quantized_);
  }
}

void QuantizedProduct::loaded() {
  if (!is_float_) return;
  quantized_ = QuantizedMatrix::of_rows(weight_.map().data(), weight_.rows(), weight_.cols());
  weight_ = Weight();
  is_float_ = false;
}

void QuantizedProduct::multiply(const float* x, Eigen::Index x_stride, Eigen::Index count, const float* bias,
                                float* y) const {
  quantized_.multiply(x, static_cast<std::size_t>(x_stride), static_cast<std::size_t>(count), bias, y,
                      static_cast<std::size_t>(quantized_.size_major));
}

template <class Product>
void Convolution1DLayerBase<Product>::parameters(ParameterVisitor& visitor) {
  visitor.size("input_len", input_len_, 0);
  visitor.size("filter_size", filter_size_, 0);
  product_.parameter(visitor);
  visitor.vector("bias", bias_);
  const auto rows = static_cast<std::uint64_t>(product_.rows()), cols = static_cast<std::uint64_t>(product_.cols());
  if (input_len_ >= static_cast<std::uint64_t>(kMostMapValues)) raise_incorrect("input_len");
  if (filter_size_ == 0 || cols % filter_size_ != 0) raise_incorrect("filter_size");
  visitor.implied("num_filter", static_cast<std::int64_t>(rows));
  visitor.implied("input_size", static_cast<std::int64_t>(channels() * input_len_));
  visitor.implied("org_rows", static_cast<std::int64_t>(rows));
  visitor.implied("org_cols", static_cast<std::int64_t>(cols));
}

template <class Product>
void Convolution1DLayerBase<Product>::loaded() {
  if (bias_.size() != product_.rows() || product_.rows() == 0 || product_.cols() == 0) raise_invalid_format();
  if (input_len_ > 0) {
    if (input_len_ < filter_size_) raise_incorrect("filter_size");
    if (map_values(std::array{channels(), input_len_}) < 0) raise_incorrect("input_len");
  }
  product_.loaded();
}

template <class Product>
void Convolution1DLayerBase<Product>::load_binary(std::istream& stream) {
  product_.begin();
  ParameterLayer::load_binary(stream);
}

template <class Product>
void Convolution1DLayerBase<Product>::load_xml(const XmlElement& element) {
  product_.begin();
  ParameterLayer::load_xml(element);
}

template <class Product>
void Convolution1DLayerBase<Product>::check_dump() const {
  if (product_.needs_length() && input_len_ == 0) {
    raise("If input_len is 0, dumping in quantization mode is not possible.");
  }
}

template <class Product>
void Convolution1DLayerBase<Product>::dump_binary(std::ostream& stream) const {
  check_dump();
  ParameterLayer::dump_binary(stream);
}

template <class Product>
void Convolution1DLayerBase<Product>::dump_xml(XmlElement& parent, XmlDocument& document) const {
  check_dump();
  ParameterLayer::dump_xml(parent, document);
}

template <class Product>
std::uint64_t Convolution1DLayerBase<Product>::positions(const Minibatch& x) const {
  const auto rows = static_cast<std::uint64_t>(x.content().rows());
  const Minibatch::Shape& shape = x.shape();
  if (shape.size() == 1) {
    if (input_len_ == 0) {
      raise(
          "In layer %s: model definition file must provide shape information when features are arranged in a "
          "one-dimensional vector",
          id().c_str());
    }
    if (rows != channels() * input_len_) raise("Model-size inconsistency in layer %s", id().c_str());
    return input_len_;
  }
  if (shape.size() != 2) raise("Layer %s requires 3D minibatches as input", id().c_str());
  const bool has_length = input_len_ == 0 ? shape[1] >= filter_size_ : shape[1] == input_len_;
  if (shape[0] != channels() || !has_length || rows / channels() != shape[1] || rows % channels() != 0) {
    raise("Model-size inconsistency in layer %s", id().c_str());
  }
  return shape[1];
}

template <class Product>
MinibatchPtr Convolution1DLayerBase<Product>::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  const auto filters = static_cast<std::uint64_t>(product_.rows());
  const bool empty = x.size() == 0;
  const std::uint64_t outputs = empty ? 0 : positions(x) - filter_size_ + 1;
  MinibatchPtr y = inputs.result(std::array{filters, outputs}, x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    product_.multiply(x.content().col(t).data(), static_cast<Eigen::Index>(channels()),
                      static_cast<Eigen::Index>(outputs), bias_.data(), y->content().col(t).data());
  }
  return y;
}

template class Convolution1DLayerBase<FloatProduct>;
template class Convolution1DLayerBase<QuantizedProduct>;

}  // namespace meridane
