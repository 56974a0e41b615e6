#include "nn/torch_peer.h"

#include <torch/torch.h>

#include <cmath>
#include <utility>
#include <vector>

#include "nn/network_shapes.h"

namespace meridane::bench {
namespace {

using torch::Tensor;

/// Weights that keep the size of what `summed` of them are applied to.
Tensor weights(at::IntArrayRef sizes, long summed) {
  return torch::randn(sizes) / std::sqrt(static_cast<double>(summed));
}

struct Dense {
  Dense(long rows, long out) : w(weights({out, rows}, rows)), bias(weights({out}, out)) {}
  Tensor operator()(const Tensor& x) const { return torch::linear(x, w, bias); }
  Tensor w, bias;
};

/// Along time, causal; x is 1 x channels x frames.
struct Taps {
  Taps(long in, long out, long count, long the_dilation = 1, bool depthwise = false)
      : w(weights({out, depthwise ? 1 : in, count}, depthwise ? count : in * count)),
        bias(weights({out}, out)),
        before(torch::zeros({1, in, (count - 1) * the_dilation})),
        dilation(the_dilation),
        groups(depthwise ? in : 1) {}

  Tensor operator()(const Tensor& x) {
    Tensor from = x;
    if (before.size(2) > 0) {
      from = torch::cat({before, x}, 2);
      before = from.narrow(2, x.size(2), before.size(2));
    }
    return torch::conv1d(from, w, bias, at::IntArrayRef{1}, at::IntArrayRef{0}, dilation, groups);
  }

  Tensor w, bias, before;
  long dilation, groups;
};

struct Lstm {
  Lstm(long rows, long cells, long layers)
      : state{torch::zeros({layers, 1, cells}), torch::zeros({layers, 1, cells})}, count(layers) {
    for (long layer = 0; layer < layers; ++layer) {
      const long in = layer == 0 ? rows : cells;
      parameters.push_back(weights({4 * cells, in}, in));
      parameters.push_back(weights({4 * cells, cells}, cells));
      parameters.push_back(weights({4 * cells}, cells));
      parameters.push_back(torch::zeros({4 * cells}));
    }
  }

  /// x is frames x 1 x rows.
  Tensor operator()(const Tensor& x) {
    auto [y, h, c] = torch::lstm(x, state, parameters, true, count, 0, false, false, false);
    state = {h, c};
    return y;
  }

  std::vector<Tensor> parameters, state;
  long count;
};

struct Norm {
  explicit Norm(long rows) : weight(torch::ones({rows})), bias(torch::zeros({rows})) {}
  Tensor operator()(const Tensor& x) const { return torch::layer_norm(x, {x.size(-1)}, weight, bias); }
  Tensor weight, bias;
};

class Enhancement {
 public:
  Tensor operator()(const Tensor& samples) {
    const Tensor from = torch::cat({before_, samples}, 2);
    before_ = from.narrow(2, samples.size(2), before_.size(2));
    const Tensor encoded = torch::conv1d(from, encoder_, encoder_bias_, Shape::hop);
    Tensor y = bottleneck_(encoded);
    for (Block& block : blocks_) {
      y = y + block.out(torch::silu(block.depth(torch::prelu(block.in(y), slope_))));
    }
    const Tensor masked = encoded * torch::sigmoid(mask_(y));
    Tensor sound = torch::conv_transpose1d(masked, decoder_, decoder_bias_, Shape::hop);
    sound.narrow(2, 0, Shape::window - Shape::hop).add_(after_);
    after_ = sound.narrow(2, samples.size(2), Shape::window - Shape::hop);
    return sound.narrow(2, 0, samples.size(2));
  }

 private:
  using Shape = EnhancementShape;
  struct Block {
    explicit Block(long i)
        : in(Shape::narrow, Shape::channels, 1),
          depth(Shape::channels, Shape::channels, Shape::taps, Shape::dilation(i), true),
          out(Shape::channels, Shape::narrow, 1) {}
    Taps in, depth, out;
  };

  static std::vector<Block> blocks() {
    std::vector<Block> all;
    for (long i = 0; i < Shape::blocks; ++i) all.emplace_back(i);
    return all;
  }

  Tensor before_ = torch::zeros({1, 1, Shape::window - Shape::hop}), after_ = before_;
  Tensor encoder_ = weights({Shape::channels, 1, Shape::window}, Shape::window),
         encoder_bias_ = torch::zeros({Shape::channels});
  Tensor decoder_ = weights({Shape::channels, 1, Shape::window}, Shape::channels), decoder_bias_ = torch::zeros({1});
  Tensor slope_ = torch::full({1}, 0.25f);
  Taps bottleneck_{Shape::channels, Shape::narrow, 1}, mask_{Shape::narrow, Shape::channels, 1};
  std::vector<Block> blocks_ = blocks();
};

/// Frames are rows. The projections of distances are the same from call to call, and so not computed; a batch norm is
/// part of the weights before it.
class ConformerBlock {
 public:
  Tensor operator()(Tensor x) {
    x = x + 0.5 * fc2_(torch::silu(fc1_(norm1_(x))));
    x = x + attention(norm2_(x));
    const Tensor inner = torch::glu(conv1_(norm3_(x)), 1);
    x = x + conv3_(torch::silu(conv2_(inner.t().unsqueeze(0)).squeeze(0).t()));
    x = x + 0.5 * fc4_(torch::silu(fc3_(norm5_(x))));
    return norm6_(x);
  }

 private:
  using Shape = ConformerShape;
  static constexpr long d = Shape::rows, own = d / Shape::heads;

  static Tensor heads(const Tensor& x) { return x.view({x.size(0), Shape::heads, own}).transpose(0, 1); }

  Tensor attention(const Tensor& n) {
    const Tensor q = q_(n);
    const Tensor all_k = torch::cat({k_before_, k_(n)}, 0), all_v = torch::cat({v_before_, v_(n)}, 0);
    k_before_ = all_k.narrow(0, Shape::frames, Shape::cached);
    v_before_ = all_v.narrow(0, Shape::frames, Shape::cached);
    const Tensor of_keys = torch::matmul(heads(q + u_), heads(all_k).transpose(1, 2));
    const Tensor of_distances = torch::matmul(heads(q + v_bias_), heads(positions_).transpose(1, 2));
    // Each query looks one place further than the one behind it.
    const Tensor shifted =
        of_distances.as_strided(of_keys.sizes(), {Shape::frames * Shape::distances, Shape::distances - 1, 1},
                                of_distances.storage_offset() + Shape::frames - 1);
    const Tensor weight = torch::softmax((of_keys + shifted) / std::sqrt(static_cast<double>(own)), 2);
    return out_(torch::matmul(weight, heads(all_v)).transpose(0, 1).reshape({Shape::frames, d}));
  }

  Norm norm1_{d}, norm2_{d}, norm3_{d}, norm5_{d}, norm6_{d};
  Dense fc1_{d, Shape::hidden}, fc2_{Shape::hidden, d}, fc3_{d, Shape::hidden}, fc4_{Shape::hidden, d};
  Dense q_{d, d}, k_{d, d}, v_{d, d}, out_{d, d}, conv1_{d, 2 * d}, conv3_{d, d};
  Taps conv2_{d, d, Shape::taps, 1, true};
  Tensor u_ = weights({d}, d), v_bias_ = weights({d}, d), positions_ = weights({Shape::distances, d}, 1);
  Tensor k_before_ = torch::zeros({Shape::cached, d}), v_before_ = torch::zeros({Shape::cached, d});
};

/// A model that is called with the same frames again and again.
template <class Model>
Work calls(Model model, Tensor x) {
  return [model = std::move(model), x = std::move(x)]() mutable {
    const c10::InferenceMode inference;
    const Tensor y = model(x);
  };
}

}  // namespace

void prepare_torch() { torch::set_num_threads(1); }

Work torch_lstm(long size, long frames) { return calls(Lstm(size, size, 1), torch::randn({frames, 1, size})); }

Work torch_convolution(long channels, long taps, long frames, bool depthwise) {
  return calls(Taps(channels, channels, taps, 1, depthwise), torch::randn({1, channels, frames}));
}

Work torch_enhancement() {
  return calls(Enhancement(), torch::randn({1, 1, EnhancementShape::frames * EnhancementShape::hop}));
}

Work torch_conformer(long blocks) {
  const auto model = [all = std::vector<ConformerBlock>(static_cast<std::size_t>(blocks))](Tensor x) mutable {
    for (ConformerBlock& block : all) x = block(x);
    return x;
  };
  return calls(model, torch::randn({ConformerShape::frames, ConformerShape::rows}));
}

Work torch_mask() {
  using Shape = MaskShape;
  const auto model = [lstm = Lstm(Shape::rows, Shape::cells, 2), out = Dense(Shape::cells, Shape::rows)](
                         const Tensor& x) mutable { return x * torch::sigmoid(out(lstm(x))); };
  return calls(model, torch::randn({Shape::frames, 1, Shape::rows}));
}

}  // namespace meridane::bench
