#include "classic/analysis.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace sonivo::classic {
namespace {

// The transforms want one place more than points; a line keeps what lies behind on its boundary.
constexpr std::size_t kLine = 16;

}  // namespace

Analysis::Analysis(const AnaBlock& param, const Kernels& kernels)
    : param_(param),
      kernels_(kernels),
      fft_(static_cast<std::size_t>(param.fft), kernels),
      real_fft_(static_cast<std::size_t>(param.fft), kernels) {
  reset();
}

void Analysis::reset() {
  for (History& history : histories_) history.assign(fft_.points() / std::size(Line{}.samples), Line{});
}

float* Analysis::append(std::span<const float> signal, History& history) {
  assert(signal.size() >= hop());
  float* const samples = history.front().samples;
  std::copy_n(signal.begin(), hop(), samples + fft_.points() - hop());
  return samples;
}

void Analysis::process(std::span<const float> signal, std::span<ComplexFloat> spectrum) {
  alignas(64) float even[kFft / 2 + kLine], odd[kFft / 2 + kLine];
  kernels_.weigh_halves(append(signal, histories_[0]), param_.window, fft_.points(), hop(), even, odd);
  real_fft_.forward_doubled(even, odd, static_cast<std::size_t>(param_.fnum_base_out),
                            static_cast<std::size_t>(param_.fnum_out), spectrum.data());
}

void Analysis::process(std::span<const float> first, std::span<const float> second, std::span<ComplexFloat> A,
                       std::span<ComplexFloat> B) {
  alignas(64) float re[kFft + kLine], im[kFft + kLine];
  kernels_.weigh(append(first, histories_[0]), param_.window, fft_.points(), hop(), re);
  kernels_.weigh(append(second, histories_[1]), param_.window, fft_.points(), hop(), im);
  fft_.forward(re, im);

  const std::size_t base = static_cast<std::size_t>(param_.fnum_base_out);
  const std::size_t count = static_cast<std::size_t>(param_.fnum_out);
  if (count == 0) return;
  re[fft_.points()] = re[0];
  im[fft_.points()] = im[0];
  kernels_.separate(re, im, fft_.points(), base, count, A.data(), B.data());
  A[0] = {re[base], 0.0f};
  B[0] = {im[base], 0.0f};
}

}  // namespace sonivo::classic
