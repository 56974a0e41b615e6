#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "classic/analysis.h"
#include "classic/beam_tracker.h"
#include "classic/noise_filter.h"
#include "classic/noise_reducer.h"
#include "classic/param_blobs.h"
#include "classic/sound_levels.h"

namespace sonivo::classic {

/// Spectral noise reduction of one signal: a frame of 192 samples in, one out, delayed by one frame and dly_frame more.
class NoiseReduction {
 public:
  explicit NoiseReduction(const KeyCancelParam& param);  // param outlives this object

  void reset();
  /// clean: the key stage's output, which is filtered; raw: its input, which shows the noise. kHop samples each.
  void process(std::span<const float> clean, std::span<const float> raw, std::span<float> out);
  bool voice() const { return sound_.voice(); }  ///< the voice detector's state after the latest frame

 private:
  Analysis analysis_;
  BeamTracker beam_;
  SoundLevels sound_;
  NoiseReducer reducer_;
  NoiseFilter filter_;
};

/// Samples by which either kind is late.
inline std::size_t noise_latency(std::uint16_t dly_frame) { return (std::size_t{1} + dly_frame) * kHop; }

/// The same for the first of two beams, with the second as a reference of the noise from elsewhere.
class TwoBeamNoiseReduction {
 public:
  explicit TwoBeamNoiseReduction(const BeamFormingKeyCancelParam& param);  // param outlives this object

  void reset();
  void process(const std::array<std::span<const float>, kBeams>& clean,
               const std::array<std::span<const float>, kBeams>& raw, std::span<float> out);
  bool voice() const { return sound_.voice(); }

 private:
  std::array<Analysis, kBeams> analysis_;
  std::array<BeamTracker, kBeams> beam_;
  SoundLevels sound_;
  NoiseReducer reducer_;
  NoiseFilter filter_;
};

}  // namespace sonivo::classic
