#pragma once

#include <array>
#include <vector>

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// Convolution over the map inside each frame, with one or more kernels whose results stand one behind the other:
///   y(o, p) = bias(o) + sum over window positions q and channels c of W(o, (q, c)) x(c, p stride + q - pad)
/// with zeros in the pad. Along each axis there are (size + 2 pad - kernel's size) / stride + 1 positions p. All maps
/// are flattened with their first axis fastest, channels before positions, and so is a row of the weight.
class MapConvolutionLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;
  LayerSize size() const override;

 protected:
  using Axes = std::array<std::int32_t, 3>;
  struct Kernel {
    Axes size = {1, 1, 1}, stride = {1, 1, 1}, pad = {0, 0, 0};
    Weight weight;
    StoredVector bias;
    Axes positions = {};  ///< of the result
  };
  struct Map {
    std::int32_t channels;
    Axes size;
  };

  void parameters(ParameterVisitor& visitor) override;
  void loaded() override;
  virtual const char* input_size_message() const = 0;
  /// What input_size says.
  virtual Map map() const = 0;
  virtual void kernel_sizes(ParameterVisitor& visitor, Kernel& kernel, const std::string& prefix) = 0;
  [[noreturn]] virtual void raise_out_of_range(const Axes& position) const = 0;
  virtual Minibatch::Shape shape_of(const Kernel& kernel) const = 0;
  const std::vector<Kernel>& kernels() const { return kernels_; }

  Axes input_size_ = {};
  std::int32_t output_channel_ = 0;

 private:
  void check(const Kernel& kernel) const;
  void count_positions(Kernel& kernel) const;
  void convolve(const Kernel& kernel, const float* x, float* y) const;
  void gather(const Kernel& kernel, const Axes& p, const float* x, float* patch) const;

  std::vector<Kernel> kernels_;
  Minibatch::Shape shape_;  ///< of the result
};

/// input_size: channels, first axis, second axis. The shape of the result is {output_channel, positions along the first
/// axis, along the second}, one axis for several kernels. Record: three 4-byte integers input_size, output_channel, the
/// number of kernels; for each kernel two integers size, two stride, two pad, weight (output_channel x size channels),
/// bias. Attributes: input_size, output_channel; elements: kernel, with the attributes size, stride, pad and the
/// elements weight, bias. An attribute filter_size, of one or two numbers, needn't be there: it's the size of each
/// kernel.
class Convolution2DLayer : public MapConvolutionLayer {
 public:
  using MapConvolutionLayer::MapConvolutionLayer;
  void load_xml(const XmlElement& element) override;

 protected:
  std::string tag() const override { return "Convolution2D"; }
  const char* input_size_message() const override;
  Map map() const override { return {input_size_[0], {input_size_[1], input_size_[2], 1}}; }
  void kernel_sizes(ParameterVisitor& visitor, Kernel& kernel, const std::string& prefix) override;
  [[noreturn]] void raise_out_of_range(const Axes& position) const override;
  Minibatch::Shape shape_of(const Kernel& kernel) const override;
};

using CompressedConvolution2DLayer = Compressed<Convolution2DLayer>;

/// The window moves along all three axes of input_size, of a map of one channel. The shape of the result is
/// {output_channel, positions along the first axis, the second, the third}. Record and elements are those of
/// Convolution2D, with three integers each for size and stride, and without pad.
class Convolution3DLayer : public MapConvolutionLayer {
 public:
  using MapConvolutionLayer::MapConvolutionLayer;

 protected:
  std::string tag() const override { return "Convolution3D"; }
  const char* input_size_message() const override;
  Map map() const override { return {1, input_size_}; }
  void kernel_sizes(ParameterVisitor& visitor, Kernel& kernel, const std::string& prefix) override;
  [[noreturn]] void raise_out_of_range(const Axes& position) const override;
  Minibatch::Shape shape_of(const Kernel& kernel) const override;
};

}  // namespace meridane
