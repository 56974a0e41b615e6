#pragma once

#include <cstdint>
#include <span>

#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Says whether somebody speaks: weighted excess of the bands over their noise, with a rise time of upc_fb frames and a
/// hang-over of dnc_fb.
class VoiceDetector {
 public:
  /// Both outlive this object; nbin_param_tbl holds the first fine band of each coarse band.
  VoiceDetector(const VdsBlock& param, std::span<const std::uint16_t> nbin_param_tbl);

  void reset();
  /// S: a smoothed level indexed by fine bands; L: a noise level per coarse band.
  void process(std::span<const float> S, std::span<const float> L);
  bool active() const { return active_; }

 private:
  bool exceeds_noise(std::span<const float> S, std::span<const float> L) const;

  const VdsBlock& param_;
  const std::span<const std::uint16_t> nbin_param_tbl_;
  bool active_;
  std::int16_t counter_;
};

}  // namespace sonivo::classic
