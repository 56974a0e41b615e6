#pragma once

// Included once per instruction set, with Eigen defined as a name of its own for that set: the linker would otherwise
// take one of two equally named functions for both.

#include <Eigen/Core>

#include "eigen_peer.h"

namespace meridane::bench {
namespace {

using Index = Eigen::Index;
using RowMajor = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

Eigen::Map<const Eigen::ArrayXf> in(const float* x, std::size_t count) { return {x, static_cast<Index>(count)}; }
Eigen::Map<Eigen::ArrayXf> out(float* y, std::size_t count) { return {y, static_cast<Index>(count)}; }

void multiply(const float* w, std::size_t rows, std::size_t cols, const float* x, std::size_t frames, const float* bias,
              float* y) {
  const auto r = static_cast<Index>(rows), c = static_cast<Index>(cols), f = static_cast<Index>(frames);
  const Eigen::Map<const RowMajor> weight(w, r, c);
  const Eigen::Map<const Eigen::VectorXf> start(bias, r);
  if (frames == 1) {
    Eigen::Map<Eigen::VectorXf>(y, r).noalias() = weight * Eigen::Map<const Eigen::VectorXf>(x, c) + start;
    return;
  }
  Eigen::Map<Eigen::MatrixXf> result(y, r, f);
  result.colwise() = start;
  result.noalias() += weight * Eigen::Map<const Eigen::MatrixXf>(x, c, f);
}

void logistic(const float* x, std::size_t count, float* y) { out(y, count) = (1.0f + (-in(x, count)).exp()).inverse(); }

void hyperbolic_tangent(const float* x, std::size_t count, float* y) { out(y, count) = in(x, count).tanh(); }

void swish(const float* x, std::size_t count, float* y) {
  out(y, count) = in(x, count) / (1.0f + (-in(x, count)).exp());
}

void gated(const float* p, const float* q, std::size_t count, float* y) {
  out(y, count) = in(p, count) / (1.0f + (-in(q, count)).exp());
}

void rectifier(const float* x, std::size_t count, float a, float* y) {
  out(y, count) = in(x, count).max(0.0f) + a * in(x, count).min(0.0f);
}

void softmax(const float* x, std::size_t count, float* y) {
  out(y, count) = (in(x, count) - in(x, count).maxCoeff()).exp();
  out(y, count) *= 1.0f / out(y, count).sum();
}

void normalise(const float* x, std::size_t count, const float* weight, const float* bias, float* y) {
  const float mean = in(x, count).mean();
  const float deviation = std::sqrt((in(x, count) - mean).square().mean() + 1e-5f);
  out(y, count) = (in(x, count) - mean) * (1.0f / deviation) * in(weight, count) + in(bias, count);
}

void standardise(const float* x, std::size_t count, const float* mean, const float* scale, const float* shift,
                 float* y) {
  out(y, count) = (in(x, count) - in(mean, count)) * in(scale, count) + in(shift, count);
}

void add(const float* x, std::size_t count, const float* bias, float* y) {
  out(y, count) = in(x, count) + in(bias, count);
}

constexpr EigenPeer kPeer = {multiply,  logistic, hyperbolic_tangent, swish,       gated,
                             rectifier, softmax,  normalise,          standardise, add};

}  // namespace
}  // namespace meridane::bench
