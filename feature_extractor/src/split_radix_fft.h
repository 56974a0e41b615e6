#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace sonivo {

/// Complex discrete Fourier transform of a power of two of points, split data (real parts and imaginary parts in arrays
/// of their own), in place, in natural order. Neither direction divides by N. Constant, so any threads may share it.
///
/// Split radix (P. Duhamel and H. Hollmann, "Split radix FFT algorithm", Electronics Letters 20, 1984), decimation in
/// frequency: one pass of n points leaves a transform of n / 2 points for the even bins and two of n / 4 points for the
/// bins 4 k + 1 and 4 k + 3; the bins come out at bit-reversed places and are then put in order.
template <class Real>
class SplitRadixComplexFft {
 public:
  static constexpr int kMaxLogn = 21;

  /// 2^kMaxLogn points at most. Throws std::runtime_error for more, and for what is no power of two.
  explicit SplitRadixComplexFft(std::size_t points);

  std::size_t points() const { return std::size_t{1} << logn_; }
  /// X[k] = sum over n of x[n] exp(-j 2 pi k n / N); points() values each.
  void forward(Real* re, Real* im) const;
  /// x[n] = sum over k of X[k] exp(+j 2 pi k n / N)
  void inverse(Real* re, Real* im) const { forward(im, re); }  // both sides swapped conjugate the kernel

  /// Of all passes up to points(), as feature_extractor/split_radix_passes.h tells.
  const Real* twiddles() const { return twiddles_.data(); }

 private:
  const int logn_;
  std::vector<Real> twiddles_;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> swaps_;  // bit reversal
};

}  // namespace sonivo
