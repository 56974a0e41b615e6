#include "lib/framescore/nnlayer/tdnn.h"

#include "lib/framescore/nnlayer/frame_history.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {
namespace {

struct TDNNLayerState : NNLayerState {
  explicit TDNNLayerState(Eigen::Index rows) : kept(rows) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<TDNNLayerState>(*this); }

  FrameHistory kept;
  std::uint64_t outputs = 0;  ///< of the stream until now
};

std::size_t count(Eigen::Index size) { return static_cast<std::size_t>(size); }

}  // namespace

std::shared_ptr<NNLayerState> TDNNLayer::create_state() const { return std::make_shared<TDNNLayerState>(input_rows()); }

MinibatchPtr TDNNLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& x = *only_input(inputs);
  const Eigen::Index T = x.content().cols(), K = width();
  if (T == 0) return inputs.result(output_rows(), 0);
  if (x.content().rows() != input_rows()) raise_rows(x);
  auto* const stream = dynamic_cast<TDNNLayerState*>(state.get());
  if (stream == nullptr || stream->kept.rows() != input_rows()) raise("No state for layer %s", id().c_str());
  const Eigen::Index C = stream->kept.frames();
  if (T + C + pad_ < K) {
    raise("Input data size is less than kernel width in layer %s: (input:%d + overlap:%d + pad:%d) vs kernel_width:%d",
          id().c_str(), static_cast<int>(T), static_cast<int>(C), pad_, static_cast<int>(K));
  }
  const Eigen::Index before = causal_ ? std::max<Eigen::Index>(overlap() - C, 0) : pad_;
  const Eigen::Index after = causal_ ? 0 : pad_;
  const float* const window = stream->kept.append(x.content(), before, after);
  // Below 0 for a causal chunk that is shorter than the stride.
  const Eigen::Index last_start = before + C + T + after - K;
  const Eigen::Index frames = last_start < 0 ? 0 : last_start / stride_ + 1;
  MinibatchPtr y = inputs.result(output_rows(), frames);
  convolve(window, frames, stream->outputs, y->content().data());
  stream->outputs += static_cast<std::uint64_t>(frames);
  stream->kept.keep(overlap());
  return y;
}

void TDNNLayer::convolve(const float* window, Eigen::Index frames, std::uint64_t first, float* y) const {
  const Eigen::Index in = input_rows(), out = output_rows();
  const std::size_t step = count(in * stride_), distance = count(in * dilation_);
  if (groups_) {
    for (Eigen::Index f = 0; f < frames; ++f) {
      tap_sum(window + count(f) * step, count(in), count(kernel_), distance,
              grouped_taps(first + static_cast<std::uint64_t>(f)), bias_.data(), y + f * out);
    }
    return;
  }
  const std::vector<PackedWeight>& taps = weight_.packed();
  taps.front().multiply(window, step, count(frames), bias_.data(), y, count(out));
  for (std::size_t k = 1; k < taps.size(); ++k) {
    taps[k].multiply_add(window + k * distance, step, count(frames), y, count(out));
  }
}

}  // namespace meridane
