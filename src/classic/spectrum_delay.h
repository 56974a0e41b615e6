#pragma once

#include <span>
#include <vector>

#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Delays spectra as a stream of floats, re and im in turn: 128 floats are one sub-block of the key stage, other delays
/// move bins too.
class SpectrumDelay {
 public:
  explicit SpectrumDelay(const DelayBlock& param);  // param outlives this object

  void reset();  ///< what has been before = 0
  /// param.block floats each, which don't overlap: out = the stream delayed by param.delay floats.
  void process(std::span<const float> in, std::span<float> out);

 private:
  std::vector<float> ring_;  ///< the latest floats, the oldest at position_
  std::size_t position_ = 0;
  std::size_t block_;
};

}  // namespace sonivo::classic
