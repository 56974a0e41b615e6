#include "lib/framescore/nnlayer/rel_attention.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "lib/framescore/nnlayer/count.h"
#include "lib/kernels/element_wise.h"
#include "lib/kernels/kernels.h"

namespace meridane {
namespace {

// Queries that are worked on together: what they need stays small, however long the call is.
constexpr Eigen::Index kRelQueryBlock = 48;

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

/// The values of a head in the order in which the product reads a matrix of which they are the columns.
const float* in_panels(const float* v, Eigen::Index stride, Eigen::Index rows, Eigen::Index keys, Scratch& memory) {
  const PanelShape shape{.rows = count(rows),
                         .columns = count(keys),
                         .lanes = best_kernels().lanes,
                         .height = best_kernels().panel_height};
  float* const panels = memory.sized(static_cast<Eigen::Index>(shape.readable_size()), 1).data();
  for (std::size_t first = 0; first < shape.rows; first += shape.height) {
    const std::size_t height = shape.height_at(first);
    float* to = panels + first * shape.columns;
    for (Eigen::Index j = 0; j < keys; ++j) to = std::copy_n(v + j * stride + first, height, to);
  }
  return panels;
}

}  // namespace

void RelAttention::run(float* context) const {
  // Queries with a bias, their products with all distances and all keys, and values.
  thread_local Scratch of_q, of_scores, of_positional, of_values;
  const Kernels& kernels = best_kernels();
  const Eigen::Index d = heads * head_rows;
  const float scale = static_cast<float>(std::sqrt(static_cast<double>(head_rows)));
  for (Eigen::Index first = 0; first < queries; first += kRelQueryBlock) {
    const Eigen::Index block = std::min(kRelQueryBlock, queries - first);
    // The distance of the block's last query to key 0 stands here, and every query before it looks one place further.
    const Eigen::Index begin = queries - first - block;
    const Eigen::Index distances = keys + block - 1;
    Eigen::Map<Matrix> biased = of_q.sized(head_rows, block);
    Eigen::Map<Matrix> scores = of_scores.sized(keys, block), positional = of_positional.sized(distances, block);
    for (Eigen::Index row = 0; row < d; row += head_rows) {
      const Frames head_q(q + first * d + row, head_rows, block, Columns(d));
      const Eigen::Map<const Vector> head_u(bias_u + row, head_rows), head_v(bias_v + row, head_rows);
      // The head's rows of frames are columns of a matrix whose rows are the frames.
      Product<float> product{.w = p + begin * d,
                             .rows = count(distances),
                             .columns = count(d),
                             .begin = count(row),
                             .end = count(row + head_rows),
                             .x = biased.data(),
                             .x_stride = count(head_rows),
                             .frames = count(block),
                             .start = nullptr,
                             .start_stride = 0,
                             .y = positional.data(),
                             .y_stride = count(distances)};
      biased = head_q.colwise() + head_v;
      kernels.multiply_rows(product);
      product.w = k;
      product.rows = count(keys);
      product.start = positional.data() + block - 1;
      product.start_stride = count(distances - 1);
      product.y = scores.data();
      product.y_stride = count(keys);
      biased = head_q.colwise() + head_u;
      kernels.multiply_rows(product);
      for (Eigen::Index i = 0; i < block; ++i) {
        if (!std::isfinite(scores.col(i).sum())) {
          score_in_double(head_q.col(i), head_u, head_v, Frames(k + row, head_rows, keys, Columns(d)),
                          Frames(p + (begin + block - 1 - i) * d + row, head_rows, keys, Columns(d)), scores.col(i));
        }
        softmax(scores.col(i).data(), count(keys), scale, scores.col(i).data());
      }
      kernels.multiply({.w = in_panels(v + row, d, head_rows, keys, of_values),
                        .rows = count(head_rows),
                        .columns = count(keys),
                        .begin = 0,
                        .end = count(keys),
                        .x = scores.data(),
                        .x_stride = count(keys),
                        .frames = count(block),
                        .start = nullptr,
                        .start_stride = 0,
                        .y = context + first * d + row,
                        .y_stride = count(d)});
    }
  }
}

}  // namespace meridane
