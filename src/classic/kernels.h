#pragma once

#include <cstddef>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Coefficients of a cascade, section by section in lanes; the lanes behind the sections are 0.
struct BiquadLanes {
  static constexpr std::size_t kLanes = 8;
  alignas(32) float b0[kLanes], b1[kLanes], b2[kLanes], minus_a1[kLanes], minus_a2[kLanes];
};

/// State of a cascade; transposed direct form II, the names are those of the section.
struct BiquadState {
  alignas(32) float s0[BiquadLanes::kLanes], s1[BiquadLanes::kLanes];
};

/// The filters of a FixedBeamformer in the form that its spectra of two signals at once ask for: W = P Z + Q Z' with
/// Z'[k] = conj Z[N - k]. The partition with the later taps stands first.
struct BeamFilter {
  struct Partition {
    alignas(64) float P_re[kBeamFft], P_im[kBeamFft], Q_re[kBeamFft], Q_im[kBeamFft];
  };
  Partition partition[kPartitions];
};

/// Transform of two real signals, one as real part and one as imaginary part; place kBeamFft repeats bin 0.
struct BeamSpectrum {
  alignas(64) float re[kBeamFft + 16], im[kBeamFft + 16];
};

/// The loops that the transforms and filters live on, compiled once per instruction set. Arrays don't overlap unless
/// said otherwise; spectra named re and im are split data.
struct Kernels {
  const char* name;

  /// Forward transform in place; twiddles as FftPlan lays them out.
  void (*fft)(std::size_t points, const float* twiddles, float* re, float* im);

  /// y[n] = x[n] w[n]; then x moves down by hop, its last hop values stay. count and hop are even.
  void (*weigh)(float* x, const float* w, std::size_t count, std::size_t hop, float* y);
  /// The same with the products of even and of odd n apart.
  void (*weigh_halves)(float* x, const float* w, std::size_t count, std::size_t hop, float* even, float* odd);

  /// Bins m = first to first + count - 1, none above N / 2, of two real signals that share the transform Z of N points,
  /// both twice their spectrum:
  ///   A[m] = Z[m] + conj Z[N - m]
  ///   B[m] = -j (Z[m] - conj Z[N - m])
  /// Z has a place N, a copy of place 0. A and B point to bin first.
  void (*separate)(const float* re, const float* im, std::size_t points, std::size_t first, std::size_t count,
                   ComplexFloat* A, ComplexFloat* B);
  /// The way back, bins 1 to N / 2 - 1: Z[k] = A[k] + j B[k], Z[N - k] = conj A[k] + j conj B[k].
  void (*join)(const ComplexFloat* A, const ComplexFloat* B, std::size_t points, float* re, float* im);

  /// Bins k = first to first + count - 1, none above M = N / 2, of a real signal, twice its spectrum, from the
  /// transform Z of M points of its even samples (re) and odd samples (im):
  ///   X[k] = Z[k] + conj Z[M - k] - j w^k (Z[k] - conj Z[M - k])
  ///   w^k = cosine[k] + j sine[k] = exp(-j 2 pi k / N)
  /// Z has a place M, a copy of place 0. X points to bin first.
  void (*untangle)(const float* re, const float* im, std::size_t half, const float* cosine, const float* sine,
                   std::size_t first, std::size_t count, ComplexFloat* X);
  /// The way back, bins 1 to M - 1: Z[k] = X[k] + conj X[M - k] + j w^-k (X[k] - conj X[M - k]).
  void (*tangle)(const ComplexFloat* X, std::size_t half, const float* cosine, const float* sine, float* re, float* im);

  /// out[n] = history[n] fall[n] + x[n] rise[n]
  void (*overlap)(const float* history, const float* fall, const float* x, const float* rise, std::size_t count,
                  float* out);
  /// y[2n] = even[n], y[2n + 1] = odd[n]
  void (*interleave)(const float* even, const float* odd, std::size_t count, float* y);

  /// W[k] = sum over the two partitions of P[k] Z[k] + Q[k] conj Z[N - k], k below N = kBeamFft
  void (*beam)(const BeamFilter& filter, const BeamSpectrum& older, const BeamSpectrum& newer, float* re, float* im);

  /// 1 to BiquadLanes::kLanes sections in series, in place.
  void (*biquads)(const BiquadLanes& coefficients, std::size_t sections, BiquadState& state, float* signal,
                  std::size_t count);
};

// The plainest first; each runs on every machine that runs a later one.
extern const Kernels kSse2Kernels;
extern const Kernels kAvx2Kernels;    ///< with fused multiply and add
extern const Kernels kAvx512Kernels;  ///< F, VL, DQ and BW
inline constexpr const Kernels* kAllKernels[] = {&kSse2Kernels, &kAvx2Kernels, &kAvx512Kernels};

bool runs_here(const Kernels& kernels);
/// The last of kAllKernels that runs here; found out once.
const Kernels& best_kernels();

}  // namespace sonivo::classic
