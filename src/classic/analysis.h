#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "classic/fft.h"
#include "classic/param_blobs.h"
#include "classic/real_fft.h"

namespace sonivo::classic {

/// Short-time spectrum of one or two real signals: hop H, N points, under a window with a long rise and a short fall,
/// so that the newest samples dominate and the delay through analysis and synthesis is one hop. Two signals share one
/// complex transform; both forms have the same scale, apart from bin 0 of a single signal, which counts twice.
class Analysis {
 public:
  /// param outlives this object; hop 192 with 1024 points or hop 64 with 128.
  explicit Analysis(const AnaBlock& param, const Kernels& kernels = best_kernels());

  void reset();  ///< histories = 0
  /// H new samples each; fnum_out bins from fnum_base_out on. Spectra hold N / 2 bins, the others are left alone.
  void process(std::span<const float> signal, std::span<ComplexFloat> spectrum);
  void process(std::span<const float> first, std::span<const float> second, std::span<ComplexFloat> A,
               std::span<ComplexFloat> B);

 private:
  struct alignas(64) Line {
    float samples[16];
  };
  /// The latest N - H samples, and room for H new ones behind them.
  using History = std::vector<Line>;

  std::size_t hop() const { return static_cast<std::size_t>(param_.hop); }
  /// The signal's history with its new samples behind.
  float* append(std::span<const float> signal, History& history);

  const AnaBlock& param_;
  const Kernels& kernels_;
  const Fft fft_;
  const RealFft real_fft_;
  std::array<History, 2> histories_;
};

}  // namespace sonivo::classic
