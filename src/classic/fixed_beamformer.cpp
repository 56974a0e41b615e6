#include "classic/fixed_beamformer.h"

#include <algorithm>
#include <cassert>
#include <complex>

namespace sonivo::classic {
namespace {

static_assert(kBeams == 2 && kPartitions == 2, "two beams, two microphones and two frames are written out below");

// One partition of a filter in all bins; the upper ones mirror the lower ones.
std::complex<float> in_bin(const ComplexFloat (&filter)[kBeamBins], std::size_t k) {
  return k < kBeamBins ? std::complex(filter[k].re, filter[k].im)
                       : std::complex(filter[kBeamFft - k].re, -filter[kBeamFft - k].im);
}

}  // namespace

FixedBeamformer::FixedBeamformer(const BeamFormingKeyCancelParam& param, const Kernels& kernels)
    : kernels_(kernels), fft_(kBeamFft, kernels) {
  constexpr std::complex<float> j(0.0f, 1.0f);
  constexpr float scale = 0.5f / kBeamFft;  // of the separation and of the inverse transform
  for (std::size_t q = 0; q < kPartitions; ++q) {
    for (std::size_t k = 0; k < kBeamFft; ++k) {
      // The middle bin of the second beam is left out.
      const std::complex<float> second_beam = k == kBeamFft / 2 ? 0.0f : j;
      const std::complex<float> from0 =
          in_bin(param.filter[0][0][q], k) + second_beam * in_bin(param.filter[1][0][q], k);
      const std::complex<float> from1 =
          in_bin(param.filter[0][1][q], k) + second_beam * in_bin(param.filter[1][1][q], k);
      const std::complex<float> P = scale * (from0 - j * from1), Q = scale * (from0 + j * from1);
      filter_.partition[q].P_re[k] = P.real();
      filter_.partition[q].P_im[k] = P.imag();
      filter_.partition[q].Q_re[k] = Q.real();
      filter_.partition[q].Q_im[k] = Q.imag();
    }
  }
  reset();
}

void FixedBeamformer::reset() {
  history_ = {};
  newest_ = 0;
  overlap_ = {};
}

void FixedBeamformer::process(std::span<const float> a0, std::span<const float> a1, std::span<float> beam0,
                              std::span<float> beam1) {
  constexpr std::size_t N = kBeamFft, H = kHop;
  assert(a0.size() >= H && a1.size() >= H && beam0.size() >= H && beam1.size() >= H);
  newest_ = 1 - newest_;
  BeamSpectrum& Z = history_[newest_];
  std::copy_n(a0.begin(), H, Z.re);
  std::copy_n(a1.begin(), H, Z.im);
  std::fill(Z.re + H, Z.re + N, 0.0f);
  std::fill(Z.im + H, Z.im + N, 0.0f);
  fft_.forward(Z.re, Z.im);
  Z.re[N] = Z.re[0];
  Z.im[N] = Z.im[0];

  alignas(64) float re[N], im[N];
  kernels_.beam(filter_, history_[1 - newest_], Z, re, im);
  fft_.inverse(re, im);

  for (std::size_t n = 0; n < H; ++n) {
    beam0[n] = re[n] + overlap_[0][n];
    beam1[n] = im[n] + overlap_[1][n];
  }
  std::copy_n(re + H, H, overlap_[0].begin());
  std::copy_n(im + H, H, overlap_[1].begin());
}

}  // namespace sonivo::classic
