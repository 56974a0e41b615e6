#include "classic/voice_gate.h"

#include <algorithm>

namespace sonivo::classic {

VoiceGate::VoiceGate(const NsNrCommon& param, CoarseBounds bounds)
    : param_(param),
      weight_on_(by_fine_band(bounds, param.vad_det_weight_on)),
      weight_off_(by_fine_band(bounds, param.vad_det_weight_off)) {
  reset();
}

void VoiceGate::reset() {
  open_ = false;
  count_ = 0;
}

void VoiceGate::process(const FineBands& gain) {
  const bool against = open_ ? param_.vad_det_weight_th_off > weight_above(gain, param_.vad_det_gn_th_off, weight_off_)
                             : weight_above(gain, param_.vad_det_gn_th_on, weight_on_) > param_.vad_det_weight_th_on;
  if (!against) {
    count_ = std::max(count_ - 1, 0);
    return;
  }
  // With a count of 0 the first such frame decides, as with 1.
  if (++count_ >= (open_ ? param_.vad_det_count_th_off : param_.vad_det_count_th_on)) {
    open_ = !open_;
    count_ = 0;
  }
}

SuppressionGuard::SuppressionGuard(const NsNrCommon& param, CoarseBounds bounds)
    : param_(param), weight_(by_fine_band(bounds, param.sup_det_weight)) {
  reset();
}

void SuppressionGuard::reset() { count_ = 0; }

bool SuppressionGuard::process(const FineBands& gain) {
  if (!(param_.sup_det_weight_th > weight_above(gain, param_.sup_det_gn_th, weight_))) {
    count_ = 0;
    return false;
  }
  if (count_ < param_.sup_det_count_th) {
    ++count_;
    return false;
  }
  return true;
}

}  // namespace sonivo::classic
