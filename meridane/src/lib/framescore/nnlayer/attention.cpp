#include "lib/framescore/nnlayer/attention.h"

#include <cmath>

#include "meridane/error.h"

namespace meridane {
namespace {

struct Scratch {
  Matrix projected;
  Eigen::MatrixXd keys, values;
  Eigen::VectorXd query, weights;
  Matrix context;
};

/// Column t of context: the values, weighted by how well their keys answer query t. In double precision a product of
/// any two floats is finite.
void attend(Scratch& scratch, Eigen::Index n) {
  const auto queries = scratch.projected.topRows(n);
  scratch.keys = scratch.projected.middleRows(n, n).cast<double>();
  scratch.values = scratch.projected.bottomRows(n).cast<double>();
  scratch.context.resize(n, scratch.projected.cols());
  const double scale = 1 / std::sqrt(static_cast<double>(n));
  for (Eigen::Index t = 0; t < queries.cols(); ++t) {
    scratch.query = scale * queries.col(t).cast<double>();
    Eigen::VectorXd& weights = scratch.weights;
    weights.noalias() = scratch.keys.transpose() * scratch.query;
    weights = (weights.array() - weights.maxCoeff()).exp();
    weights /= weights.sum();
    scratch.query.noalias() = scratch.values * weights;
    scratch.context.col(t) = scratch.query.cast<float>();
  }
}

}  // namespace

void AttentionLayer::parameters(ParameterVisitor& visitor) {
  visitor.mandatory("input_size", input_size_);
  visitor.weight("in_weight", in_.weight);
  visitor.vector("in_bias", in_.bias);
  visitor.weight("out_weight", out_.weight);
  visitor.vector("out_bias", out_.bias);
}

void AttentionLayer::loaded() {
  if (input_size_ < 1) raise_incorrect("input_size");
  const long long n = input_size_;
  if (in_.weight.rows() != 3 * n || in_.weight.cols() != n) {
    raise("<in_weight> is not %lld x %lld matrix a layer of type \"Attention\"", 3 * n, n);
  }
  if (in_.bias.size() != 3 * n) raise("<in_bias> size is not %lld matrix a layer of type \"Attention\"", 3 * n);
  const auto outputs = static_cast<long long>(out_.weight.rows());
  if (out_.weight.cols() != n) {
    raise("<out_weight> is not %lld x %lld matrix a layer of type \"Attention\"", outputs, n);
  }
  if (out_.bias.size() != outputs) {
    raise("Numbers of rows of out_weight[%lld] and size of out_bias[%lld] do not match", outputs,
          static_cast<long long>(out_.bias.size()));
  }
  pack(in_.weight);
  pack(out_.weight);
}

MinibatchPtr AttentionLayer::forward(const LayerInputs& inputs) const {
  const Minibatch& x = *only_input(inputs);
  in_.expect(x);
  MinibatchPtr y = inputs.result(out_.weight.rows(), x.content().cols());
  if (x.size() == 0) return y;
  thread_local Scratch scratch;
  in_.forward(x.content(), scratch.projected);
  attend(scratch, input_size_);
  out_.forward(scratch.context, y->content());
  return y;
}

}  // namespace meridane
