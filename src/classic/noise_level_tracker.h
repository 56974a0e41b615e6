#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "classic/minimum_windows.h"
#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Noise level of each band: the lower of two minimum windows that run half a cycle apart. Cycles are shorter or longer
/// while somebody speaks. In the first init_wait frames the level is Nin_init.
class NoiseLevelTracker {
 public:
  /// Both outlive this object. While *restart is set, and until 60 frames have passed, the level is held where the
  /// windows stand; in the first 100 frames after init_wait the flag is not looked at.
  explicit NoiseLevelTracker(const NlBlock& param, const bool* restart = nullptr);

  void reset();
  /// input: a recursive level, one value per band; voice: the flag as it stands when this tracker runs.
  void process(std::span<const float> input, bool voice);
  std::span<float> level() { return level_; }  ///< kMaxBands places, for the harmonic tracker that raises it
  std::span<const float> level() const { return level_; }

 private:
  const NlBlock& param_;
  MinimumWindows<NlBlock> windows_;
  std::array<float, kMaxBands> level_;
  std::int16_t hold_;
};

}  // namespace sonivo::classic
