#pragma once

#include <cstddef>

#include "classic/kernels.h"

namespace sonivo::classic {

/// Complex discrete Fourier transform of split data: real parts and imaginary parts in arrays of their own, in place,
/// in natural order. Neither direction divides by N. Fastest where the arrays are aligned to 64 bytes.
class Fft {
 public:
  /// 64, 128, 256, 512 or 1024 points. The tables are built at first use and kept; constant, so any threads may share.
  static const Fft& of(std::size_t points);
  Fft(std::size_t points, const Kernels& kernels);

  std::size_t points() const { return points_; }
  /// X[k] = sum over n of x[n] exp(-j 2 pi k n / N); points() values each.
  void forward(float* re, float* im) const { kernels_.fft(points_, twiddles_, re, im); }
  /// x[n] = sum over k of X[k] exp(+j 2 pi k n / N)
  void inverse(float* re, float* im) const { forward(im, re); }  // both sides swapped conjugate the kernel

 private:
  const std::size_t points_;
  const Kernels& kernels_;
  const float* const twiddles_;
};

}  // namespace sonivo::classic
