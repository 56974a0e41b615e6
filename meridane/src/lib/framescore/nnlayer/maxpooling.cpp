#include "lib/framescore/nnlayer/maxpooling.h"

#include <cmath>
#include <limits>

#include "meridane/error.h"

namespace meridane {
namespace {

constexpr const char* kNotPositive = "Pooling size must be a positive integer";
constexpr std::int32_t kAny = std::numeric_limits<std::int32_t>::min();

Eigen::Index index(std::uint64_t value) { return static_cast<Eigen::Index>(value); }

}  // namespace

void MaxPoolingLayer::loaded() {
  if (pool_size_[0] < 1 || pool_size_[1] < 1) raise({kNotPositive});
}

void MaxPoolingLayer::raise_axes() const { raise("Layer %s requires 3D minibatches as input", id().c_str()); }

MinibatchPtr MaxPoolingLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  if (x.size() == 0) return inputs.result(0, 0);
  const Map map = map_of(x.shape());
  const auto width = static_cast<std::uint64_t>(pool_size_[0]), height = static_cast<std::uint64_t>(pool_size_[1]);
  const Map pooled = {map[0], map[1] / width, map[2] / height};
  const Eigen::Index channels = index(map[0]);
  if (pooled[1] == 0 || pooled[2] == 0 || x.content().rows() != index(map[0] * map[1] * map[2])) {
    raise_dimension_mismatch();
  }
  MinibatchPtr y = inputs.result(axes_of(pooled, x.shape().size()), x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    float* result = y->content().col(t).data();
    for (std::uint64_t p = 0; p < pooled[1] * pooled[2]; ++p, result += channels) {
      for (std::uint64_t q = 0; q < width * height; ++q) {
        const std::uint64_t i = p % pooled[1] * width + q % width, k = p / pooled[1] * height + q / width;
        const float* const values = x.content().col(t).data() + index(k * map[1] + i) * channels;
        for (Eigen::Index c = 0; c < channels; ++c) {
          const bool is_most = q == 0 || values[c] > result[c] || std::isnan(values[c]);
          if (is_most) result[c] = values[c];
        }
      }
    }
  }
  return y;
}

void MaxPooling1DLayer::parameters(ParameterVisitor& visitor) {
  visitor.sizes("pool_size", std::span(pool_size_).first(1), kAny, kNotPositive);
}

MaxPoolingLayer::Map MaxPooling1DLayer::map_of(const Minibatch::Shape& shape) const {
  if (shape.size() != 2) raise_axes();
  return {shape[0], shape[1], 1};
}

MaxPoolingLayer::Axes MaxPooling1DLayer::axes_of(const Map& pooled, std::size_t) const { return Axes(pooled).first(2); }

void MaxPooling2DLayer::parameters(ParameterVisitor& visitor) {
  visitor.sizes("pool_size", pool_size_, kAny, "pool_size must have one or two numbers on MaxPooling2D", true);
}

MaxPoolingLayer::Map MaxPooling2DLayer::map_of(const Minibatch::Shape& shape) const {
  if (shape.size() == 2) return {1, shape[0], shape[1]};
  if (shape.size() != 3) raise_axes();
  return {shape[0], shape[1], shape[2]};
}

MaxPoolingLayer::Axes MaxPooling2DLayer::axes_of(const Map& pooled, std::size_t axes) const {
  return Axes(pooled).last(axes);
}

}  // namespace meridane
