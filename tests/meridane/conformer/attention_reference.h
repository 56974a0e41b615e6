#pragma once

#include <cmath>
#include <functional>
#include <map>

#include "../layers/layer_record.h"

// Attention with relative positions in double precision, a pair of frames at a time.

namespace meridane::test {

using Exact = Eigen::MatrixXd;

/// The encoding of a distance: sin(n f) in even rows, cos(n f) in odd ones, f = exp(-2i ln(10000) / d).
inline Exact encoding(Eigen::Index d, Eigen::Index distance) {
  Exact column(d, 1);
  for (Eigen::Index row = 0; row < d; ++row) {
    const double i = std::floor(static_cast<double>(row) / 2);
    const double angle = static_cast<double>(distance) / std::pow(10000.0, 2 * i / static_cast<double>(d));
    column(row) = row % 2 == 0 ? std::sin(angle) : std::cos(angle);
  }
  return column;
}

/// The parameters of a RelMHA, of numbers that half precision holds.
struct AttentionSample {
  AttentionSample(Dice& dice, Eigen::Index d, int nhead) : heads(nhead) {
    for (Matrix* weight : {&q, &k, &v, &out, &pos}) *weight = dice.matrix(d, d);
    for (Matrix* bias : {&q_bias, &k_bias, &v_bias, &out_bias, &bias_u, &bias_v}) *bias = dice.matrix(d, 1);
  }

  Eigen::Index rows() const { return q.rows(); }

  std::string record(const std::string& type = "RelMHA") const {
    Record record(type);
    record.number<std::int32_t>(heads);
    for (const Matrix* m : {&q, &q_bias, &k, &k_bias, &v, &v_bias, &out, &out_bias, &pos, &bias_u, &bias_v}) {
      record.matrix(*m, type.starts_with("Compressed"));
    }
    return record.bytes();
  }

  /// What query i of Q sees of the keys K and values V, key j being at the distance distance(i, j); keys for which
  /// `sees` is false don't count.
  using Distance = std::function<Eigen::Index(Eigen::Index i, Eigen::Index j)>;
  using Sees = std::function<bool(Eigen::Index i, Eigen::Index j)>;
  Exact attention(const Exact& Q, const Exact& K, const Exact& V, const Distance& distance, const Sees& sees) const {
    const Eigen::Index d = rows(), head_rows = d / heads;
    const Exact query = affine(q, q_bias, Q), key = affine(k, k_bias, K), value = affine(v, v_bias, V);
    std::map<Eigen::Index, Exact> positions;
    const auto position = [&](Eigen::Index n) -> const Exact& {
      Exact& p = positions[n];
      if (p.size() == 0) p = pos.cast<double>() * encoding(d, n);
      return p;
    };
    Exact context = Exact::Zero(d, Q.cols());
    for (Eigen::Index i = 0; i < Q.cols(); ++i) {
      for (Eigen::Index row = 0; row < d; row += head_rows) {
        const Eigen::VectorXd of_key = (query.col(i) + bias_u.cast<double>()).middleRows(row, head_rows);
        const Eigen::VectorXd of_position = (query.col(i) + bias_v.cast<double>()).middleRows(row, head_rows);
        Eigen::VectorXd scores = Eigen::VectorXd::Constant(K.cols(), -HUGE_VAL);
        for (Eigen::Index j = 0; j < K.cols(); ++j) {
          if (!sees(i, j)) continue;
          scores(j) = of_key.dot(key.col(j).middleRows(row, head_rows)) +
                      of_position.dot(position(distance(i, j)).middleRows(row, head_rows).col(0));
        }
        const Eigen::VectorXd e =
            ((scores.array() - scores.maxCoeff()) / std::sqrt(static_cast<double>(head_rows))).exp().matrix();
        context.col(i).middleRows(row, head_rows) = value.middleRows(row, head_rows) * e / e.sum();
      }
    }
    return affine(out, out_bias, context);
  }

  static Exact affine(const Matrix& weight, const Matrix& bias, const Exact& x) {
    return (weight.cast<double>() * x).colwise() + Eigen::VectorXd(bias.cast<double>());
  }

  int heads;
  Matrix q, k, v, out, pos, q_bias, k_bias, v_bias, out_bias, bias_u, bias_v;
};

inline bool sees_all(Eigen::Index, Eigen::Index) { return true; }
inline Eigen::Index ahead(Eigen::Index i, Eigen::Index j) { return j - i; }

inline double distance(const Matrix& found, const Exact& wanted) {
  if (found.rows() != wanted.rows() || found.cols() != wanted.cols()) return HUGE_VAL;
  const double most = found.cols() == 0 ? 0 : (found.cast<double>() - wanted).cwiseAbs().maxCoeff();
  return std::isnan(most) || !found.allFinite() ? HUGE_VAL : most;
}

}  // namespace meridane::test
