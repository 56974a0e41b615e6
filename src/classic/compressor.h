#pragma once

#include "classic/param_blocks.h"

namespace sonivo::classic {

/// Output gain: comp_gain while somebody speaks, less for loud frames, unity otherwise. It runs whatever comp_on says.
class Compressor {
 public:
  explicit Compressor(const NsNrCommon& param);  // param outlives this object

  void reset();
  /// level: mean magnitude of the frame's bins; returns the gain of this frame.
  float process(float level, bool speech);

 private:
  float target(float level) const;

  const NsNrCommon& param_;
  float gain_;
};

}  // namespace sonivo::classic
