#pragma once

#include "classic/band_level.h"
#include "classic/fine_bands.h"
#include "classic/harmonic_noise_tracker.h"
#include "classic/noise_level_tracker.h"
#include "classic/param_blobs.h"
#include "classic/recursive_level.h"

namespace sonivo::classic {

/// Signal and noise level of the fine bands of one beam. The signal is what the key stage left, the noise is followed
/// in what it was given, so that removed strokes don't look like pauses.
class BeamTracker {
 public:
  BeamTracker(const CommonHead& head, const NoisePath& param);  // both outlive this object

  void reset();
  /// Y, Z: of the key stage's output and input; voice: the flag of the previous frame.
  void process(const Magnitudes& Y, const Magnitudes& Z, bool voice);
  /// After the latest frame; seen through until this object dies.
  BeamLevels levels() const;

 private:
  const BandTable& table_;
  RecursiveLevel pwr_bf_, pwr_bf_nl_;
  NoiseLevelTracker nl_bf_;
  HarmonicNoiseTracker nl2_bf_;
};

}  // namespace sonivo::classic
