#pragma once

#include <array>
#include <span>

#include "classic/fft.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Two fixed beams of two microphones: a filter of 384 taps per (beam, microphone), as a partitioned convolution in the
/// frequency domain. No delay beyond that of the filters.
///
/// Both microphones share one transform Z, and both beams one inverse. With the filters F[beam][microphone],
/// Z' conjugated and mirrored, and the microphones (Z + Z') / 2 and -j (Z - Z') / 2, the spectrum Y0 + j Y1 that goes
/// back is P Z + Q Z' in every bin; P and Q are worked out at construction.
class FixedBeamformer {
 public:
  explicit FixedBeamformer(const BeamFormingKeyCancelParam& param, const Kernels& kernels = best_kernels());

  void reset();
  /// 192 samples each; the beams may be the inputs.
  void process(std::span<const float> a0, std::span<const float> a1, std::span<float> beam0, std::span<float> beam1);

 private:
  const Kernels& kernels_;
  const Fft fft_;
  BeamFilter filter_;
  std::array<BeamSpectrum, kPartitions> history_;  // of the latest frames; newest_ tells which is the last one
  std::size_t newest_;
  std::array<std::array<float, kHop>, kBeams> overlap_;
};

}  // namespace sonivo::classic
