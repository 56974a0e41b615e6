#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "classic/fft.h"
#include "classic/param_blobs.h"
#include "classic/real_fft.h"

namespace sonivo::classic {

/// Back from short-time spectra to one or two real signals, overlapping over 2 * H samples. Unmodified spectra of the
/// Analysis give its input H samples later.
class Synthesis {
 public:
  /// param outlives this object; hop 192 with 1024 points or hop 64 with 128.
  explicit Synthesis(const SynBlock& param, const Kernels& kernels = best_kernels());

  void reset();  ///< histories = 0
  /// N / 2 bins each (bin N / 2 counts as 0); H samples out each.
  void process(std::span<const ComplexFloat> spectrum, std::span<float> signal);
  void process(std::span<const ComplexFloat> A, std::span<const ComplexFloat> B, std::span<float> first,
               std::span<float> second);

 private:
  using History = std::array<float, kHop>;

  /// newest: the last 2 * H points of an inverse transform.
  void overlap(const float* newest, History& history, std::span<float> signal);

  const SynBlock& param_;
  const Kernels& kernels_;
  const Fft fft_;
  const RealFft real_fft_;
  std::array<History, 2> histories_;
};

}  // namespace sonivo::classic
