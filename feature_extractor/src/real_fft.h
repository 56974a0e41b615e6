#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "feature_extractor/chirp_fft.h"
#include "feature_extractor/split_radix_fft.h"
#include "feature_extractor/wide_real_fft.h"

namespace sonivo {

/// Discrete Fourier transform of a real signal of N >= 2 points, X[k] = sum over n of x[n] exp(-j 2 pi k n / N). A
/// power of two goes through a complex transform of N / 2 points, any other length through one of N points.
class RealFft {
 public:
  explicit RealFft(std::size_t points) : RealFft(points, widest_real_fft(points)) {}
  /// On vectors, where `wide` isn't null; it takes so many points.
  RealFft(std::size_t points, const WideRealFft* wide);

  std::size_t points() const { return points_; }

  /// Signal to spectrum in place, packed: X[0], X[N / 2], then re and im of X[1], X[2] and so on, in N places. An odd N
  /// has no X[N / 2]: that place is 0, and im of the last bin finds none.
  void forward(std::vector<float>& x);

 private:
  void through_vectors(std::vector<float>& x);
  void through_half(std::vector<float>& x);
  void through_whole(std::vector<float>& x);

  const std::size_t points_;
  const WideRealFft* const wide_;
  std::vector<float> turn_cosine_, turn_sine_;  // of wide_
  std::optional<SplitRadixComplexFft<float>> half_;
  std::vector<float> re_, im_;        // of the half transform
  std::vector<float> cosine_, sine_;  // of 2 pi k / N, k up to N / 4
  std::optional<ChirpFft> whole_;     // where N is no power of two
  std::vector<double> whole_re_, whole_im_;
};

}  // namespace sonivo
