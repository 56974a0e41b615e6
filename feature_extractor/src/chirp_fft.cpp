#include "feature_extractor/chirp_fft.h"

#include <cblas.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <numbers>

namespace sonivo {
namespace {

void multiply(std::vector<double>& re, std::vector<double>& im, const std::vector<double>& by_re,
              const std::vector<double>& by_im) {
  for (std::size_t i = 0; i < by_re.size(); ++i) {
    const double r = re[i] * by_re[i] - im[i] * by_im[i];
    im[i] = re[i] * by_im[i] + im[i] * by_re[i];
    re[i] = r;
  }
}

}  // namespace

ChirpFft::ChirpFft(std::size_t points)
    : fft_(std::bit_ceil(2 * points - 1)),
      chirp_re_(points),
      chirp_im_(points),
      filter_re_(fft_.points()),
      filter_im_(fft_.points()),
      product_re_(fft_.points()),
      product_im_(fft_.points()) {
  for (std::size_t n = 0; n < points; ++n) {
    // Of n^2 only the rest counts, and a small angle has all its digits.
    const double turns = static_cast<double>(n * n % (2 * points)) / static_cast<double>(points);
    chirp_re_[n] = std::cos(std::numbers::pi * turns);
    chirp_im_[n] = -std::sin(std::numbers::pi * turns);
    filter_re_[n] = chirp_re_[n];
    filter_im_[n] = -chirp_im_[n];
    if (n == 0) continue;
    filter_re_[fft_.points() - n] = filter_re_[n];
    filter_im_[fft_.points() - n] = filter_im_[n];
  }
  fft_.forward(filter_re_.data(), filter_im_.data());
  const auto size = static_cast<int>(fft_.points());
  cblas_dscal(size, 1.0 / size, filter_re_.data(), 1);
  cblas_dscal(size, 1.0 / size, filter_im_.data(), 1);
}

void ChirpFft::forward(std::vector<double>& re, std::vector<double>& im) {
  assert(re.size() == points() && im.size() == points());
  const auto count = static_cast<std::ptrdiff_t>(points());
  multiply(re, im, chirp_re_, chirp_im_);
  std::fill(std::copy(re.begin(), re.begin() + count, product_re_.begin()), product_re_.end(), 0.0);
  std::fill(std::copy(im.begin(), im.begin() + count, product_im_.begin()), product_im_.end(), 0.0);
  fft_.forward(product_re_.data(), product_im_.data());
  multiply(product_re_, product_im_, filter_re_, filter_im_);
  fft_.inverse(product_re_.data(), product_im_.data());
  std::copy_n(product_re_.begin(), count, re.begin());
  std::copy_n(product_im_.begin(), count, im.begin());
  multiply(re, im, chirp_re_, chirp_im_);
}

}  // namespace sonivo
