#include "lib/framescore/nnlayer/attention.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "lib/kernels/element_wise.h"
#include "meridane/error.h"

namespace meridane {
namespace {

// Queries that are worked on together: what they need stays small, however long the call is.
constexpr Eigen::Index kQueryBlock = 48;

/// Brings all values below 4 by a power of two, which is exact, so that no sum of their products overflows. Gives the
/// exponent that it took out.
template <class Values>
int normalise(Values values) {
  const float largest = values.cwiseAbs().maxCoeff();
  if (!std::isnormal(largest)) return 0;
  int exponent = 0;
  std::frexp(largest, &exponent);
  exponent = std::clamp(exponent - 2, -120, 126);  // whose power and its reciprocal are both normal numbers
  values *= std::ldexp(1.0f, -exponent);
  return exponent;
}

/// Column t of context: the values, weighted by how well their keys answer query t. The rows of `projected` are
/// queries, keys and values, n each; queries and keys don't keep their scale.
void attend(Matrix& projected, Eigen::Index n, Matrix& context) {
  using Limits = std::numeric_limits<float>;
  const auto q = projected.topRows(n), k = projected.middleRows(n, n), v = projected.bottomRows(n);
  const int exponent = normalise(projected.topRows(n)) + normalise(projected.middleRows(n, n));
  const double temperature = std::ldexp(std::sqrt(static_cast<double>(n)), -exponent);
  const auto scale = static_cast<float>(
      std::clamp<double>(temperature, Limits::min(), Limits::max()));  // beyond: 0 and 1, or all equal
  const Eigen::Index frames = projected.cols();
  thread_local std::vector<float> memory;
  memory.resize(std::max(memory.size(), static_cast<std::size_t>(frames * std::min(kQueryBlock, frames))));
  context.resize(n, frames);
  for (Eigen::Index first = 0; first < frames; first += kQueryBlock) {
    const Eigen::Index block = std::min(kQueryBlock, frames - first);
    Eigen::Map<Matrix> scores(memory.data(), frames, block);
    scores.noalias() = k.transpose() * q.middleCols(first, block);
    for (Eigen::Index t = 0; t < block; ++t) {
      softmax(scores.col(t).data(), static_cast<std::size_t>(frames), scale, scores.col(t).data());
    }
    context.middleCols(first, block).noalias() = v * scores;
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
  thread_local Matrix projected, context;
  in_.forward(x.content(), projected);
  attend(projected, input_size_, context);
  out_.forward(context, y->content());
  return y;
}

}  // namespace meridane
