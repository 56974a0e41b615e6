#pragma once

#include <cstddef>

namespace meridane::bench {

/// Eigen's general product and array expressions, compiled for one instruction set.
struct EigenPeer {
  /// y = w x + bias; w is rows x cols row by row, frames are columns.
  void (*multiply)(const float* w, std::size_t rows, std::size_t cols, const float* x, std::size_t frames,
                   const float* bias, float* y);
  void (*logistic)(const float* x, std::size_t count, float* y);
  void (*hyperbolic_tangent)(const float* x, std::size_t count, float* y);
  void (*swish)(const float* x, std::size_t count, float* y);
  void (*gated)(const float* p, const float* q, std::size_t count, float* y);
  void (*rectifier)(const float* x, std::size_t count, float a, float* y);
  void (*softmax)(const float* x, std::size_t count, float* y);
  void (*normalise)(const float* x, std::size_t count, const float* weight, const float* bias, float* y);
  void (*standardise)(const float* x, std::size_t count, const float* mean, const float* scale, const float* shift,
                      float* y);
  void (*add)(const float* x, std::size_t count, const float* bias, float* y);
};

extern const EigenPeer kEigenAvx2;
extern const EigenPeer kEigenAvx512;

}  // namespace meridane::bench
