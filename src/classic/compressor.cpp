#include "classic/compressor.h"

namespace sonivo::classic {

Compressor::Compressor(const NsNrCommon& param) : param_(param) { reset(); }

void Compressor::reset() { gain_ = 1.0f; }

float Compressor::process(float level, bool speech) {
  const float q = speech ? target(level) : 1.0f;
  const float c = q > gain_ ? param_.comp_pwc_up : param_.comp_pwc_dn;
  gain_ = (1.0f - c) * q + c * gain_;
  return gain_;
}

/// Beyond comp_clip_th the output level rises with the slope comp_clip_gain only.
float Compressor::target(float level) const {
  const float amplified = level * param_.comp_gain;
  if (!(amplified > param_.comp_clip_th)) return param_.comp_gain;
  return ((amplified - param_.comp_clip_th) * param_.comp_clip_gain + param_.comp_clip_th) / level;
}

}  // namespace sonivo::classic
