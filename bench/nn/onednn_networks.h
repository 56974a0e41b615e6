#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "nn/network_shapes.h"
#include "nn/onednn_network.h"

namespace meridane::bench {

// The networks of network_shapes.h, of oneDNN's layers. What oneDNN has no layer for is a plain loop.

inline std::unique_ptr<OneDnnNetwork> onednn_enhancement() {
  using Shape = EnhancementShape;
  using Net = OneDnnNetwork;
  auto net = std::make_unique<Net>(Shape::frames);
  // One sample a row; the first window begins in the call before.
  constexpr long kKept = Shape::window - Shape::hop, kSamples = Shape::frames * Shape::hop;
  float* const samples = net->floats_of(kKept + kSamples);
  const Net::Frames window = net->buffer(Shape::window), encoded = net->buffer(Shape::channels),
                    y = net->buffer(Shape::narrow), gate = net->buffer(Shape::channels),
                    masked = net->buffer(Shape::channels);
  net->step([=] {
    for (long t = 0; t < Shape::frames; ++t) {
      std::copy_n(samples + t * Shape::hop, Shape::window, window.now() + t * Shape::window);
    }
    std::copy_n(samples + kSamples, kKept, samples);
  });
  net->dense(window, encoded);
  net->dense(encoded, y);
  const Net::Frames deep = net->buffer(Shape::channels);
  for (long i = 0; i < Shape::blocks; ++i) {
    const long dilation = Shape::dilation(i);
    const Net::Frames inner = net->buffer(Shape::channels, (Shape::taps - 1) * dilation);
    net->dense(y, inner, Net::with(dnnl::algorithm::eltwise_relu, 0.25f));
    net->depthwise(inner, Shape::taps, dilation, deep, Net::with(dnnl::algorithm::eltwise_swish));
    net->dense(deep, y, Net::sum());
  }
  net->dense(y, gate, Net::with(dnnl::algorithm::eltwise_logistic));
  net->product(encoded, gate, masked);
  net->dense(masked, window);
  float* const sound = net->floats_of(kKept + kSamples);
  net->step([=] {
    std::fill_n(std::copy_n(sound + kSamples, kKept, sound), kSamples, 0.0f);
    for (long t = 0; t < Shape::frames; ++t) {
      for (long k = 0; k < Shape::window; ++k) {
        sound[t * Shape::hop + k] += window.now()[t * Shape::window + k];
      }
    }
  });
  return net;
}

/// Attention as RelAttention states it; the projections of distances are the same from call to call, and so not
/// computed. x += what comes out.
inline void add_onednn_attention(OneDnnNetwork& net, const OneDnnNetwork::Frames& n, const OneDnnNetwork::Frames& x) {
  using Shape = ConformerShape;
  using Heads = OneDnnNetwork::Heads;
  constexpr long d = Shape::rows, T = Shape::frames, C = Shape::keys, D = Shape::distances, H = Shape::heads;
  constexpr long own = d / H;
  const OneDnnNetwork::Frames q = net.buffer(d), q_u = net.buffer(d), q_v = net.buffer(d), context = net.buffer(d),
                              k = net.buffer(d, Shape::cached), v = net.buffer(d, Shape::cached),
                              p = net.buffer(d, D - T);
  float* const scores = net.floats_of(H * T * C);
  float* const positional = net.floats_of(H * T * D);
  net.dense(n, q);
  net.dense(n, k);
  net.dense(n, v);
  net.step([=, u = std::vector<float>(d, 0.01f)] {
    for (long i = 0; i < T * d; ++i) {
      q_u.now()[i] = q.now()[i] + u[static_cast<std::size_t>(i % d)];
      q_v.now()[i] = q.now()[i] - u[static_cast<std::size_t>(i % d)];
    }
  });
  const auto frames = [&](float* first, long count) { return Heads{first, count, own, own, d, 1}; };
  const auto transposed = [&](float* first, long count) { return Heads{first, own, count, own, 1, d}; };
  net.multiply(H, frames(q_u.now(), T), transposed(k.first, C), {scores, T, C, T * C, C, 1});
  net.multiply(H, frames(q_v.now(), T), transposed(p.first, D), {positional, T, D, T * D, D, 1});
  net.step([=, scale = 1 / std::sqrt(static_cast<float>(own))] {
    for (long row = 0; row < H * T; ++row) {
      float* const to = scores + row * C;
      const float* const from = positional + row * D + (T - 1 - row % T);
      for (long j = 0; j < C; ++j) to[j] = (to[j] + from[j]) * scale;
    }
  });
  net.softmax(scores, H * T, C);
  net.multiply(H, {scores, T, C, T * C, C, 1}, frames(v.first, C), frames(context.now(), T));
  net.remember(k);
  net.remember(v);
  net.dense(context, x, OneDnnNetwork::sum());
}

inline std::unique_ptr<OneDnnNetwork> onednn_conformer(long blocks) {
  using Shape = ConformerShape;
  using Net = OneDnnNetwork;
  auto net = std::make_unique<Net>(Shape::frames);
  const Net::Frames x = net->buffer(Shape::rows), n = net->buffer(Shape::rows), hidden = net->buffer(Shape::hidden),
                    gate = net->buffer(Shape::rows), deep = net->buffer(Shape::rows), half = net->buffer(Shape::rows);
  const auto swish = Net::with(dnnl::algorithm::eltwise_swish);
  const auto add_half_layers = [&] {
    net->layer_norm(x, n);
    net->dense(n, hidden, swish);
    net->dense(hidden, x, Net::sum());  // one half is part of the weights
  };
  for (long i = 0; i < blocks; ++i) {
    const Net::Frames inner = net->buffer(Shape::rows, Shape::taps - 1);
    add_half_layers();
    net->layer_norm(x, n);
    add_onednn_attention(*net, n, x);
    net->layer_norm(x, n);
    net->dense(n, half);
    net->dense(n, gate, Net::with(dnnl::algorithm::eltwise_logistic));
    net->product(half, gate, inner);
    net->depthwise(inner, Shape::taps, 1, deep, swish);  // the weights of a batch norm are part of its own
    net->dense(deep, x, Net::sum());
    add_half_layers();
    net->layer_norm(x, x);
  }
  return net;
}

inline std::unique_ptr<OneDnnNetwork> onednn_mask() {
  using Shape = MaskShape;
  using Net = OneDnnNetwork;
  auto net = std::make_unique<Net>(Shape::frames);
  const Net::Frames x = net->buffer(Shape::rows), first = net->buffer(Shape::cells), second = net->buffer(Shape::cells),
                    mask = net->buffer(Shape::rows), y = net->buffer(Shape::rows);
  net->lstm(x, first);
  net->lstm(first, second);
  net->dense(second, mask, Net::with(dnnl::algorithm::eltwise_logistic));
  net->product(x, mask, y);
  return net;
}

}  // namespace meridane::bench
