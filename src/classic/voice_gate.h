#pragma once

#include "classic/fine_bands.h"

namespace sonivo::classic {

/// Tells speech from pauses by how many bands the noise reduction lets through. Each side must prevail by the net count
/// of frames of its own, one frame to the contrary takes one back.
class VoiceGate {
 public:
  VoiceGate(const NsNrCommon& param, CoarseBounds bounds);  // param outlives this object

  void reset();
  void process(const FineBands& gain);
  bool open() const { return open_; }

 private:
  const NsNrCommon& param_;
  FineBands weight_on_, weight_off_;
  bool open_;
  int count_;
};

/// Notices a suppression that lasts: more than sup_det_count_th frames in which too few bands pass.
class SuppressionGuard {
 public:
  SuppressionGuard(const NsNrCommon& param, CoarseBounds bounds);  // param outlives this object

  void reset();
  /// True where the gain of this frame is to be replaced.
  bool process(const FineBands& gain);

 private:
  const NsNrCommon& param_;
  FineBands weight_;
  int count_;
};

}  // namespace sonivo::classic
