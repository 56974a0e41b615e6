#include "lib/framescore/nnlayer/tdnn.h"

#include "lib/framescore/nnlayer/count.h"
#include "lib/framescore/nnlayer/frame_history.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {

struct TDNNLayerState : NNLayerState {
  explicit TDNNLayerState(Eigen::Index rows) : kept(rows) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<TDNNLayerState>(*this); }
  std::uint64_t bytes() const override { return kept.bytes(); }

  FrameHistory kept;
  std::uint64_t outputs = 0;  ///< of the stream until now
};

/// Taps on neighbouring samples are one product: each alone has but one term.
void TDNNLayer::pack_taps() {
  if (weight_.cols() == 1 && dilation_ == 1) {
    weight_.pack_side_by_side(kernel_);
  } else {
    weight_.pack_each(kernel_);
  }
}

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
  // Below 0 for a causal chunk that is shorter than the stride.
  const Eigen::Index last_start = before + C + T + after - K;
  const Eigen::Index frames = last_start < 0 ? 0 : last_start / stride_ + 1;
  expect_frames(inputs, frames);
  MinibatchPtr y = inputs.result(output_rows(), frames);
  float* const to = y->content().data();
  if (groups_ && T >= K) {
    convolve_around(x.content(), before, after, frames, *stream, to);
  } else {
    convolve(stream->kept.append(x.content(), before, after), frames, stream->outputs, to);
    stream->kept.keep(overlap());
  }
  stream->outputs += static_cast<std::uint64_t>(frames);
  return y;
}

void TDNNLayer::convolve_around(const Matrix& x, Eigen::Index before, Eigen::Index after, Eigen::Index frames,
                                TDNNLayerState& stream, float* y) const {
  const Eigen::Index T = x.cols(), K = width(), rows = input_rows(), lead = before + stream.kept.frames();
  const Eigen::Index head = std::min(frames, (lead + stride_ - 1) / stride_);
  const Eigen::Index start = head * stride_ - lead;  // in x, of the first window behind them
  const Eigen::Index inner = start > T - K ? 0 : std::min(frames - head, (T - K - start) / stride_ + 1);
  const Eigen::Index end = start + inner * stride_, rest = std::max<Eigen::Index>(T - end, 0);
  const auto output = [&stream](Eigen::Index f) { return stream.outputs + static_cast<std::uint64_t>(f); };

  convolve(stream.kept.append(x.data(), K - 1, before, 0), head, output(0), y);
  if (inner > 0) convolve(x.data() + start * rows, inner, output(head), y + head * rows);
  if (const Eigen::Index tail = frames - head - inner; tail > 0) {
    stream.kept.keep(0);
    const float* const window = stream.kept.append(x.data() + (T - rest) * rows, rest, 0, after);
    convolve(window + (end - T + rest) * rows, tail, output(head + inner), y + (head + inner) * rows);
  }
  stream.kept.keep(0);
  stream.kept.append(x.data() + (T - overlap()) * rows, overlap(), 0, 0);
}

void TDNNLayer::convolve(const float* window, Eigen::Index frames, std::uint64_t first, float* y) const {
  const Eigen::Index in = input_rows(), out = output_rows();
  const std::size_t step = count(in * stride_), distance = count(in * dilation_);
  if (groups_) {
    const Eigen::Index at_once = weight_.cols() == 1 ? frames : 1;  // that have the same weights
    for (Eigen::Index f = 0; f < frames; f += at_once) {
      tap_sum(window + count(f) * step, step, count(at_once), count(in), count(kernel_), distance,
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
