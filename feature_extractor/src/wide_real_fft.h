#pragma once

#include <cstddef>

namespace sonivo {

/// The transform of RealFft on wide vectors, compiled once per instruction set. With M = N / 2 complex points z, L
/// lanes, R = M / L rows, n = R l + r, k = c + L q and W_n = exp(-j 2 pi / n),
///   Z[c + L q] = sum over r < R of W_R^(r q) W_M^(r c) (sum over l < L of W_L^(l c) z[R l + r])
/// is a transform of L vectors, a turn, and a transform of R vectors, both split radix with a whole transform per lane.
struct WideRealFft {
  /// Angles are those of cosines and sines in planes of their own.
  struct Tables {
    const float* twiddles;     ///< of the passes up to N / 2 points (split_radix_passes.h)
    const float* turn_cosine;  ///< of 2 pi r c / M at place c R + r
    const float* turn_sine;
    const float* cosine;  ///< of 2 pi k / N, k up to N / 4
    const float* sine;
  };

  const char* name;
  std::size_t lanes;
  std::size_t least_points;
  /// In place, packed as RealFft says; points: a power of two from least_points to kMostPoints.
  void (*forward)(std::size_t points, const Tables& tables, float* x);

  static constexpr std::size_t kMostPoints = 4096;
};

// The narrowest first; each runs on every machine that runs a later one.
extern const WideRealFft kAvx2RealFft;  ///< with fused multiply and add
extern const WideRealFft kAvx512RealFft;
inline constexpr const WideRealFft* kWideRealFfts[] = {&kAvx2RealFft, &kAvx512RealFft};

bool runs_here(const WideRealFft& fft);
bool takes(const WideRealFft& fft, std::size_t points);
/// The last of kWideRealFfts that runs here and takes so many points; null if none does.
const WideRealFft* widest_real_fft(std::size_t points);

}  // namespace sonivo
