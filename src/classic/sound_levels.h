#pragma once

#include <array>
#include <cstddef>

#include "classic/band_level.h"
#include "classic/noise_level_tracker.h"
#include "classic/param_blobs.h"
#include "classic/voice_detector.h"

namespace sonivo::classic {

/// Levels of the coarse bands and what they say: whether somebody speaks.
class SoundLevels {
 public:
  SoundLevels(const CommonHead& head, const NoisePath& param);  // both outlive this object

  void reset();
  void process(const Magnitudes& magnitudes);
  /// After the latest frame; what else runs in a frame reads it before process().
  bool voice() const { return detector_.active(); }

 private:
  static constexpr std::size_t kPlaces = 24;

  float* input() { return levels_.data(); }
  float* sound() { return levels_.data() + kPlaces; }
  float* detection() { return levels_.data() + 2 * kPlaces; }

  const CommonHead& head_;
  const NoisePath& param_;
  /// Band levels, the state of pwr_snd and the state of pwr_snd_vd, one behind the other: pwr_snd_vd has an entry per
  /// fine band, and past the coarse bands it follows the zeros behind them, then the state of pwr_snd, then its own.
  std::array<float, 2 * kPlaces + kMaxBands> levels_;
  NoiseLevelTracker nl_snd_;
  VoiceDetector detector_;
};

}  // namespace sonivo::classic
