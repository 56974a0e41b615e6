#pragma once

#include <cstddef>
#include <cstdint>

#include "classic/param_blocks.h"

namespace sonivo::classic {

// Frames of the chain: the noise path runs on hops of 192 samples, the pulse path on hops of 64.
inline constexpr int kHop = 192;
inline constexpr int kFft = 1024;
inline constexpr int kBins = 512;
inline constexpr int kPulseHop = 64;
inline constexpr int kPulseFft = 128;
inline constexpr int kPulseBins = 64;
inline constexpr int kBeamFft = 512;
inline constexpr int kBeamBins = 257;
inline constexpr int kBeams = 2;
inline constexpr int kPartitions = 2;
inline constexpr float kRateHz = 48000.0f;  ///< that all time constants of a blob are computed for

struct ComplexFloat {
  float re, im;
};

/// What stands first in both blobs, up to the input filter.
struct CommonHead {
  std::uint16_t hop;                               ///< 192
  std::uint16_t bins;                              ///< 512
  std::uint16_t all_bypass;                        ///< stored, consulted by no block
  std::uint16_t nbin_param_tbl[kCoarseBands + 1];  ///< first fine band of each coarse band
  BandTable syk1;                                  ///< coarse bands over bins
  BandTable syk2;                                  ///< fine bands over bins
  AinBlock ain;
};

/// Transforms and levels of the noise path, up to its gain.
struct NoisePath {
  AnaBlock ana;
  SynBlock syn;
  PwrBlock pwr_snd;
  PwrBlock pwr_snd_vd;
  NlBlock nl_snd;
  VdsBlock vds;
  PwrBlock pwr_bf;
  PwrBlock pwr_bf_nl;
  NlBlock nl_bf;
  Nl2Block nl2_bf;
  float ns_nr_eq[kMaxBands];  ///< gain per fine band
};

struct PulsePath {
  std::uint16_t hop;                                        ///< 64
  std::uint16_t bins;                                       ///< 64
  std::uint16_t nbin_pulse_param_tbl[kPulseGroups + 1];     ///< first pulse band of each prm band
  std::uint16_t nbin_pulse_param_ui_tbl[kPulseGroups + 1];  ///< first pulse band of each ui band
  AnaBlock ana_pulse;
  SynBlock syn_pulse;
  BandTable syk_pulse;         ///< pulse bands over bins
  BandTable syk_pulse_prm;     ///< prm bands over bins
  BandTable syk_pulse_prm_ui;  ///< ui bands over bins
  DiffPowerBlock diff_power;
  PulseSupBlock pulse_sup;
  DelayBlock pulse_sup_delay;
  DelayBlock pulse_sup_add_delay;
  float pulse_sup_add_gn_th;
  PwrBlock pwr_pulse;
  NlBlock nl_pulse;
  NgenBlock ngen_f_pulse;
};

/// Parameters of CKeyCancel.
struct KeyCancelParam {
  CommonHead head;
  NoisePath noise;
  NsNrBlock ns_nr;
  PulsePath pulse;
  std::uint16_t paramID;
  std::uint16_t version_major;  ///< 0
  std::uint16_t version_minor;  ///< 4
  std::uint16_t pad;
};

/// Parameters of CBeamFormingKeyCancel.
struct BeamFormingKeyCancelParam {
  CommonHead head;
  FbfHeader fbf;
  NoisePath noise;
  NsNrBfBlock ns_nr;
  PulsePath pulse;
  /// Spectra of the beam filters: [output][input][partition][bin], the partition with the later taps first.
  ComplexFloat filter[kBeams][kBeams][kPartitions][kBeamBins];
  std::uint16_t paramID;
  std::uint16_t version_major;  ///< 1
  std::uint16_t version_minor;  ///< 0
  std::uint16_t pad;
};

static_assert(sizeof(KeyCancelParam) == 15808);
static_assert(offsetof(KeyCancelParam, noise) == 968);
static_assert(offsetof(KeyCancelParam, ns_nr) == 7088);
static_assert(offsetof(KeyCancelParam, pulse) == 8192);
static_assert(offsetof(KeyCancelParam, paramID) == 15800);
static_assert(sizeof(BeamFormingKeyCancelParam) == 32636);
static_assert(offsetof(BeamFormingKeyCancelParam, fbf) == 968);
static_assert(offsetof(BeamFormingKeyCancelParam, noise) == 980);
static_assert(offsetof(BeamFormingKeyCancelParam, ns_nr) == 7100);
static_assert(offsetof(BeamFormingKeyCancelParam, pulse) == 8572);
static_assert(offsetof(BeamFormingKeyCancelParam, filter) == 16180);
static_assert(offsetof(BeamFormingKeyCancelParam, paramID) == 32628);

}  // namespace sonivo::classic
