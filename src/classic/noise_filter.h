#pragma once

#include <span>

#include "classic/compressor.h"
#include "classic/fine_bands.h"
#include "classic/param_blobs.h"
#include "classic/spectrum_line.h"
#include "classic/synthesis.h"

namespace sonivo::classic {

/// The way of a spectrum to the output: delay line, gain of its band, compressor, synthesis. In bypass the synthesis
/// alone.
class NoiseFilter {
 public:
  // All outlive this object.
  NoiseFilter(const CommonHead& head, const NoisePath& path, const NsNrBlock& param);
  NoiseFilter(const CommonHead& head, const NoisePath& path, const NsNrBfBlock& param);

  void reset();
  /// Where the frame's spectrum goes, before process().
  std::span<ComplexFloat, kBins> spectrum() { return line_.newest(); }
  /// gain: per fine band; speech: whether the compressor works; out: kHop samples.
  void process(const FineBands& gain, bool speech, std::span<float> out);

 private:
  NoiseFilter(const BandTable& table, const NoisePath& path, bool bypass, std::size_t dly_frame,
              const NsNrCommon& param);

  const BandTable& table_;
  const bool bypass_;
  FineBands fixed_gain_;  ///< ns_nr_eq * vol
  SpectrumLine line_;
  Compressor compressor_;
  Synthesis synthesis_;
};

}  // namespace sonivo::classic
