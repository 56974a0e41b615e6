#include "feature_extractor/real_fft.h"

#include <bit>
#include <cassert>
#include <cmath>
#include <numbers>

namespace sonivo {
namespace {

// Cosine and sine of 2 pi k / n.
void append_angle(std::size_t k, std::size_t n, std::vector<float>& cosine, std::vector<float>& sine) {
  const double angle = 2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(n);
  cosine.push_back(static_cast<float>(std::cos(angle)));
  sine.push_back(static_cast<float>(std::sin(angle)));
}

}  // namespace

RealFft::RealFft(std::size_t points, const WideRealFft* wide) : points_(points), wide_(wide) {
  assert(points >= 2 && (wide == nullptr || takes(*wide, points)));
  if (!std::has_single_bit(points)) {
    whole_.emplace(points);
    whole_re_.resize(points);
    whole_im_.resize(points);
    return;
  }
  half_.emplace(points / 2);
  for (std::size_t k = 0; k <= points / 4; ++k) append_angle(k, points, cosine_, sine_);
  if (wide == nullptr) {
    re_.resize(points / 2);
    im_.resize(points / 2);
    return;
  }
  const std::size_t rows = points / 2 / wide->lanes;
  for (std::size_t c = 0; c < wide->lanes; ++c) {
    for (std::size_t r = 0; r < rows; ++r) append_angle(r * c, points / 2, turn_cosine_, turn_sine_);
  }
}

void RealFft::forward(std::vector<float>& x) {
  assert(x.size() == points_);
  if (wide_ != nullptr) return through_vectors(x);
  whole_ ? through_whole(x) : through_half(x);
}

void RealFft::through_vectors(std::vector<float>& x) {
  wide_->forward(points_,
                 {.twiddles = half_->twiddles(),
                  .turn_cosine = turn_cosine_.data(),
                  .turn_sine = turn_sine_.data(),
                  .cosine = cosine_.data(),
                  .sine = sine_.data()},
                 x.data());
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
