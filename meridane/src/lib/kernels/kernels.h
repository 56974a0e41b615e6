#pragma once

#include <cstddef>

#include "lib/kernels/panels.h"

namespace meridane {

/// The loops of float arithmetic, compiled once per instruction set.
struct Kernels {
  const char* name;

  std::size_t lanes;         ///< floats of a vector
  std::size_t panel_height;  ///< rows
  /// x has one number per column of w.
  void (*multiply)(const Product<float>& product);
  /// The same with w row after row. Its sums are taken in another order, which is the same for each number of frames.
  void (*multiply_rows)(const Product<float>& product);

  // As element_wise.h states them.
  void (*logistic)(const float* x, std::size_t count, float slope, float bias, float* y);
  void (*hyperbolic_tangent)(const float* x, std::size_t count, float slope, float bias, float* y);
  void (*swish)(const float* x, std::size_t count, float slope, float bias, float* y);
  void (*gated)(const float* p, const float* q, std::size_t count, float slope, float bias, float* y);
  void (*leaky_rectifier)(const float* x, std::size_t count, float a, float* y);
  void (*softmax)(const float* x, std::size_t count, float temperature, float* y);
  void (*normalise)(const float* x, std::size_t count, const float* weight, const float* bias, float eps, float* y);
  void (*normalise_by)(const float* x, std::size_t count, float mean, float scale, const float* weight,
                       const float* bias, float* y);
  float (*sum_from)(const float* x, std::size_t count, float start);
  float (*squares_from)(const float* x, std::size_t count, float start);
  void (*standardise)(const float* x, std::size_t count, const float* mean, const float* scale, const float* shift,
                      float* y);
  void (*add)(const float* x, std::size_t count, const float* bias, float* y);
  void (*scale)(const float* x, std::size_t count, const float* factor, float* y);
  void (*tap_sum)(const float* x, std::size_t step, std::size_t frames, std::size_t count, std::size_t taps,
                  std::size_t distance, const float* weight, const float* bias, float* y);
  void (*lstm_cell)(const float* z, std::size_t count, float* c, float* h);
};

// The plainest first; each runs on every machine that runs a later one.
extern const Kernels kSse2Kernels;
extern const Kernels kAvx2Kernels;    ///< with fused multiply and add
extern const Kernels kAvx512Kernels;  ///< F, VL, DQ and BW
inline constexpr const Kernels* kAllKernels[] = {&kSse2Kernels, &kAvx2Kernels, &kAvx512Kernels};

bool runs_here(const Kernels& kernels);
/// The last of kAllKernels that runs here; found out once.
const Kernels& best_kernels();

}  // namespace meridane
