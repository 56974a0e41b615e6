#pragma once

#include <cstddef>

#include "classic/fft.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Discrete Fourier transform of a real signal of N points through a complex one of N / 2.
class RealFft {
 public:
  /// 128 or 1024 points
  RealFft(std::size_t points, const Kernels& kernels);

  std::size_t points() const { return 2 * fft_.points(); }

  /// even and odd hold the N / 2 samples of even and odd n, and are used up. Bins first to first + count - 1, none
  /// above N / 2, doubled: X[k] = 2 * sum over n of x[n] exp(-j 2 pi k n / N).
  void forward_doubled(float* even, float* odd, std::size_t first, std::size_t count, ComplexFloat* X) const;

  /// x[n] = Re X[0] + 2 Re (sum over k from 1 to N / 2 - 1 of X[k] exp(+j 2 pi k n / N)): bins 0 to N / 2 - 1 of a
  /// spectrum whose bin N / 2 is 0.
  void inverse(const ComplexFloat* X, float* even, float* odd) const;

 private:
  const Fft fft_;
  const Kernels& kernels_;
  const float* const cosine_;  // of -2 pi k / N, k from 0 to N / 2
  const float* const sine_;
};

}  // namespace sonivo::classic
