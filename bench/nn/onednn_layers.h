#pragma once

#include <dnnl.hpp>
#include <unordered_map>
#include <vector>

namespace meridane::bench {

/// One of oneDNN's layers over the frames of a call, made once. Weights and frames are of its own: the time of a layer
/// depends on neither.
class OneDnnLayer {
 public:
  /// plain: with weights as they are stored, which is often faster than the format that oneDNN asks for.
  static OneDnnLayer lstm(long rows, long cells, long frames, bool plain) {
    using dnnl::memory;
    using Layer = dnnl::lstm_forward;
    OneDnnLayer layer;
    const auto weights = [&](const memory::dims& sizes) {
      return floats(sizes, plain ? memory::format_tag::ldigo : memory::format_tag::any);
    };
    const memory::desc x = floats({frames, 1, rows}, memory::format_tag::tnc),
                       y = floats({frames, 1, cells}, memory::format_tag::tnc),
                       state = floats({1, 1, 1, cells}, memory::format_tag::ldnc),
                       bias = floats({1, 1, 4, cells}, memory::format_tag::ldgo);
    const Layer::desc description(dnnl::prop_kind::forward_inference, dnnl::rnn_direction::unidirectional_left2right, x,
                                  state, state, weights({1, 1, rows, 4, cells}), weights({1, 1, cells, 4, cells}), bias,
                                  y, state, state);
    const Layer::primitive_desc chosen(description, layer.engine_);
    layer.give(DNNL_ARG_SRC_LAYER, x);
    layer.give(DNNL_ARG_SRC_ITER, state);
    layer.give(DNNL_ARG_SRC_ITER_C, state);
    layer.give(DNNL_ARG_WEIGHTS_LAYER, chosen.weights_layer_desc());
    layer.give(DNNL_ARG_WEIGHTS_ITER, chosen.weights_iter_desc());
    layer.give(DNNL_ARG_BIAS, bias);
    layer.give(DNNL_ARG_DST_LAYER, y);
    layer.give(DNNL_ARG_DST_ITER, state);
    layer.give(DNNL_ARG_DST_ITER_C, state);
    layer.layer_ = Layer(chosen);
    return layer;
  }

  /// Causal, with frames of `channels` values, behind those that the call before has left; depthwise: one weight per
  /// channel and tap.
  static OneDnnLayer convolution(long channels, long taps, long frames, bool depthwise) {
    using dnnl::memory;
    using Layer = dnnl::convolution_forward;
    OneDnnLayer layer;
    const memory::desc x = floats({1, channels, 1, taps - 1 + frames}, memory::format_tag::nhwc),
                       y = floats({1, channels, 1, frames}, memory::format_tag::nhwc),
                       bias = floats({channels}, memory::format_tag::a);
    const memory::dims sizes =
        depthwise ? memory::dims{channels, 1, 1, 1, taps} : memory::dims{channels, channels, 1, taps};
    const Layer::desc description(dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct, x,
                                  floats(sizes, memory::format_tag::any), bias, y, {1, 1}, {0, 0}, {0, 0});
    const Layer::primitive_desc chosen(description, layer.engine_);
    layer.give(DNNL_ARG_SRC, x);
    layer.give(DNNL_ARG_WEIGHTS, chosen.weights_desc());
    layer.give(DNNL_ARG_BIAS, bias);
    layer.give(DNNL_ARG_DST, y);
    layer.layer_ = Layer(chosen);
    return layer;
  }

  void run() {
    layer_.execute(stream_, arguments_);
    stream_.wait();
  }

 private:
  OneDnnLayer() = default;

  static dnnl::memory::desc floats(const dnnl::memory::dims& sizes, dnnl::memory::format_tag format) {
    return {sizes, dnnl::memory::data_type::f32, format};
  }

  void give(int argument, const dnnl::memory::desc& shape) {
    const dnnl::memory memory(shape, engine_);
    auto* const values = static_cast<float*>(memory.get_data_handle());
    for (std::size_t i = 0; i < shape.get_size() / sizeof(float); ++i) {
      values[i] = static_cast<float>(i % 13) / 128.0f - 0.05f;
    }
    arguments_[argument] = memory;
  }

  dnnl::engine engine_{dnnl::engine::kind::cpu, 0};
  dnnl::stream stream_{engine_};
  dnnl::primitive layer_;
  std::unordered_map<int, dnnl::memory> arguments_;
};

}  // namespace meridane::bench
