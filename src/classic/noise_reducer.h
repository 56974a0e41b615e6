#pragma once

#include <cstddef>
#include <optional>

#include "classic/curve.h"
#include "classic/fine_bands.h"
#include "classic/reference_beam.h"
#include "classic/spreading.h"
#include "classic/voice_gate.h"
#include "classic/wide_noise.h"

namespace sonivo::classic {

/// Gain of each fine band from its signal and noise level:
///
///   gain = (spread(C) + C + floors of the noises) / (C + noises), at most 1, then shaped and smoothed
///
/// where C is the clean estimate and the noises are the steady one, the wide hump at low frequencies and, with two
/// beams, what the reference beam hears. How far the gains were open in the previous frame decides between the
/// parameters for speech and those for noise. Fine bands outside of all coarse bands are shut.
class NoiseReducer {
 public:
  // param and the table of nbin_param_tbl outlive this object.
  NoiseReducer(const NsNrBlock& param, CoarseBounds bounds);    ///< one signal
  NoiseReducer(const NsNrBfBlock& param, CoarseBounds bounds);  ///< the first of two beams

  void reset();  ///< gains 0: the stage fades in
  void process(const BeamLevels& target);
  void process(const BeamLevels& target, const BeamLevels& reference);

  const FineBands& gain() const { return G_; }
  bool speech() const { return gate_.open(); }  ///< the voice gate

 private:
  NoiseReducer(const NsNrCommon& param, bool bypass, CoarseBounds bounds);

  void process(const BeamLevels& target, const BeamLevels* reference);
  void average(std::size_t first, std::size_t end);
  void suppress(const BeamLevels& target, const FineBands& D, FineBands& r) const;
  void smooth(const VoiceMix& mix, const FineBands& r);

  const NsNrCommon& param_;
  const bool bypass_;
  const std::size_t first_band_, end_band_;  // of the coarse bands
  FineBands averaged_{};                     // weights of the mean that avgGain is
  const VoicePair sig_ns_sub_coef_, pwc_g_up_, pwc_g_dn_;
  const FineBands g_floor_ns_;
  const Curve avg_g_, gn_nl_;
  const Spreading spreading_;
  std::optional<ReferenceBeam> reference_;

  FineBands G_;
  float avgGain_;
  WideNoise wide_;
  VoiceGate gate_;
  SuppressionGuard guard_;
};

}  // namespace sonivo::classic
