#pragma once

#include <span>

#include "classic/minimum_windows.h"
#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Raises a noise level to what the valleys between the harmonics of a voice show: the input is pulled down to its
/// valleys along frequency, then tracked like a minimum.
class HarmonicNoiseTracker {
 public:
  /// Both outlive this object. While *restart is set, and until 60 frames have passed, the windows stand still.
  explicit HarmonicNoiseTracker(const Nl2Block& param, const bool* restart = nullptr);

  void reset();
  /// input: the recursive level that the followed tracker took; level: that tracker's output, raised in place, except
  /// in the first init_wait frames.
  void process(std::span<const float> input, bool voice, std::span<float> level);

 private:
  const Nl2Block& param_;
  MinimumWindows<Nl2Block> windows_;
};

}  // namespace sonivo::classic
