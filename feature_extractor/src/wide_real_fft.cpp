#include "feature_extractor/wide_real_fft.h"

#include <bit>

namespace sonivo {

bool runs_here(const WideRealFft& fft) {
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  return &fft == &kAvx2RealFft ? avx2
                               : avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
                                     __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
}

bool takes(const WideRealFft& fft, std::size_t points) {
  return std::has_single_bit(points) && points >= fft.least_points && points <= WideRealFft::kMostPoints;
}

const WideRealFft* widest_real_fft(std::size_t points) {
  const WideRealFft* last = nullptr;
  for (const WideRealFft* fft : kWideRealFfts) {
    if (runs_here(*fft) && takes(*fft, points)) last = fft;
  }
  return last;
}

}  // namespace sonivo
