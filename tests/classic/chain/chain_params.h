#pragma once

#include "classic/built_in_params.h"
#include "classic/param_blobs.h"

namespace sonivo::classic::test {

inline KeyCancelParam key_cancel_params(std::uint16_t id = 7) {
  KeyCancelParam param = NrModelParam();
  param.version_minor = 4;
  param.paramID = id;
  return param;
}

/// The same stages behind beams that are the microphones themselves: filters of a single tap of 1.
inline BeamFormingKeyCancelParam beam_forming_params(std::uint16_t id = 8) {
  const KeyCancelParam single = key_cancel_params();
  BeamFormingKeyCancelParam param{};
  param.head = single.head;
  param.fbf = {.inputs = 2, .outputs = 2, .hop = 192, .bins = 257, .fft = 512, .partitions = 2};
  param.noise = single.noise;
  param.ns_nr.sources = 2;
  param.ns_nr.noise_mix_w[1] = 1.0f;
  param.ns_nr.nn_mgn_voice = 1.0f;
  param.ns_nr.nn_mgn_noise = 1.0f;
  param.ns_nr.bins = single.ns_nr.bins;
  param.ns_nr.fine_nbin = single.ns_nr.fine_nbin;
  param.ns_nr.coarse_nbin = single.ns_nr.coarse_nbin;
  param.ns_nr.dly_frame = single.ns_nr.dly_frame;
  param.ns_nr.common = single.ns_nr.common;
  param.ns_nr.nbin_avg_g_L = 0;
  param.ns_nr.nbin_avg_g_H = single.ns_nr.fine_nbin;
  param.pulse = single.pulse;
  for (int beam = 0; beam < kBeams; ++beam) {
    for (auto& bin : param.filter[beam][beam][1]) bin = {1.0f, 0.0f};  // the partition with the earlier taps
  }
  param.paramID = id;
  param.version_major = 1;
  return param;
}

}  // namespace sonivo::classic::test
