#pragma once

#include <cstdint>

#include "classic/param_blocks.h"

namespace sonivo::classic {

/// What the trackers of noise levels share: two minima of each band whose windows run half a cycle apart, so that the
/// lower one forgets a quiet moment after one to two cycles. Block is NlBlock or Nl2Block.
///
/// A frame is, in this order: wait, restoring, take, lowest, count.
template <typename Block>
class MinimumWindows {
 public:
  /// Both outlive this object; without restart nothing is ever restored.
  MinimumWindows(const Block& param, const bool* restart);

  void reset();

  /// True in the first init_wait frames, which the windows don't see.
  bool wait();
  /// True while the restart flag is set and until 60 frames have passed: the windows stand still meanwhile.
  bool restoring();
  /// Lowers both minima to the input, one value per band.
  void take(const float* input);
  /// level[k] = min(minA[k], minB[k])
  void lowest(float* level) const;
  /// Ends the frame: windows whose time is up start again from Nin_init.
  void count(bool voice);

 private:
  const Block& param_;
  const bool* restart_;

  float minA_[kMaxBands];
  float minB_[kMaxBands];
  std::int16_t wait_;
  std::int16_t restore_count_;
  std::int16_t cntA_;
  std::int16_t cntB_;
  std::int16_t cntC_;
  bool last_voice_;
};

}  // namespace sonivo::classic
