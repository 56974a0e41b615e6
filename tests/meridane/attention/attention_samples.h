#pragma once

#include <gtest/gtest.h>

#include "../layers/layer_record.h"

// The attentions and joints: their records, and what they compute in double precision.

namespace meridane::test {

using Exact = Eigen::MatrixXd;

/// What a result may be off by: some roundings of float at values up to 4.
constexpr double kRounding = 4e-6;

inline double distance(const Matrix& y, const Exact& expected) {
  EXPECT_EQ(y.rows(), expected.rows());
  EXPECT_EQ(y.cols(), expected.cols());
  if (y.rows() != expected.rows() || y.cols() != expected.cols()) return std::numeric_limits<double>::infinity();
  return y.size() == 0 ? 0 : (y.cast<double>() - expected).cwiseAbs().maxCoeff();
}

inline std::string prefix(bool half) { return half ? "Compressed" : ""; }

inline Exact plus(const Exact& product, const Matrix& bias) {
  return product.colwise() + Eigen::VectorXd(bias.col(0).cast<double>());
}

/// The weights exp(s) / sum of exp(s).
inline std::vector<double> shares(const std::vector<double>& scores) {
  const double largest = *std::max_element(scores.begin(), scores.end());
  std::vector<double> weights;
  double sum = 0;
  for (const double s : scores) sum += weights.emplace_back(std::exp(s - largest));
  for (double& w : weights) w /= sum;
  return weights;
}

inline Exact mean(const Exact& x, const std::vector<double>& weights) {
  Exact y = Exact::Zero(x.rows(), 1);
  for (Eigen::Index t = 0; t < x.cols(); ++t) y += weights[static_cast<std::size_t>(t)] * x.col(t);
  return y;
}

struct AttentionParameters {
  Matrix in_weight, in_bias, out_weight, out_bias;

  explicit AttentionParameters(unsigned seed, Eigen::Index n = 5, Eigen::Index outputs = 3) {
    Dice dice(seed);
    in_weight = dice.matrix(3 * n, n);
    in_bias = dice.matrix(3 * n, 1);
    out_weight = dice.matrix(outputs, n);
    out_bias = dice.matrix(outputs, 1);
  }
  std::string record(bool half = false, std::int32_t input_size = 5) const {
    return Record(prefix(half) + "Attention")
        .number(input_size)
        .matrix(in_weight, half)
        .matrix(in_bias, half)
        .matrix(out_weight, half)
        .matrix(out_bias, half)
        .bytes();
  }
  Exact operator()(const Matrix& x) const {
    const Eigen::Index n = in_weight.cols(), T = x.cols();
    const Exact projected = plus(in_weight.cast<double>() * x.cast<double>(), in_bias);
    Exact context(n, T);
    for (Eigen::Index t = 0; t < T; ++t) {
      std::vector<double> scores;
      for (Eigen::Index s = 0; s < T; ++s) {
        double product = 0;
        for (Eigen::Index i = 0; i < n; ++i) product += projected(i, t) * projected(n + i, s);
        scores.push_back(product / std::sqrt(static_cast<double>(n)));
      }
      context.col(t) = mean(projected.bottomRows(n), shares(scores));
    }
    return plus(out_weight.cast<double>() * context, out_bias);
  }
};

struct SimpleParameters {
  Matrix weight, bias, context;

  explicit SimpleParameters(unsigned seed, Eigen::Index n = 5, Eigen::Index hidden = 4) {
    Dice dice(seed);
    weight = dice.matrix(hidden, n);
    bias = dice.matrix(hidden, 1);
    context = dice.matrix(hidden, 1);
  }
  std::string record(bool half = false) const {
    return Record(prefix(half) + "SimpleAttention")
        .matrix(weight, half)
        .matrix(bias, half)
        .matrix(context, half)
        .bytes();
  }
  Exact operator()(const Matrix& x) const {
    const Exact u = plus(weight.cast<double>() * x.cast<double>(), bias).array().tanh();
    std::vector<double> scores;
    for (Eigen::Index t = 0; t < x.cols(); ++t) scores.push_back(context.col(0).cast<double>().dot(u.col(t)));
    return mean(x.cast<double>(), shares(scores));
  }
};

struct AdditiveParameters {
  float scaling = 0.75f;
  Matrix key_weight, key_bias, query, gvec_weight, gvec_bias;

  explicit AdditiveParameters(unsigned seed, Eigen::Index n = 5, Eigen::Index hidden = 4) {
    Dice dice(seed);
    key_weight = dice.matrix(hidden, n);
    key_bias = dice.matrix(hidden, 1);
    query = dice.matrix(hidden, 1);
    gvec_weight = dice.matrix(1, hidden);
    gvec_bias = dice.matrix(1, 1);
  }
  std::string record(bool half = false) const {
    return Record(prefix(half) + "AdditiveSelfAttention")
        .number(scaling)
        .matrix(key_weight, half)
        .matrix(key_bias, half)
        .matrix(query, half)
        .matrix(gvec_weight, half)
        .matrix(gvec_bias, half)
        .bytes();
  }
  Exact operator()(const Matrix& x) const {
    const Exact keys = plus(key_weight.cast<double>() * x.cast<double>(), key_bias);
    std::vector<double> scores;
    for (Eigen::Index t = 0; t < x.cols(); ++t) {
      double score = gvec_bias(0, 0);
      for (Eigen::Index i = 0; i < keys.rows(); ++i) {
        score += static_cast<double>(gvec_weight(0, i)) * std::tanh(keys(i, t) + static_cast<double>(query(i, 0)));
      }
      scores.push_back(static_cast<double>(scaling) * score);
    }
    return mean(x.cast<double>(), shares(scores));
  }
};

struct JointParameters {
  Matrix enc, dec, bias, out, out_bias, blank, blank_bias;

  explicit JointParameters(unsigned seed, Eigen::Index hidden = 6, Eigen::Index of_x = 5, Eigen::Index of_g = 3,
                           Eigen::Index labels = 4) {
    Dice dice(seed);
    enc = dice.matrix(hidden, of_x);
    dec = dice.matrix(hidden, of_g);
    bias = dice.matrix(hidden, 1);
    out = dice.matrix(labels, hidden);
    out_bias = dice.matrix(labels, 1);
    blank = dice.matrix(1, hidden);
    blank_bias = dice.matrix(1, 1);
  }
  std::string record(bool hat, bool half = false) const {
    Record record(prefix(half) + (hat ? "JointHAT" : "Joint"));
    for (const Matrix* each : {&enc, &dec, &bias, &out, &out_bias}) record.matrix(*each, half);
    if (hat) record.matrix(blank, half).matrix(blank_bias, half);
    return record.bytes();
  }
  /// x and g have as many frames.
  Exact hidden(const Matrix& x, const Matrix& g) const {
    return plus(enc.cast<double>() * x.cast<double>() + dec.cast<double>() * g.cast<double>(), bias).array().tanh();
  }
  Exact joint(const Matrix& x, const Matrix& g) const { return plus(out.cast<double>() * hidden(x, g), out_bias); }
  /// Probabilities: of the blank, of each label.
  Exact probabilities(const Matrix& x, const Matrix& g) const {
    const Exact z = plus(blank.cast<double>() * hidden(x, g), blank_bias), labels = joint(x, g);
    Exact p(1 + labels.rows(), labels.cols());
    for (Eigen::Index t = 0; t < p.cols(); ++t) {
      p(0, t) = 1 / (1 + std::exp(-z(0, t)));
      const Eigen::VectorXd e = labels.col(t).array().exp();
      p.col(t).tail(labels.rows()) = (1 - p(0, t)) * e / e.sum();
    }
    return p;
  }
};

}  // namespace meridane::test
