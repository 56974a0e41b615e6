#include "classic/synthesis.h"

#include <algorithm>
#include <cassert>

namespace sonivo::classic {

Synthesis::Synthesis(const SynBlock& param, const Kernels& kernels)
    : param_(param),
      kernels_(kernels),
      fft_(static_cast<std::size_t>(param.fft), kernels),
      real_fft_(static_cast<std::size_t>(param.fft), kernels) {
  reset();
}

void Synthesis::reset() {
  for (History& history : histories_) history.fill(0.0f);
}

void Synthesis::overlap(const float* newest, History& history, std::span<float> signal) {
  const std::size_t hop = static_cast<std::size_t>(param_.hop);
  assert(signal.size() >= hop);
  kernels_.overlap(history.data(), param_.window + hop, newest, param_.window, hop, signal.data());
  std::copy_n(newest + hop, hop, history.begin());
}

void Synthesis::process(std::span<const ComplexFloat> spectrum, std::span<float> signal) {
  alignas(64) float even[kFft / 2], odd[kFft / 2], newest[2 * kHop];
  assert(spectrum.size() >= fft_.points() / 2);
  real_fft_.inverse(spectrum.data(), even, odd);
  const std::size_t hop = static_cast<std::size_t>(param_.hop), skipped = fft_.points() / 2 - hop;
  kernels_.interleave(even + skipped, odd + skipped, hop, newest);
  overlap(newest, histories_[0], signal);
}

void Synthesis::process(std::span<const ComplexFloat> A, std::span<const ComplexFloat> B, std::span<float> first,
                        std::span<float> second) {
  const std::size_t points = fft_.points();
  alignas(64) float re[kFft], im[kFft];
  assert(A.size() >= points / 2 && B.size() >= points / 2);
  re[0] = A[0].re - B[0].im;
  im[0] = A[0].im + B[0].re;
  re[points / 2] = im[points / 2] = 0.0f;
  kernels_.join(A.data(), B.data(), points, re, im);
  fft_.inverse(re, im);
  const std::size_t skipped = points - 2 * static_cast<std::size_t>(param_.hop);
  overlap(re + skipped, histories_[0], first);
  overlap(im + skipped, histories_[1], second);
}

}  // namespace sonivo::classic
