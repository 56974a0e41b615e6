#pragma once

#include "meridane/matrix.h"

namespace meridane {

/// Multi-head attention with relative positions over projected frames of `heads` times `head_rows` values, one frame
/// behind the other. The queries are the last of the keys' frames. For query i and key j, counted alike, in each head:
///   s(i, j) = ((q(i) + bias_u) . k(j) + (q(i) + bias_v) . p(j - i)) / sqrt(head_rows)
///   context(i) = sum over j of v(j) exp(s(i, j)) / sum over j of exp(s(i, j))
struct RelAttention {
  Eigen::Index heads, head_rows;
  Eigen::Index queries, keys;  ///< frames; at least as many keys as queries
  const float* q;
  const float* k;
  const float* v;
  /// Of the distances -(keys - 1) to queries - 1.
  const float* p;
  const float* bias_u;
  const float* bias_v;

  Eigen::Index distances() const { return keys + queries - 1; }
  void run(float* context) const;
};

}  // namespace meridane
