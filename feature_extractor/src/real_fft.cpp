#include "feature_extractor/real_fft.h"

#include <bit>
#include <cassert>
#include <cmath>
#include <numbers>

namespace sonivo {

RealFft::RealFft(std::size_t points) : points_(points) {
  assert(points >= 2);
  if (!std::has_single_bit(points)) {
    whole_.emplace(points);
    whole_re_.resize(points);
    whole_im_.resize(points);
    return;
  }
  half_.emplace(points / 2);
  re_.resize(points / 2);
  im_.resize(points / 2);
  cosine_.resize(points / 4 + 1);
  sine_.resize(points / 4 + 1);
  for (std::size_t k = 0; k <= points / 4; ++k) {
    const double angle = 2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(points);
    cosine_[k] = static_cast<float>(std::cos(angle));
    sine_[k] = static_cast<float>(std::sin(angle));
  }
}

void RealFft::forward(std::vector<float>& x) {
  assert(x.size() == points_);
  whole_ ? through_whole(x) : through_half(x);
}

// With z[n] = x[2 n] + j x[2 n + 1], M = N / 2, and Z its transform: the even samples have E = (Z[k] + conj(Z[M - k]))
// / 2, the odd ones O = (Z[k] - conj(Z[M - k])) / 2j, and X[k] = E + W^k O, X[M - k] = conj(E - W^k O), W = exp(-j 2 pi
// / N).
void RealFft::through_half(std::vector<float>& x) {
  const std::size_t half = points_ / 2;
  for (std::size_t n = 0; n < half; ++n) {
    re_[n] = x[2 * n];
    im_[n] = x[2 * n + 1];
  }
  half_->forward(re_.data(), im_.data());
  x[0] = re_[0] + im_[0];
  x[1] = re_[0] - im_[0];
  for (std::size_t k = 1; k <= half / 2; ++k) {
    const std::size_t m = half - k;
    const float even_re = 0.5f * (re_[k] + re_[m]), even_im = 0.5f * (im_[k] - im_[m]);
    const float odd_re = 0.5f * (im_[k] + im_[m]), odd_im = 0.5f * (re_[m] - re_[k]);
    const float turned_re = odd_re * cosine_[k] + odd_im * sine_[k];
    const float turned_im = odd_im * cosine_[k] - odd_re * sine_[k];
    x[2 * m] = even_re - turned_re;
    x[2 * m + 1] = turned_im - even_im;
    x[2 * k] = even_re + turned_re;
    x[2 * k + 1] = even_im + turned_im;
  }
}

void RealFft::through_whole(std::vector<float>& x) {
  whole_re_.assign(x.begin(), x.end());
  whole_im_.assign(points_, 0.0);
  whole_->forward(whole_re_, whole_im_);
  x[0] = static_cast<float>(whole_re_[0]);
  x[1] = points_ % 2 == 0 ? static_cast<float>(whole_re_[points_ / 2]) : 0.0f;
  for (std::size_t i = 2; i < points_; ++i) {
    x[i] = static_cast<float>((i % 2 == 0 ? whole_re_ : whole_im_)[i / 2]);
  }
}

}  // namespace sonivo
