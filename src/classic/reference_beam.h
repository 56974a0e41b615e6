#pragma once

#include "classic/fine_bands.h"

namespace sonivo::classic {

/// The second beam as a reference of what comes from elsewhere: its estimate and that of the target are purified
/// against each other, the reference first.
class ReferenceBeam {
 public:
  ReferenceBeam(const NsNrBfBlock& param, CoarseBounds bounds);  // param outlives this object

  /// C: clean estimate of the target, purified in place. X: what of the noise comes from elsewhere.
  void purify(const BeamLevels& reference, const VoiceMix& mix, FineBands& C, FineBands& X) const;
  const FineBands& floor() const { return g_floor_nn_; }  ///< of the gain for that noise

 private:
  const NsNrBfBlock& param_;
  VoicePair noi_ns_sub_coef_, noi_nn_sub_coef_, sig_nn_sub_coef_;
  FineBands g_floor_nn_;
};

}  // namespace sonivo::classic
