#include "lib/framescore/nnlayer/map_convolution.h"

#include <algorithm>

#include "lib/framescore/nnlayer/feature_map.h"
#include "lib/framescore/nnlayer/parameter_visitors.h"
#include "meridane/error.h"

namespace meridane {

void MapConvolutionLayer::parameters(ParameterVisitor& visitor) {
  visitor.sizes("input_size", input_size_, 1, input_size_message());
  visitor.whole("output_channel", output_channel_, 0, 1);
  auto count = static_cast<std::int32_t>(kernels_.size());
  visitor.parts("kernel", count, [this](ParameterVisitor& part, std::int32_t i, const std::string& prefix) {
    if (static_cast<std::size_t>(i) >= kernels_.size()) kernels_.emplace_back();
    Kernel& kernel = kernels_[static_cast<std::size_t>(i)];
    kernel_sizes(part, kernel, prefix);
    part.weight((prefix + "weight").c_str(), kernel.weight);
    part.vector((prefix + "bias").c_str(), kernel.bias);
  });
  kernels_.resize(static_cast<std::size_t>(count));
}

void MapConvolutionLayer::loaded() {
  const auto [channels, size] = map();
  if (map_values(std::array{channels, size[0], size[1], size[2]}) < 0) raise_incorrect("input_size");
  std::int64_t outputs = 0;
  for (Kernel& kernel : kernels_) {
    check(kernel);
    count_positions(kernel);
    const Axes& p = kernel.positions;
    const std::int64_t values = map_values(std::array{output_channel_, p[0], p[1], p[2]});
    outputs += values;
    if (values < 0 || outputs >= kMostMapValues) raise_incorrect("output_channel");
    if (map_values(std::array{kernel.weight.cols(), Eigen::Index{p[0]}}) < 0) raise_incorrect("size");
    pack(kernel.weight);
  }
  shape_ = kernels_.size() == 1 ? shape_of(kernels_.front()) : Minibatch::Shape{static_cast<std::uint64_t>(outputs)};
}

void MapConvolutionLayer::check(const Kernel& kernel) const {
  const std::int64_t depth = map_values(std::array{map().channels, kernel.size[0], kernel.size[1], kernel.size[2]});
  if (depth < 0) raise_incorrect("size");
  if (kernel.weight.rows() != output_channel_ || kernel.weight.cols() != depth) {
    raise("Weight matrix size is not %d * %d.", output_channel_, static_cast<int>(depth));
  }
  if (kernel.bias.size() != output_channel_) raise("Bias vector size is not %d.", output_channel_);
}

void MapConvolutionLayer::count_positions(Kernel& kernel) const {
  const Axes size = map().size;
  for (std::size_t a = 0; a < 3; ++a) {
    const std::int64_t padded = std::int64_t{size[a]} + 2 * std::int64_t{kernel.pad[a]};
    // Windows in a wider pad would see nothing, and could be as many as a record likes.
    if (kernel.pad[a] > kernel.size[a] || padded >= kMostMapValues) raise_incorrect("pad");
    if (kernel.size[a] > padded) {  // no window fits; the first leaves the map here
      Axes position = {-kernel.pad[0], -kernel.pad[1], -kernel.pad[2]};
      position[a] = size[a] + kernel.pad[a];
      raise_out_of_range(position);
    }
    kernel.positions[a] = static_cast<std::int32_t>((padded - kernel.size[a]) / kernel.stride[a] + 1);
  }
}

LayerSize MapConvolutionLayer::size() const {
  LayerSize size = ParameterLayer::size();
  size.multiply_adds = 0;
  for (const Kernel& kernel : kernels_) {
    const Axes& p = kernel.positions;
    const std::int64_t positions = map_values(std::array{p[0], p[1], p[2]});
    size.multiply_adds += static_cast<std::uint64_t>(kernel.weight.rows() * kernel.weight.cols() * positions);
  }
  return size;
}

MinibatchPtr MapConvolutionLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  const auto [channels, size] = map();
  const std::int64_t values = map_values(std::array{channels, size[0], size[1], size[2]});
  if (x.size() > 0 && x.content().rows() != values) {
    raise("Input matrix size is not %d * N.", static_cast<int>(values));
  }
  MinibatchPtr y = inputs.result(shape_, x.content().cols());
  for (Eigen::Index t = 0; t < x.content().cols(); ++t) {
    float* result = y->content().col(t).data();
    for (const Kernel& kernel : kernels_) {
      convolve(kernel, x.content().col(t).data(), result);
      const Axes& p = kernel.positions;
      result += map_values(std::array{output_channel_, p[0], p[1], p[2]});
    }
  }
  return y;
}

/// One product for all positions along the first axis.
void MapConvolutionLayer::convolve(const Kernel& kernel, const float* x, float* y) const {
  thread_local std::vector<float> patches;
  const Eigen::Index depth = kernel.weight.cols(), count = kernel.positions[0];
  patches.resize(static_cast<std::size_t>(depth * count));
  for (std::int32_t p2 = 0; p2 < kernel.positions[2]; ++p2) {
    for (std::int32_t p1 = 0; p1 < kernel.positions[1]; ++p1) {
      for (std::int32_t p0 = 0; p0 < count; ++p0) gather(kernel, {p0, p1, p2}, x, patches.data() + p0 * depth);
      kernel.weight.multiply(patches.data(), depth, count, kernel.bias.data(), y, output_channel_);
      y += count * output_channel_;
    }
  }
}

/// The window of position p, with zeros where it is in the pad. What lies along the first axis is one run of memory.
void MapConvolutionLayer::gather(const Kernel& kernel, const Axes& p, const float* x, float* patch) const {
  const auto [channels, size] = map();
  const auto start = [&](std::size_t a) { return Eigen::Index{p[a]} * kernel.stride[a] - kernel.pad[a]; };
  const Eigen::Index first = std::clamp<Eigen::Index>(-start(0), 0, kernel.size[0]);
  const Eigen::Index last = std::clamp<Eigen::Index>(size[0] - start(0), first, kernel.size[0]);
  const Eigen::Index row = Eigen::Index{kernel.size[0]} * channels;
  for (std::int32_t q2 = 0; q2 < kernel.size[2]; ++q2) {
    for (std::int32_t q1 = 0; q1 < kernel.size[1]; ++q1, patch += row) {
      const Eigen::Index i1 = start(1) + q1, i2 = start(2) + q2;
      if (i1 < 0 || i1 >= size[1] || i2 < 0 || i2 >= size[2]) {
        std::fill_n(patch, row, 0.0f);
        continue;
      }
      const float* const line = x + (i2 * size[1] + i1) * size[0] * channels;
      std::fill_n(patch, first * channels, 0.0f);
      if (last > first) {
        std::copy_n(line + (start(0) + first) * channels, (last - first) * channels, patch + first * channels);
      }
      std::fill_n(patch + last * channels, (kernel.size[0] - last) * channels, 0.0f);
    }
  }
}

void Convolution2DLayer::load_xml(const XmlElement& element) {
  MapConvolutionLayer::load_xml(element);
  if (!find_attribute(element, "filter_size")) return;
  std::array<std::int32_t, 2> size = {};
  XmlLoader(*this, tag(), element)
      .sizes("filter_size", size, 1, "filter_size must have one or two numbers in Convolution2D", true);
  for (const Kernel& kernel : kernels()) {
    if (kernel.size[0] != size[0] || kernel.size[1] != size[1]) raise_incorrect("filter_size");
  }
}

const char* Convolution2DLayer::input_size_message() const {
  return "The input_size attribute must have three numbers layers of type \"Convolution2D\"";
}

void Convolution2DLayer::kernel_sizes(ParameterVisitor& visitor, Kernel& kernel, const std::string& prefix) {
  const auto two = [](Axes& axes) { return std::span(axes).first(2); };
  visitor.sizes((prefix + "size").c_str(), two(kernel.size), 1,
                "The size attribute must have two numbers nodes of type \"Convolution2D<kernel>\"");
  visitor.sizes((prefix + "stride").c_str(), two(kernel.stride), 1,
                "The stride attribute must have two numbers nodes of type \"Convolution2D<kernel>\"");
  visitor.sizes((prefix + "pad").c_str(), two(kernel.pad), 0,
                "The pad attribute must have two numbers nodes of type \"Convolution2D\"");
}

void Convolution2DLayer::raise_out_of_range(const Axes& position) const {
  raise("This position(%d,%d) is out of range.", position[0], position[1]);
}

Minibatch::Shape Convolution2DLayer::shape_of(const Kernel& kernel) const {
  const auto size = [](std::int32_t value) { return static_cast<std::uint64_t>(value); };
  return {size(output_channel_), size(kernel.positions[0]), size(kernel.positions[1])};
}

const char* Convolution3DLayer::input_size_message() const {
  return "The input_size attribute must have three numbers layers of type \"Convolution3D\"";
}

void Convolution3DLayer::kernel_sizes(ParameterVisitor& visitor, Kernel& kernel, const std::string& prefix) {
  visitor.sizes((prefix + "size").c_str(), kernel.size, 1,
                "The size attribute must have three numbers nodes of type \"Convolution3D<kernel>\"");
  visitor.sizes((prefix + "stride").c_str(), kernel.stride, 1,
                "The stride attribute must have three numbers nodes of type \"Convolution3D<kernel>\"");
}

void Convolution3DLayer::raise_out_of_range(const Axes& position) const {
  raise("This position(%d,%d%d) is out of range.", position[0], position[1], position[2]);
}

Minibatch::Shape Convolution3DLayer::shape_of(const Kernel& kernel) const {
  const auto size = [](std::int32_t value) { return static_cast<std::uint64_t>(value); };
  return {size(output_channel_), size(kernel.positions[0]), size(kernel.positions[1]), size(kernel.positions[2])};
}

}  // namespace meridane
