#pragma once

#include <cstdint>

namespace sonivo::classic {

// The records that parameter blobs are made of: little-endian images with the fields of a par file in their converted
// form. Levels are on the scale of 16-bit samples, coefficients are per frame, gains are linear. A field bears the name
// of its key; what the reader computes is marked.

inline constexpr int kMaxBands = 60;     ///< of any band table
inline constexpr int kCoarseBands = 12;  ///< of the noise stage
inline constexpr int kPulseGroups = 5;   ///< prm bands or ui bands of the key stage
inline constexpr int kNpmGroups = 3;     ///< groups of pulse bands that a wide key stroke raises together
inline constexpr int kFilterStages = 6;  ///< of the input filter
inline constexpr int kWideLevels = 3;    ///< steps of the wide-noise detection

/// Band b covers the bins f[b] up to but not including f[b + 1].
struct BandTable {
  std::uint16_t nbin;
  std::uint16_t f[kMaxBands + 1];
  float inv_width[kMaxBands];  ///< computed: 1 / (f[b + 1] - f[b])
};

/// One second-order section, y = b0 x + b1 x' + b2 x'' + minus_a1 y' + minus_a2 y''.
struct BiquadCoefficients {
  float b0, b1, b2, minus_a1, minus_a2;
};

struct AinBlock {
  std::uint16_t frame;  ///< 192
  std::uint16_t stage_num;
  std::uint16_t type[kFilterStages];
  float Q[kFilterStages];
  float f0[kFilterStages];                         ///< Hz
  float gain[kFilterStages];                       ///< dB
  BiquadCoefficients coefficients[kFilterStages];  ///< computed
};

struct AnaBlock {
  std::int32_t hop;
  std::int32_t fft;
  float window[1024];          ///< computed; the first fft entries
  std::int32_t fnum_base_out;  ///< first bin handed on
  std::int32_t fnum_out;       ///< bins handed on
};

struct SynBlock {
  std::int16_t hop;
  std::int16_t fft;
  float window[384];  ///< computed; the first 2 * hop entries
};

struct PwrBlock {
  std::uint16_t nbin;
  std::uint16_t pad;
  float Pin_init;
  float PWCup;  ///< while the level rises
  float PWCdn;  ///< while it falls
};

struct NlBlock {
  std::uint16_t nbin;
  std::uint16_t init_wait;
  std::uint16_t update_cycle_noise;
  std::uint16_t update_cycle_voice;
  float Nin_init;
};

struct Nl2Block {
  std::uint16_t nbin;
  std::uint16_t init_wait;
  std::uint16_t update_cycle_noise;
  std::uint16_t update_cycle_voice;
  std::uint16_t base_freq;  ///< fine band
  std::uint16_t pad;
  float Nin_init;
  float freq_dh_pwc;
  float freq_dh_up_coef;
  float freq_dh_dn_coef;
};

struct VdsBlock {
  std::uint16_t ID;
  std::uint16_t nbin;
  float Nef_floor[kCoarseBands + 1];  ///< behind the floors of twelve bands: the multiplier of all noise levels
  float vd_w[kCoarseBands];
  float th_coef;
  std::uint16_t upc_fb;
  std::uint16_t dnc_fb;
};

struct DiffPowerBlock {
  std::int32_t nbin;
  std::int32_t delay_frame;  ///< at least 1
  std::int32_t window_len;   ///< at least 1
};

struct DelayBlock {
  std::uint32_t block;  ///< floats per call, 2 * pulse bins
  std::int32_t delay;   ///< floats
};

struct NgenBlock {
  std::uint16_t frame;  ///< 64
  std::uint16_t pulse_nbin;
  std::uint16_t prm_nbin;
  std::uint16_t init_wait;
  float lvl;
  float target_gn[kCoarseBands];
  float eq[kCoarseBands];
  float min_nl[kMaxBands];
};

/// Arrays of five hold one entry per prm band or per ui band.
struct PulseSupBlock {
  float g_floor[kPulseGroups];           ///< ui
  float pwc_g_up[kPulseGroups];          ///< ui
  float pwc_g_up_tail[kPulseGroups];     ///< ui
  float pwc_g_dn[kPulseGroups];          ///< ui
  float pwc_g_up_tail_th[kPulseGroups];  ///< ui
  float min_diff_p[kPulseGroups];        ///< ui
  float min_npm_det[kNpmGroups];
  float min_diff_p2max_diff_p;
  float min_npm_det2max_npm_det;
  float pwc_g_up2pwc_in_up;
  float pwc_g_dn2pwc_in_dn;
  std::uint16_t bypass;
  std::uint16_t bins;
  std::uint16_t pulse_nbin;
  std::uint16_t prm_nbin;
  std::uint16_t ui_nbin;
  std::uint16_t pad0;
  float sig_np_sub_coef_voice[kPulseGroups];  ///< prm, as are the following arrays of five
  float sig_np_sub_coef_noise[kPulseGroups];
  float np_mgn_voice[kPulseGroups];
  float np_mgn_noise[kPulseGroups];
  float pwc_np_dn[kPulseGroups];
  float pwc_npm_dn[kPulseGroups];
  float mask_pwc_up[kPulseGroups];
  float mask_pwc_dn[kPulseGroups];
  float mask_coef[kPulseGroups];
  float g_enf_coef_noise;
  float g_enf_coef_voice;
  float avg_g_thi1, avg_g_thi2, avg_g_tho1, avg_g_tho2;
  float avg_g_slope[3];  ///< computed
  float sup_det_gn_th;
  std::uint16_t sup_det_fnum_th;
  std::uint16_t sup_det_count_th;
  std::uint16_t npm_num;
  std::uint16_t npm_band_num[kNpmGroups];
  std::uint16_t npm_band[kNpmGroups][kNpmGroups];
  std::uint16_t det_keep_num[kPulseGroups];  ///< ui
  std::uint16_t det_keep_npm_num[kNpmGroups];
  std::uint16_t pad1;
};

/// What both forms of the noise stage share. Band arrays hold one entry per coarse band.
struct NsNrCommon {
  std::uint16_t nw_det_band_min;
  std::uint16_t nw_det_band_max;
  std::uint16_t nw_start_nbin[kWideLevels];
  std::uint16_t nw_end_nbin_param[kWideLevels];
  float nw_det_th[kWideLevels];
  float freq_dh_pwc[kWideLevels];
  float g_floor_nw[kWideLevels][kCoarseBands];
  float nw_ns_sub_coef[kWideLevels][kCoarseBands];
  float g_floor_ns[kCoarseBands];
  float pwc_g_up_voice[kCoarseBands];
  float pwc_g_up_noise[kCoarseBands];
  float pwc_g_dn_voice[kCoarseBands];
  float pwc_g_dn_noise[kCoarseBands];
  float sig_ns_sub_coef_voice[kCoarseBands];
  float sig_ns_sub_coef_noise[kCoarseBands];
  float ns_mgn_voice, ns_mgn_noise, nw_mgn_voice, nw_mgn_noise;
  float mask_pwc_up[kCoarseBands];
  float mask_pwc_dn[kCoarseBands];
  float mask_coef[kCoarseBands];
  float g_enf_coef_noise;
  float g_enf_coef_voice;
  float gn_nl_thi1, gn_nl_thi2, gn_nl_tho1, gn_nl_tho2;
  float gn_nl_slope[3];  ///< computed
  float avg_g_thi1, avg_g_thi2, avg_g_tho1, avg_g_tho2;
  float avg_g_slope[3];  ///< computed
  float sup_det_gn_th;
  std::uint16_t sup_det_count_th;
  std::uint16_t pad0;
  float sup_det_weight[kCoarseBands];
  float sup_det_weight_th;
  float vad_det_gn_th_on;
  float vad_det_weight_on[kCoarseBands];
  float vad_det_weight_th_on;
  std::uint16_t vad_det_count_th_on;
  std::uint16_t pad1;
  float vad_det_gn_th_off;
  float vad_det_weight_off[kCoarseBands];
  float vad_det_weight_th_off;
  std::uint16_t vad_det_count_th_off;
  std::uint16_t comp_on;
  float comp_gain;
  float comp_pwc_up;
  float comp_pwc_dn;
  float comp_clip_th;
  float comp_clip_gain;
  float vol;
};

struct NsNrBlock {
  std::uint16_t bypass;
  std::uint16_t ID;
  std::uint16_t bins;
  std::uint16_t fine_nbin;
  std::uint16_t coarse_nbin;
  std::uint16_t dly_frame;
  NsNrCommon common;
};

struct NsNrBfBlock {
  std::uint16_t bypass;
  std::uint16_t ID;
  std::uint16_t sources;  ///< 2
  std::uint16_t pad;
  float noise_mix_w[2];
  std::uint8_t unused[8];
  float g_floor_nn[kCoarseBands];
  float noi_ns_sub_coef_voice[kCoarseBands];
  float noi_ns_sub_coef_noise[kCoarseBands];
  float noi_nn_sub_coef_voice[kCoarseBands];
  float noi_nn_sub_coef_noise[kCoarseBands];
  float sig_nn_sub_coef_voice[kCoarseBands];
  float sig_nn_sub_coef_noise[kCoarseBands];
  float nn_mgn_voice;
  float nn_mgn_noise;
  std::uint16_t bins;
  std::uint16_t fine_nbin;
  std::uint16_t coarse_nbin;
  std::uint16_t dly_frame;
  NsNrCommon common;
  std::uint16_t nbin_avg_g_L;
  std::uint16_t nbin_avg_g_H;
};

struct FbfHeader {
  std::uint16_t inputs;      ///< 2
  std::uint16_t outputs;     ///< 2
  std::uint16_t hop;         ///< 192
  std::uint16_t bins;        ///< 257
  std::uint16_t fft;         ///< 512
  std::uint16_t partitions;  ///< 2
};

static_assert(sizeof(BandTable) == 364);
static_assert(sizeof(AinBlock) == 208);
static_assert(sizeof(AnaBlock) == 4112);
static_assert(sizeof(SynBlock) == 1540);
static_assert(sizeof(PwrBlock) == 16);
static_assert(sizeof(NlBlock) == 12);
static_assert(sizeof(Nl2Block) == 28);
static_assert(sizeof(VdsBlock) == 112);
static_assert(sizeof(DiffPowerBlock) == 12);
static_assert(sizeof(DelayBlock) == 8);
static_assert(sizeof(NgenBlock) == 348);
static_assert(sizeof(PulseSupBlock) == 428);
static_assert(sizeof(NsNrCommon) == 1092);
static_assert(sizeof(NsNrBlock) == 1104);
static_assert(sizeof(NsNrBfBlock) == 1472);
static_assert(sizeof(FbfHeader) == 12);

}  // namespace sonivo::classic
