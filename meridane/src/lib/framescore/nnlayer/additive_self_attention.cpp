#include "lib/framescore/nnlayer/additive_self_attention.h"

#include "lib/framescore/nnlayer/weighted_mean.h"
#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {

void AdditiveSelfAttentionLayer::parameters(ParameterVisitor& visitor) {
  visitor.stated("input_size", input_size_);
  visitor.number("scaling", scaling_, 1);
  visitor.weight("key_weight", key_.weight);
  visitor.vector("key_bias", key_.bias);
  visitor.vector("query", query_);
  visitor.weight("gvec_weight", gvec_weight_);
  visitor.vector("gvec_bias", gvec_bias_);
}

void AdditiveSelfAttentionLayer::loaded() {
  const auto rows = static_cast<long long>(key_.weight.rows());
  if (input_size_ != 0 && key_.weight.cols() != input_size_) {
    raise("<key_weight> is not %lld x %d matrix a layer of type \"AdditiveSelfAttention\"", rows, input_size_);
  }
  input_size_ = static_cast<std::int32_t>(key_.weight.cols());
  if (key_.bias.size() != rows) {
    raise("<key_bias> size is not %lld vector a layer of type \"AdditiveSelfAttention\"", rows);
  }
  if (query_.size() != rows) {
    raise("The size of the <query> vector in the \"AdditiveSelfAttention\" is not %lld", rows);
  }
  if (gvec_weight_.rows() != 1 || gvec_weight_.cols() != rows) {
    raise("<gvec_weight> is not 1 x %lld matrix a layer of type \"AdditiveSelfAttention\"", rows);
  }
  if (gvec_bias_.size() != 1) raise("The size of the <gvec_bias> vector in the \"AdditiveSelfAttention\" is not 1");
  pack(key_.weight);
}

MinibatchPtr AdditiveSelfAttentionLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  key_.expect(x);
  MinibatchPtr y = inputs.result(key_.weight.cols(), x.size() > 0 ? 1 : 0);
  if (x.size() == 0) return y;
  thread_local Matrix hidden;
  key_.forward(x.content(), hidden);
  hidden.colwise() += query_.map();
  hyperbolic_tangent(hidden.data(), static_cast<std::size_t>(hidden.size()), 1, 0, hidden.data());
  const Eigen::Map<const Vector> gvec(gvec_weight_.map().data(), hidden.rows());
  thread_local WeightedMean mean(0);
  mean.clear(key_.weight.cols());
  for (Eigen::Index t = 0; t < hidden.cols(); ++t) {
    const double e = gvec.cast<double>().dot(hidden.col(t).cast<double>()) + gvec_bias_.data()[0];
    mean.add(scaling_ * e, x.content().col(t));
  }
  mean.write(y->content().col(0));
  return y;
}

}  // namespace meridane
