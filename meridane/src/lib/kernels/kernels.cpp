#include "lib/kernels/kernels.h"

namespace meridane {

bool runs_here(const Kernels& kernels) {
  if (&kernels == &kAvx512Kernels) {
    return runs_here(kAvx2Kernels) && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
  }
  if (&kernels == &kAvx2Kernels) return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  return true;
}

const Kernels& best_kernels() {
  static const Kernels& best = []() -> const Kernels& {
    const Kernels* last = &kSse2Kernels;
    for (const Kernels* kernels : kAllKernels) {
      if (runs_here(*kernels)) last = kernels;
    }
    return *last;
  }();
  return best;
}

}  // namespace meridane
