#pragma once

#include "enhance/rate_kernel.h"

namespace sonivo {

/// The loop that the rate converters live on, compiled once per instruction set:
///   out[i] = sum over t of row_of(i).tap[t] history[phase[i].start + t], for all samples of an output frame.
/// The history goes one value beyond the last that a tap meets.
struct RateProducts {
  using Process = void (*)(const RateKernel& kernel, const float* history, float* out);

  const char* name;
  Process process;
};

// The plainest first.
extern const RateProducts kSse2RateProducts;
extern const RateProducts kAvx2RateProducts;  ///< with fused multiply and add
inline constexpr const RateProducts* kAllRateProducts[] = {&kSse2RateProducts, &kAvx2RateProducts};

bool runs_here(const RateProducts& products);
/// The last of kAllRateProducts that runs here; found out once.
const RateProducts& best_rate_products();

}  // namespace sonivo
