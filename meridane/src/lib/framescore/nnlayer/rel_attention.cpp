#include "lib/framescore/nnlayer/rel_attention.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "lib/kernels/element_wise.h"

namespace meridane {
namespace {

// Queries that are worked on together: what they need stays small, however long the call is.
constexpr Eigen::Index kBlock = 48;

using Columns = Eigen::OuterStride<>;
using Frames = Eigen::Map<const Matrix, 0, Columns>;

/// A matrix in memory that is kept, however its size changes.
class Scratch {
 public:
  Eigen::Map<Matrix> sized(Eigen::Index rows, Eigen::Index columns) {
    const auto size = static_cast<std::size_t>(rows * columns);
    if (memory_.size() < size) memory_.resize(size);
    return {memory_.data(), rows, columns};
  }

 private:
  std::vector<float> memory_;
};

/// Scores of a query q, q + u with the keys and q + v with the distances to them, whose products or sums are beyond
/// single precision. They come relative to the largest, which changes no weight.
template <class Query, class Bias>
void score_in_double(const Query& q, const Bias& u, const Bias& v, const Frames& keys, const Frames& positions,
                     Eigen::Ref<Vector> scores) {
  const auto score = [&](Eigen::Index j) {
    return (q.template cast<double>() + u.template cast<double>()).dot(keys.col(j).cast<double>()) +
           (q.template cast<double>() + v.template cast<double>()).dot(positions.col(j).cast<double>());
  };
  double largest = score(0);
  for (Eigen::Index j = 1; j < scores.size(); ++j) largest = std::max(largest, score(j));
  constexpr double kLeast = std::numeric_limits<float>::lowest();
  for (Eigen::Index j = 0; j < scores.size(); ++j) {
    scores(j) = static_cast<float>(std::max(score(j) - largest, kLeast));
  }
}

}  // namespace

void RelAttention::run(float* context) const {
  // Queries with a bias, and their products with all keys and with all distances.
  thread_local Scratch of_q, of_scores, of_positional;
  const Eigen::Index d = heads * head_rows;
  const float scale = static_cast<float>(std::sqrt(static_cast<double>(head_rows)));
  for (Eigen::Index first = 0; first < queries; first += kBlock) {
    const Eigen::Index block = std::min(kBlock, queries - first);
    // The distance of the block's last query to key 0 stands here, and every query before it looks one place further.
    const Eigen::Index begin = queries - first - block;
    const Eigen::Index distances = keys + block - 1;
    Eigen::Map<Matrix> biased = of_q.sized(head_rows, block);
    Eigen::Map<Matrix> scores = of_scores.sized(keys, block), positional = of_positional.sized(distances, block);
    for (Eigen::Index row = 0; row < d; row += head_rows) {
      const Frames head_q(q + first * d + row, head_rows, block, Columns(d));
      const Frames head_k(k + row, head_rows, keys, Columns(d));
      const Eigen::Map<const Vector> head_u(bias_u + row, head_rows), head_v(bias_v + row, head_rows);
      biased = head_q.colwise() + head_u;
      scores.noalias() = head_k.transpose() * biased;
      biased = head_q.colwise() + head_v;
      positional.noalias() = Frames(p + begin * d + row, head_rows, distances, Columns(d)).transpose() * biased;
      for (Eigen::Index i = 0; i < block; ++i) {
        scores.col(i) += positional.col(i).segment(block - 1 - i, keys);
        if (!std::isfinite(scores.col(i).sum())) {
          score_in_double(head_q.col(i), head_u, head_v, head_k,
                          Frames(p + (begin + block - 1 - i) * d + row, head_rows, keys, Columns(d)), scores.col(i));
        }
        softmax(scores.col(i).data(), static_cast<std::size_t>(keys), scale, scores.col(i).data());
      }
      Eigen::Map<Matrix, 0, Columns>(context + first * d + row, head_rows, block, Columns(d)).noalias() =
          Frames(v + row, head_rows, keys, Columns(d)) * scores;
    }
  }
}

}  // namespace meridane
