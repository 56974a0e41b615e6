#pragma once

#include <cstring>
#include <deque>
#include <dnnl.hpp>
#include <functional>
#include <unordered_map>
#include <vector>

namespace meridane::bench {

/// A network of oneDNN's layers over the frames of a call, run in the order in which they were added, in buffers that
/// are made once. What its layers remember stands before the frames of a buffer. Weights are in the format that oneDNN
/// asks for, but for those of LSTM, which are often faster as they are stored; activations and residual sums are part
/// of the products.
class OneDnnNetwork {
 public:
  using Memory = dnnl::memory;

  /// Frames behind one another, `rows` floats each, and remembered ones before them; the network's own.
  struct Frames {
    float* first;
    long rows, before;
    float* now() const { return first + rows * before; }
  };

  explicit OneDnnNetwork(long frames) : frames_(frames) {}
  OneDnnNetwork(const OneDnnNetwork&) = delete;
  OneDnnNetwork& operator=(const OneDnnNetwork&) = delete;

  Frames buffer(long rows, long before = 0) { return {floats_of(rows * (frames_ + before)), rows, before}; }
  float* floats_of(long count) { return buffers_.emplace_back(static_cast<std::size_t>(count), 0.01f).data(); }

  static dnnl::post_ops with(dnnl::algorithm activation, float alpha = 1) {
    dnnl::post_ops operations;
    operations.append_eltwise(1, activation, alpha, 0);
    return operations;
  }
  /// y += the result.
  static dnnl::post_ops sum() {
    dnnl::post_ops operations;
    operations.append_sum(1);
    return operations;
  }

  void dense(const Frames& x, const Frames& y, const dnnl::post_ops& operations = {}) {
    using Layer = dnnl::inner_product_forward;
    const Memory::desc from = floats({frames_, x.rows}, Memory::format_tag::ab),
                       to = floats({frames_, y.rows}, Memory::format_tag::ab),
                       bias = floats({y.rows}, Memory::format_tag::a);
    const Layer::desc layer(kKind, from, floats({y.rows, x.rows}, Memory::format_tag::any), bias, to);
    const Layer::primitive_desc chosen(layer, attributes(operations), engine_);
    add(Layer(chosen), {{DNNL_ARG_SRC, Memory(from, engine_, x.now())},
                        {DNNL_ARG_WEIGHTS, weights(chosen.weights_desc())},
                        {DNNL_ARG_BIAS, weights(bias)},
                        {DNNL_ARG_DST, Memory(to, engine_, y.now())}});
  }

  /// Causal, each channel for itself; x has (taps - 1) * dilation frames before it.
  void depthwise(const Frames& x, long taps, long dilation, const Frames& y, const dnnl::post_ops& operations) {
    using Layer = dnnl::convolution_forward;
    const Memory::desc from = floats({1, x.rows, 1, x.before + frames_}, Memory::format_tag::nhwc),
                       to = floats({1, x.rows, 1, frames_}, Memory::format_tag::nhwc),
                       bias = floats({x.rows}, Memory::format_tag::a);
    const Layer::desc layer(kKind, dnnl::algorithm::convolution_direct, from,
                            floats({x.rows, 1, 1, 1, taps}, Memory::format_tag::any), bias, to, {1, 1},
                            {0, dilation - 1}, {0, 0}, {0, 0});
    const Layer::primitive_desc chosen(layer, attributes(operations), engine_);
    add(Layer(chosen), {{DNNL_ARG_SRC, Memory(from, engine_, x.first)},
                        {DNNL_ARG_WEIGHTS, weights(chosen.weights_desc())},
                        {DNNL_ARG_BIAS, weights(bias)},
                        {DNNL_ARG_DST, Memory(to, engine_, y.now())}});
    remember(x);
  }

  void lstm(const Frames& x, const Frames& y) {
    using Layer = dnnl::lstm_forward;
    const long cells = y.rows;
    const Memory::desc from = floats({frames_, 1, x.rows}, Memory::format_tag::tnc),
                       to = floats({frames_, 1, cells}, Memory::format_tag::tnc),
                       state = floats({1, 1, 1, cells}, Memory::format_tag::ldnc),
                       bias = floats({1, 1, 4, cells}, Memory::format_tag::ldgo),
                       upward = floats({1, 1, x.rows, 4, cells}, Memory::format_tag::ldigo),
                       lateral = floats({1, 1, cells, 4, cells}, Memory::format_tag::ldigo);
    const Layer::desc layer(kKind, dnnl::rnn_direction::unidirectional_left2right, from, state, state, upward, lateral,
                            bias, to, state, state);
    const Layer::primitive_desc chosen(layer, engine_);
    const Memory h(state, engine_), c(state, engine_), next_h = weights(state), next_c = weights(state);
    const std::size_t bytes = state.get_size();
    step([=] {
      std::memcpy(h.get_data_handle(), next_h.get_data_handle(), bytes);
      std::memcpy(c.get_data_handle(), next_c.get_data_handle(), bytes);
    });
    add(Layer(chosen), {{DNNL_ARG_SRC_LAYER, Memory(from, engine_, x.now())},
                        {DNNL_ARG_SRC_ITER, h},
                        {DNNL_ARG_SRC_ITER_C, c},
                        {DNNL_ARG_WEIGHTS_LAYER, weights(chosen.weights_layer_desc())},
                        {DNNL_ARG_WEIGHTS_ITER, weights(chosen.weights_iter_desc())},
                        {DNNL_ARG_BIAS, weights(bias)},
                        {DNNL_ARG_DST_LAYER, Memory(to, engine_, y.now())},
                        {DNNL_ARG_DST_ITER, next_h},
                        {DNNL_ARG_DST_ITER_C, next_c}});
  }

  void layer_norm(const Frames& x, const Frames& y) {
    using Layer = dnnl::layer_normalization_forward;
    using Flags = dnnl::normalization_flags;
    const Memory::desc shape = floats({frames_, x.rows}, Memory::format_tag::ab),
                       row = floats({x.rows}, Memory::format_tag::a);
    const Layer::primitive_desc chosen(Layer::desc(kKind, shape, 1e-5f, Flags::use_scale | Flags::use_shift), engine_);
    add(Layer(chosen), {{DNNL_ARG_SRC, Memory(shape, engine_, x.now())},
                        {DNNL_ARG_SCALE, weights(row)},
                        {DNNL_ARG_SHIFT, weights(row)},
                        {DNNL_ARG_DST, Memory(shape, engine_, y.now())}});
  }

  /// y = p * q.
  void product(const Frames& p, const Frames& q, const Frames& y) {
    using Layer = dnnl::binary;
    const Memory::desc shape = floats({frames_, y.rows}, Memory::format_tag::ab);
    const Layer::primitive_desc chosen(Layer::desc(dnnl::algorithm::binary_mul, shape, shape, shape), engine_);
    add(Layer(chosen), {{DNNL_ARG_SRC_0, Memory(shape, engine_, p.now())},
                        {DNNL_ARG_SRC_1, Memory(shape, engine_, q.now())},
                        {DNNL_ARG_DST, Memory(shape, engine_, y.now())}});
  }

  /// One matrix in memory for each head, at steps of `head`: rows at steps of `row`, their values at steps of `value`.
  struct Heads {
    float* first;
    long rows, values;
    long head, row, value;
  };

  /// y = x w in each head.
  void multiply(long heads, const Heads& x, const Heads& w, const Heads& y) {
    using Layer = dnnl::matmul;
    const auto shape = [&](const Heads& a) {
      return Memory::desc({heads, a.rows, a.values}, Memory::data_type::f32, {a.head, a.row, a.value});
    };
    const Layer::primitive_desc chosen(Layer::desc(shape(x), shape(w), shape(y)), engine_);
    add(Layer(chosen), {{DNNL_ARG_SRC, Memory(shape(x), engine_, x.first)},
                        {DNNL_ARG_WEIGHTS, Memory(shape(w), engine_, w.first)},
                        {DNNL_ARG_DST, Memory(shape(y), engine_, y.first)}});
  }

  /// In place, of each of the rows.
  void softmax(float* values, long rows, long count) {
    using Layer = dnnl::softmax_forward;
    const Memory::desc shape = floats({rows, count}, Memory::format_tag::ab);
    const Layer::primitive_desc chosen(Layer::desc(kKind, shape, 1), engine_);
    const Memory memory(shape, engine_, values);
    add(Layer(chosen), {{DNNL_ARG_SRC, memory}, {DNNL_ARG_DST, memory}});
  }

  /// Moves the last frames to where the next call looks for those before its own.
  void remember(const Frames& x) {
    step([x, size = static_cast<std::size_t>(x.rows * x.before), from = x.rows * frames_] {
      std::memmove(x.first, x.first + from, size * sizeof(float));
    });
  }

  void step(std::function<void()> work) { steps_.push_back(std::move(work)); }

  void run() {
    for (const auto& work : steps_) work();
    stream_.wait();
  }

 private:
  static constexpr auto kKind = dnnl::prop_kind::forward_inference;

  static Memory::desc floats(const Memory::dims& sizes, Memory::format_tag format) {
    return {sizes, Memory::data_type::f32, format};
  }

  static dnnl::primitive_attr attributes(const dnnl::post_ops& operations) {
    dnnl::primitive_attr all;
    all.set_post_ops(operations);
    return all;
  }

  /// Small numbers: the time of a layer doesn't depend on them, as long as they stay normal.
  Memory weights(const Memory::desc& shape) const {
    const Memory memory(shape, engine_);
    auto* const values = static_cast<float*>(memory.get_data_handle());
    for (std::size_t i = 0; i < shape.get_size() / sizeof(float); ++i) {
      values[i] = static_cast<float>(i % 13) / 128.0f - 0.05f;
    }
    return memory;
  }

  void add(const dnnl::primitive& layer, std::unordered_map<int, Memory> arguments) {
    step([this, layer, arguments = std::move(arguments)] { layer.execute(stream_, arguments); });
  }

  long frames_;
  dnnl::engine engine_{dnnl::engine::kind::cpu, 0};
  dnnl::stream stream_{engine_};
  std::deque<std::vector<float>> buffers_;
  std::vector<std::function<void()>> steps_;
};

}  // namespace meridane::bench
