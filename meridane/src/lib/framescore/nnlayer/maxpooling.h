#pragma once

#include <array>
#include <span>

#include "lib/framescore/nnlayer/parameter_layer.h"

namespace meridane {

/// The maximum of each window of pool_size positions of a map, window beside window; positions behind the last whole
/// window have no part. Channels stay apart. Record: 4-byte pool_size for each axis of positions. Attribute: pool_size.
class MaxPoolingLayer : public ParameterLayer {
 public:
  using ParameterLayer::ParameterLayer;
  MinibatchPtr forward(const LayerInputs& inputs) const override;

 protected:
  /// channels, first axis, second axis of an input
  using Map = std::array<std::uint64_t, 3>;
  virtual Map map_of(const Minibatch::Shape& shape) const = 0;
  using Axes = std::span<const std::uint64_t>;
  /// Those of a result, for an input of so many axes.
  virtual Axes axes_of(const Map& pooled, std::size_t axes) const = 0;
  void loaded() override;
  [[noreturn]] void raise_axes() const;

  std::array<std::int32_t, 2> pool_size_ = {1, 1};
};

/// Along the second axis of maps of shape {channels, positions}.
class MaxPooling1DLayer : public MaxPoolingLayer {
 public:
  using MaxPoolingLayer::MaxPoolingLayer;

 protected:
  std::string tag() const override { return "MaxPooling1D"; }
  void parameters(ParameterVisitor& visitor) override;
  Map map_of(const Minibatch::Shape& shape) const override;
  Axes axes_of(const Map& pooled, std::size_t axes) const override;
};

/// Along the axes of positions of maps of shape {channels, first axis, second axis} or {first axis, second axis}. One
/// number in the attribute stands for both.
class MaxPooling2DLayer : public MaxPoolingLayer {
 public:
  using MaxPoolingLayer::MaxPoolingLayer;

 protected:
  std::string tag() const override { return "MaxPooling2D"; }
  void parameters(ParameterVisitor& visitor) override;
  Map map_of(const Minibatch::Shape& shape) const override;
  Axes axes_of(const Map& pooled, std::size_t axes) const override;
};

}  // namespace meridane
