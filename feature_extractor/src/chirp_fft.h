#pragma once

#include <cstddef>
#include <vector>

#include "feature_extractor/split_radix_fft.h"

namespace sonivo {

/// Complex discrete Fourier transform of any number of points, in double precision: with k n = (k^2 + n^2 - (k - n)^2)
/// / 2 it becomes a convolution with a chirp, which goes through transforms of a power of two (L. I. Bluestein, "A
/// linear filtering approach to the computation of discrete Fourier transform", IEEE Trans. Audio Electroacoust. 18,
/// 1970).
class ChirpFft {
 public:
  explicit ChirpFft(std::size_t points);

  std::size_t points() const { return chirp_re_.size(); }
  /// X[k] = sum over n of x[n] exp(-j 2 pi k n / N), in place; points() values each.
  void forward(std::vector<double>& re, std::vector<double>& im);

 private:
  const SplitRadixComplexFft<double> fft_;       // of M >= 2 N - 1 points
  std::vector<double> chirp_re_, chirp_im_;      // w[n] = exp(-j pi n^2 / N)
  std::vector<double> filter_re_, filter_im_;    // transform of conj(w[|n|]), divided by M
  std::vector<double> product_re_, product_im_;  // M values
};

}  // namespace sonivo
