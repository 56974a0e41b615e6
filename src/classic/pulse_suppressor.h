#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Finds sudden jumps of the band levels and gives the gains that pull them down.
///
/// A jump is held for a number of sub-blocks as a peak of its band, or of all bands where a group of bands jumps
/// together; the peaks decay slowly. The gain is what remains of a band when the share of its peak is taken out and the
/// neighbours' masking is put back, smoothed over time.
///
/// Tuning goes by prm bands or by ui bands, both groups of pulse bands. Pulse bands of no prm or ui band keep what
/// the steps that go by these bands would change.
class PulseSuppressor {
 public:
  explicit PulseSuppressor(const PulsePath& param);  // param outlives this object

  void reset();  ///< everything = 0, so that the gain rises from silence
  /// One sub-block. X: level of each pulse band; R: X over the loudest of the past.
  void process(std::span<const float> X, std::span<const float> R);

  std::span<const float> gain() const { return {state_.g, bands_}; }                 ///< per pulse band
  std::span<const float> products() const { return {state_.prod, param_.npm_num}; }  ///< per group

 private:
  /// Pulse bands of all prm bands or of all ui bands.
  struct Range {
    std::size_t begin, end;
  };

  /// Tuning of each pulse band, laid out for loops over them.
  struct Tuning {
    float pwcInUp[kMaxBands], pwcInDn[kMaxBands];
    float minDiff[kMaxBands], maxDiff[kMaxBands];
    float per_diff[kMaxBands];  ///< 1 / (maxDiff - minDiff)
    std::int32_t keep_num[kMaxBands];
    float g_floor[kMaxBands];
    float g_up[kMaxBands], g_up_tail[kMaxBands], g_up_tail_th[kMaxBands], g_dn[kMaxBands];

    float np_dn[kMaxBands], npm_dn[kMaxBands];
    float sub_noise[kMaxBands], sub_voice[kMaxBands];
    float mgn_noise[kMaxBands], mgn_voice[kMaxBands];
  };

  struct State {
    float P[kMaxBands];  ///< smoothed input
    float peakDiff[kMaxBands];
    float peakNpm[kMaxBands];
    std::int32_t keep[kMaxBands];
    std::int32_t keepNpm[kNpmGroups];
    float prod[kNpmGroups];
    float g[kMaxBands];
    float avgG;
    int supCount;
  };

  struct Weights {
    float voice, noise;
  };

  void tune_ui();
  void tune_prm();

  void smooth_input(const float* X);
  Weights weights() const;
  void hold_band_peaks(const float* R);
  void multiply_groups(const float* R);
  void hold_group_peaks();
  void raw_gain(const Weights& w, float* r) const;
  void guard(float* r);
  void smooth_gain(const float* r);

  const PulsePath& path_;
  const PulseSupBlock& param_;
  const std::size_t bands_;
  const Range prm_, ui_;
  float maxNpm_[kNpmGroups];
  Tuning tuning_;
  State state_;
};

}  // namespace sonivo::classic
