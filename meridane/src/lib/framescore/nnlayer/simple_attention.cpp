#include "lib/framescore/nnlayer/simple_attention.h"

#include "lib/framescore/nnlayer/weighted_mean.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {
namespace {

struct SimpleAttentionLayerState : NNLayerState {
  explicit SimpleAttentionLayerState(Eigen::Index rows) : mean(rows) {}
  std::shared_ptr<NNLayerState> clone() const override { return std::make_shared<SimpleAttentionLayerState>(*this); }
  std::uint64_t bytes() const override { return mean.bytes(); }

  WeightedMean mean;
};

}  // namespace

void SimpleAttentionLayer::parameters(ParameterVisitor& visitor) {
  visitor.stated("input_size", input_size_);
  visitor.weight("weight", linear_.weight);
  visitor.vector("bias", linear_.bias);
  visitor.vector("context", context_);
}

void SimpleAttentionLayer::loaded() {
  const auto rows = static_cast<long long>(linear_.weight.rows());
  if (input_size_ != 0 && linear_.weight.cols() != input_size_) {
    raise("<weight> is not %lld x %d matrix a layer of type \"SimpleAttention\"", rows, input_size_);
  }
  input_size_ = static_cast<std::int32_t>(linear_.weight.cols());
  if (linear_.bias.size() != rows) {
    raise("<bias> size is not %lld vector a layer of type \"SimpleAttention\"", rows);
  }
  if (context_.size() != rows) raise("<context> is not %lld vector a layer of type \"SimpleAttention\"", rows);
  pack(linear_.weight);
}

std::shared_ptr<NNLayerState> SimpleAttentionLayer::create_state() const {
  return std::make_shared<SimpleAttentionLayerState>(linear_.weight.cols());
}

MinibatchPtr SimpleAttentionLayer::forward(const LayerInputs& inputs,
                                           const std::shared_ptr<NNLayerState>& state) const {
  const Minibatch& x = *only_input(inputs);
  linear_.expect(x);
  auto* const own = dynamic_cast<SimpleAttentionLayerState*>(state.get());
  if (state != nullptr && (own == nullptr || own->mean.rows() != linear_.weight.cols())) {
    raise("No state for layer %s", id().c_str());
  }
  thread_local WeightedMean of_call(0);
  if (own == nullptr) of_call.clear(linear_.weight.cols());
  WeightedMean& mean = own != nullptr ? own->mean : of_call;

  thread_local Matrix u;
  linear_.forward(x.content(), u);
  hyperbolic_tangent(u.data(), static_cast<std::size_t>(u.size()), 1, 0, u.data());
  for (Eigen::Index t = 0; t < u.cols(); ++t) {
    mean.add(context_.map().cast<double>().dot(u.col(t).cast<double>()), x.content().col(t));
  }
  MinibatchPtr y = inputs.result(linear_.weight.cols(), mean.is_empty() ? 0 : 1);
  if (!mean.is_empty()) mean.write(y->content().col(0));
  return y;
}

}  // namespace meridane
