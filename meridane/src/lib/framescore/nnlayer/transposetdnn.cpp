#include "lib/framescore/nnlayer/transposetdnn.h"

#include <algorithm>

#include "lib/framescore/nnlayer/held_bytes.h"
#include "meridane/error.h"

namespace meridane {
namespace {

struct TransposeTDNNLayerState : NNLayerState {
  explicit TransposeTDNNLayerState(Eigen::Index y_rows) : rows(y_rows) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<TransposeTDNNLayerState>(*this); }
  std::uint64_t bytes() const override { return held_bytes(sums, products); }

  Eigen::Index rows;            ///< of y
  std::vector<float> sums;      ///< frames of y that aren't given yet; behind them, between calls, nothing counts
  Eigen::Index unwanted = 0;    ///< of these, so many are still to be dropped
  std::uint64_t inputs = 0;     ///< frames of x until now
  std::vector<float> products;  ///< of taps and frames, within a call
};

}  // namespace

std::shared_ptr<NNLayerState> TransposeTDNNLayer::create_state() const {
  auto state = std::make_shared<TransposeTDNNLayerState>(output_rows());
  state->sums.assign(static_cast<std::size_t>((overlap() + held()) * output_rows()), 0.0f);
  state->unwanted = (causal_ ? overlap() : pad_) + held();
  return state;
}

MinibatchPtr TransposeTDNNLayer::forward(const LayerInputs& inputs, const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& x = *only_input(inputs);
  const Eigen::Index rows = output_rows(), kept = overlap() + held(), done = x.content().cols() * stride_;
  if (done == 0) return inputs.result(rows, 0);
  if (x.content().rows() != input_rows()) raise_rows(x);
  auto* const stream = dynamic_cast<TransposeTDNNLayerState*>(state.get());
  const bool is_own = stream != nullptr && stream->rows == rows;
  if (!is_own || stream->sums.size() < static_cast<std::size_t>(kept * rows)) {
    raise("No state for layer %s", id().c_str());
  }
  expect_frames(inputs, done);
  std::vector<float>& sums = stream->sums;
  sums.resize(static_cast<std::size_t>(std::max((kept + done) * rows, static_cast<Eigen::Index>(sums.size()))));
  std::fill_n(sums.begin() + kept * rows, done * rows, 0.0f);
  add_taps(x.content(), stream->inputs, stream->products, sums.data() + held() * rows);
  stream->inputs += x.size();

  const Eigen::Index dropped = std::min(stream->unwanted, done);
  stream->unwanted -= dropped;
  MinibatchPtr y = inputs.result(rows, done - dropped);
  const Eigen::Map<const Matrix> given(sums.data() + dropped * rows, rows, done - dropped);
  y->content() = given.colwise() + bias_.map();
  std::copy_n(sums.begin() + done * rows, kept * rows, sums.begin());
  return y;
}

void TransposeTDNNLayer::add_taps(const Matrix& x, std::uint64_t first, std::vector<float>& products,
                                  float* sums) const {
  using Sums = Eigen::Map<Vector>;
  using Terms = Eigen::Map<const Vector>;
  const Eigen::Index rows = output_rows();
  if (groups_) {
    for (Eigen::Index f = 0; f < x.cols(); ++f) {
      const float* const taps = grouped_taps(first + static_cast<std::uint64_t>(f));
      for (Eigen::Index k = 0; k < kernel_; ++k) {
        Sums(sums + (f * stride_ + k * dilation_) * rows, rows) += Terms(taps + k * rows, rows).cwiseProduct(x.col(f));
      }
    }
    return;
  }
  const Eigen::Index all = kernel_ * rows;  // of the products of a frame, tap after tap
  if (products.size() < static_cast<std::size_t>(all * x.cols())) {
    products.resize(static_cast<std::size_t>(all * x.cols()));
  }
  weight_.packed().front().multiply(x.data(), static_cast<std::size_t>(x.rows()), static_cast<std::size_t>(x.cols()),
                                    nullptr, products.data(), static_cast<std::size_t>(all));
  for (Eigen::Index f = 0; f < x.cols(); ++f) {
    float* const start = sums + f * stride_ * rows;
    const float* const terms = products.data() + f * all;
    if (dilation_ == 1) {  // the taps' sums are neighbours too
      Sums(start, all) += Terms(terms, all);
      continue;
    }
    for (Eigen::Index k = 0; k < kernel_; ++k) {
      Sums(start + k * dilation_ * rows, rows) += Terms(terms + k * rows, rows);
    }
  }
}

}  // namespace meridane
