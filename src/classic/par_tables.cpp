#include "classic/par_tables.h"

#include <iterator>

namespace sonivo::classic {

namespace {

constexpr double kLevelScale = 1000.0;  // the level of 0 dB

constexpr Conversion kCount{Unit::count};
constexpr Conversion kReal{Unit::real};
constexpr Conversion kGain{Unit::db_amplitude};
constexpr Conversion kLevel{Unit::db_amplitude, kLevelScale};
constexpr Conversion kFrames{Unit::ms_frames};
constexpr Conversion kCoefficient{Unit::ms_coefficient};

constexpr Field u16(const char* name) { return {name, FieldType::u16}; }
constexpr Field f32(const char* name) { return {name, FieldType::f32}; }
constexpr Field count(const char* name) { return u16(name).read_as(kCount); }
constexpr Field frames(const char* name) { return u16(name).read_as(kFrames); }
constexpr Field real(const char* name) { return f32(name).read_as(kReal); }
constexpr Field gain(const char* name) { return f32(name).read_as(kGain); }
constexpr Field level(const char* name) { return f32(name).read_as(kLevel); }
constexpr Field coefficient(const char* name) { return f32(name).read_as(kCoefficient); }
constexpr Field unused(FieldType type, std::uint16_t places) { return Field{"unused[%d]", type}.times(places); }
constexpr Field kPad = u16("pad");

// One value per coarse band, prm band or ui band.
constexpr Field per_coarse(Field field) { return field.times(kCoarseBands, Entries::coarse); }
constexpr Field per_prm(Field field) { return field.times(kPulseGroups, Entries::prm); }
constexpr Field per_ui(Field field) { return field.times(kPulseGroups, Entries::ui); }

constexpr Limit kCoarseCount{0, kCoarseBands, "error: %snbin is more than 12\n", Breach::ends_block};
constexpr Limit kBandCount{0, kMaxBands, "error: %snbin is more than 60\n", Breach::ends_block};
constexpr Limit kGroupCount{0, kPulseGroups, "error: %snbin is more than 5\n", Breach::ends_block};
constexpr Limit kStageCount{0, kFilterStages, "error: %sstage_num is more than 6\n", Breach::ends_block};
constexpr Limit kDelayFrames{1, INT32_MAX, "error: %sdelay_frame is less than 1\n", Breach::left_out};
constexpr Limit kWindowLength{1, INT32_MAX, "error: %swindow_len is less than 1\n", Breach::left_out};
// Blobs with these counts are not usable, so no error is needed to keep them away from a chain.
constexpr Limit kNpmCount{0, kNpmGroups, "npm_num must be less than NS_NR_MAX_NPM_NUM", Breach::taken_last};
constexpr Limit kNpmBandCount{0, kNpmGroups, "npm_band_num must be less than NS_NR_MAX_NPM_BAND_NUM",
                              Breach::taken_last};

consteval auto band_table(const Limit& capacity) {
  return laid_out<sizeof(BandTable)>(count("nbin").within(capacity),
                                     count("f[%d]").times(kMaxBands + 1, Entries::own_edges),
                                     f32("inv_width[%d]").times(kMaxBands));
}

template <int Points>
consteval auto analysis() {
  constexpr int kPlaces = 1024;
  constexpr Field hop{"hop", FieldType::i32};
  constexpr Field fft{"fft", FieldType::i32};
  constexpr Field window = f32("window[%d]").times(Points).summary();
  constexpr Field base = Field{"fnum_base_out", FieldType::i32}.read_as(kCount);
  constexpr Field bins = Field{"fnum_out", FieldType::i32}.read_as(kCount);
  if constexpr (Points == kPlaces) {
    return laid_out<sizeof(AnaBlock)>(hop, fft, window, base, bins);
  } else {
    return laid_out<sizeof(AnaBlock)>(hop, fft, window, unused(FieldType::f32, kPlaces - Points).summary(), base, bins);
  }
}

template <int Points>
consteval auto synthesis() {
  constexpr int kPlaces = 384;
  constexpr Field hop{"hop", FieldType::i16};
  constexpr Field fft{"fft", FieldType::i16};
  constexpr Field window = f32("window[%d]").times(Points).summary();
  if constexpr (Points == kPlaces) {
    return laid_out<sizeof(SynBlock)>(hop, fft, window);
  } else {
    return laid_out<sizeof(SynBlock)>(hop, fft, window, unused(FieldType::f32, kPlaces - Points).summary());
  }
}

constexpr auto kFrameFields =
    laid_out<offsetof(CommonHead, nbin_param_tbl)>(u16("hop"), u16("bins"), count("all_bypass"));

constexpr auto kFineBoundsFields = laid_out<sizeof(CommonHead::nbin_param_tbl)>(
    count("nbin_param_tbl[%d]").times(kCoarseBands + 1, Entries::coarse_edges));

constexpr auto kCoarseBandsFields = band_table(kCoarseCount);
constexpr auto kBandsFields = band_table(kBandCount);
constexpr auto kGroupsFields = band_table(kGroupCount);

constexpr auto kAinFields = laid_out<sizeof(AinBlock)>(
    u16("frame"), count("stage_num").within(kStageCount), count("type[%d]").times(kFilterStages, Entries::own),
    real("Q[%d]").times(kFilterStages, Entries::own), real("f0[%d]").times(kFilterStages, Entries::own),
    real("gain[%d]").times(kFilterStages, Entries::own),
    f32("coefficients[%d][%%d]").in_rows(kFilterStages).times(sizeof(BiquadCoefficients) / sizeof(float)));

constexpr auto kFbfFields =
    laid_out<sizeof(FbfHeader)>(u16("inputs"), u16("outputs"), u16("hop"), u16("bins"), u16("fft"), u16("partitions"));

constexpr auto kAnaFields = analysis<kFft>();
constexpr auto kAnaPulseFields = analysis<kPulseFft>();
constexpr auto kSynFields = synthesis<2 * kHop>();
constexpr auto kSynPulseFields = synthesis<2 * kPulseHop>();

constexpr auto kPwrFields =
    laid_out<sizeof(PwrBlock)>(u16("nbin"), kPad, level("Pin_init"), coefficient("PWCup"), coefficient("PWCdn"));

constexpr auto kNlFields = laid_out<sizeof(NlBlock)>(u16("nbin"), frames("init_wait"), frames("update_cycle_noise"),
                                                     frames("update_cycle_voice"), level("Nin_init"));

constexpr auto kNl2Fields = laid_out<sizeof(Nl2Block)>(
    u16("nbin"), frames("init_wait"), frames("update_cycle_noise"), frames("update_cycle_voice"), count("base_freq"),
    kPad, level("Nin_init"), real("freq_dh_pwc"), gain("freq_dh_up_coef"), gain("freq_dh_dn_coef"));

// The last of the Nef_floor entries is a gain of the noise level, whatever the count of bands: a plain ratio in dB.
constexpr auto kVdsFields =
    laid_out<sizeof(VdsBlock)>(count("ID"), u16("nbin"), per_coarse(level("Nef_floor[%d]")), gain("Nef_floor[12]"),
                               per_coarse(real("vd_w[%d]")), gain("th_coef"), frames("upc_fb"), frames("dnc_fb"));

constexpr auto kFineGainFields = laid_out<sizeof(NoisePath::ns_nr_eq)>(gain("eq[%d]").times(kMaxBands, Entries::fine));

constexpr auto kNsNrHeadFields = laid_out<offsetof(NsNrBlock, common)>(
    count("bypass"), count("ID"), u16("bins"), u16("fine_nbin"), u16("coarse_nbin"), count("dly_frame"));

constexpr auto kNsNrBfHeadFields = laid_out<offsetof(NsNrBfBlock, common)>(
    count("bypass"), count("ID"), u16("sources"), kPad, real("noise_mix_w[%d]").times(2), unused(FieldType::u16, 4),
    per_coarse(gain("g_floor_nn[%d]")), per_coarse(real("noi_ns_sub_coef_voice[%d]")),
    per_coarse(real("noi_ns_sub_coef_noise[%d]")), per_coarse(real("noi_nn_sub_coef_voice[%d]")),
    per_coarse(real("noi_nn_sub_coef_noise[%d]")), per_coarse(real("sig_nn_sub_coef_voice[%d]")),
    per_coarse(real("sig_nn_sub_coef_noise[%d]")), real("nn_mgn_voice"), real("nn_mgn_noise"), u16("bins"),
    u16("fine_nbin"), u16("coarse_nbin"), count("dly_frame"));

constexpr auto kNsNrCommonFields = laid_out<sizeof(NsNrCommon)>(
    count("nw_det_band_min"), count("nw_det_band_max"), count("nw_start_nbin[%d]").times(kWideLevels),
    count("nw_end_nbin_param[%d]").times(kWideLevels), level("nw_det_th[%d]").times(kWideLevels),
    real("freq_dh_pwc[%d]").times(kWideLevels), per_coarse(gain("g_floor_nw[%d][%%d]")).in_rows(kWideLevels),
    per_coarse(real("nw_ns_sub_coef[%d][%%d]")).in_rows(kWideLevels), per_coarse(gain("g_floor_ns[%d]")),
    per_coarse(coefficient("pwc_g_up_voice[%d]")), per_coarse(coefficient("pwc_g_up_noise[%d]")),
    per_coarse(coefficient("pwc_g_dn_voice[%d]")), per_coarse(coefficient("pwc_g_dn_noise[%d]")),
    per_coarse(real("sig_ns_sub_coef_voice[%d]")), per_coarse(real("sig_ns_sub_coef_noise[%d]")), real("ns_mgn_voice"),
    real("ns_mgn_noise"), real("nw_mgn_voice"), real("nw_mgn_noise"), per_coarse(gain("mask_pwc_up[%d]")),
    per_coarse(gain("mask_pwc_dn[%d]")), per_coarse(gain("mask_coef[%d]")), gain("g_enf_coef_noise"),
    gain("g_enf_coef_voice"), real("gn_nl_thi1"), real("gn_nl_thi2"), real("gn_nl_tho1"), real("gn_nl_tho2"),
    f32("gn_nl_slope[%d]").times(3), real("avg_g_thi1"), real("avg_g_thi2"), real("avg_g_tho1"), real("avg_g_tho2"),
    f32("avg_g_slope[%d]").times(3), real("sup_det_gn_th"), count("sup_det_count_th"), kPad,
    per_coarse(real("sup_det_weight[%d]")), real("sup_det_weight_th"), real("vad_det_gn_th_on"),
    per_coarse(real("vad_det_weight_on[%d]")), real("vad_det_weight_th_on"), count("vad_det_count_th_on"), kPad,
    real("vad_det_gn_th_off"), per_coarse(real("vad_det_weight_off[%d]")), real("vad_det_weight_th_off"),
    count("vad_det_count_th_off"), count("comp_on"), gain("comp_gain"), coefficient("comp_pwc_up"),
    coefficient("comp_pwc_dn"), level("comp_clip_th"), gain("comp_clip_gain"), gain("vol"));

constexpr auto kNsNrBfTailFields =
    laid_out<sizeof(NsNrBfBlock) - offsetof(NsNrBfBlock, nbin_avg_g_L)>(count("nbin_avg_g_L"), count("nbin_avg_g_H"));

constexpr auto kPulseFrameFields =
    laid_out<offsetof(PulsePath, nbin_pulse_param_tbl)>(u16("pulse_hop"), u16("pulse_bins"));

constexpr auto kPrmBoundsFields = laid_out<sizeof(PulsePath::nbin_pulse_param_tbl)>(
    count("nbin_pulse_param_tbl[%d]").times(kPulseGroups + 1, Entries::prm_edges));
constexpr auto kUiBoundsFields = laid_out<sizeof(PulsePath::nbin_pulse_param_ui_tbl)>(
    count("nbin_pulse_param_ui_tbl[%d]").times(kPulseGroups + 1, Entries::ui_edges));

constexpr auto kDiffPowerFields = laid_out<sizeof(DiffPowerBlock)>(
    Field{"nbin", FieldType::i32}, Field{"delay_frame", FieldType::i32}.read_as(kCount).within(kDelayFrames),
    Field{"window_len", FieldType::i32}.read_as(kCount).within(kWindowLength));

constexpr auto kPulseSupFields = laid_out<sizeof(PulseSupBlock)>(
    per_ui(gain("g_floor[%d]")), per_ui(coefficient("pwc_g_up[%d]")), per_ui(coefficient("pwc_g_up_tail[%d]")),
    per_ui(coefficient("pwc_g_dn[%d]")), per_ui(gain("pwc_g_up_tail_th[%d]")), per_ui(gain("min_diff_p[%d]")),
    gain("min_npm_det[%d]").times(kNpmGroups), gain("min_diff_p2max_diff_p"), gain("min_npm_det2max_npm_det"),
    real("pwc_g_up2pwc_in_up"), real("pwc_g_dn2pwc_in_dn"), count("bypass"), u16("bins"), u16("pulse_nbin"),
    u16("prm_nbin"), u16("ui_nbin"), kPad, per_prm(real("sig_np_sub_coef_voice[%d]")),
    per_prm(real("sig_np_sub_coef_noise[%d]")), per_prm(real("np_mgn_voice[%d]")), per_prm(real("np_mgn_noise[%d]")),
    per_prm(coefficient("pwc_np_dn[%d]")), per_prm(coefficient("pwc_npm_dn[%d]")), per_prm(gain("mask_pwc_up[%d]")),
    per_prm(gain("mask_pwc_dn[%d]")), per_prm(gain("mask_coef[%d]")), gain("g_enf_coef_noise"),
    gain("g_enf_coef_voice"), real("avg_g_thi1"), real("avg_g_thi2"), real("avg_g_tho1"), real("avg_g_tho2"),
    f32("avg_g_slope[%d]").times(3), real("sup_det_gn_th"), count("sup_det_fnum_th"), count("sup_det_count_th"),
    count("npm_num").within(kNpmCount), count("npm_band_num[%d]").times(kNpmGroups).within(kNpmBandCount),
    count("npm_band[%d][%%d]").in_rows(kNpmGroups).times(kNpmGroups), per_ui(count("det_keep_num[%d]")),
    count("det_keep_npm_num[%d]").times(kNpmGroups), kPad);

constexpr auto kDelayFields =
    laid_out<sizeof(DelayBlock)>(Field{"block", FieldType::u32}, Field{"delay", FieldType::i32}.read_as(kCount));

constexpr auto kFillThresholdFields = laid_out<sizeof(PulsePath::pulse_sup_add_gn_th)>(gain("gn_th"));

constexpr auto kNgenFields = laid_out<sizeof(NgenBlock)>(
    u16("frame"), u16("pulse_nbin"), u16("prm_nbin"), count("init_wait"), level("lvl"),
    gain("target_gn[%d]").times(kCoarseBands, Entries::prm), gain("eq[%d]").times(kCoarseBands, Entries::prm),
    level("min_nl[%d]").times(kMaxBands, Entries::pulse));

constexpr Field spectra(const char* name) {
  return Field{name, FieldType::complex}.in_rows(kPartitions).times(kBeamBins).summary();
}

constexpr auto kFilterFields = laid_out<sizeof(BeamFormingKeyCancelParam::filter)>(
    spectra("fd_fbf_ain_flt[0][0].partition[%d][%%d]"), spectra("fd_fbf_ain_flt[0][1].partition[%d][%%d]"),
    spectra("fd_fbf_ain_flt[1][0].partition[%d][%%d]"), spectra("fd_fbf_ain_flt[1][1].partition[%d][%%d]"));

constexpr auto kParamIDFields = laid_out<sizeof(KeyCancelParam::paramID)>(count("paramID"));
constexpr auto kVersionFields = laid_out<6>(u16("version_major"), u16("version_minor"), kPad);

/// Blocks one behind the other.
class Sequence {
 public:
  Sequence& add(const char* prefix, std::span<const Field> fields) {
    places_.push_back({prefix, fields, end_});
    end_ += fields.back().offset + fields.back().size();
    return *this;
  }
  std::vector<BlockPlace> take() { return std::move(places_); }

 private:
  std::vector<BlockPlace> places_;
  std::size_t end_ = 0;
};

void add_head(Sequence& blocks) {
  blocks.add("", tables::kFrame).add("", tables::kFineBounds).add("syk1.", tables::kCoarseBands);
  blocks.add("syk2.", tables::kBands).add("ain.", tables::kAin);
}

void add_noise(Sequence& blocks) {
  blocks.add("ana.", tables::kAna).add("syn.", tables::kSyn);
  blocks.add("pwr_snd.", tables::kPwr).add("pwr_snd_vd.", tables::kPwr).add("nl_snd.", tables::kNl);
  blocks.add("vds.", tables::kVds).add("pwr_bf.", tables::kPwr).add("pwr_bf_nl.", tables::kPwr);
  blocks.add("nl_bf.", tables::kNl).add("nl2_bf.", tables::kNl2).add("ns_nr.", tables::kFineGain);
}

void add_pulse(Sequence& blocks) {
  blocks.add("", tables::kPulseFrame).add("", tables::kPrmBounds).add("", tables::kUiBounds);
  blocks.add("ana_pulse.", tables::kAnaPulse);
  blocks.add("syn_pulse.", tables::kSynPulse).add("syk_pulse.", tables::kBands);
  blocks.add("syk_pulse_prm.", tables::kGroups).add("syk_pulse_prm_ui.", tables::kGroups);
  blocks.add("diff_power.", tables::kDiffPower).add("pulse_sup.", tables::kPulseSup);
  blocks.add("pulse_sup_delay.", tables::kDelay).add("pulse_sup_add_delay.", tables::kDelay);
  blocks.add("pulse_sup_add.", tables::kFillThreshold).add("pwr_pulse.", tables::kPwr);
  blocks.add("nl_pulse.", tables::kNl).add("ngen_f_pulse.", tables::kNgen);
}

}  // namespace

namespace tables {

const std::span<const Field> kFrame = kFrameFields;
const std::span<const Field> kFineBounds = kFineBoundsFields;
const std::span<const Field> kCoarseBands = kCoarseBandsFields;
const std::span<const Field> kBands = kBandsFields;
const std::span<const Field> kGroups = kGroupsFields;
const std::span<const Field> kAin = kAinFields;
const std::span<const Field> kFbf = kFbfFields;
const std::span<const Field> kAna = kAnaFields;
const std::span<const Field> kAnaPulse = kAnaPulseFields;
const std::span<const Field> kSyn = kSynFields;
const std::span<const Field> kSynPulse = kSynPulseFields;
const std::span<const Field> kPwr = kPwrFields;
const std::span<const Field> kNl = kNlFields;
const std::span<const Field> kNl2 = kNl2Fields;
const std::span<const Field> kVds = kVdsFields;
const std::span<const Field> kFineGain = kFineGainFields;
const std::span<const Field> kNsNrHead = kNsNrHeadFields;
const std::span<const Field> kNsNrBfHead = kNsNrBfHeadFields;
const std::span<const Field> kNsNrCommon = kNsNrCommonFields;
const std::span<const Field> kNsNrBfTail = kNsNrBfTailFields;
const std::span<const Field> kPulseFrame = kPulseFrameFields;
const std::span<const Field> kPrmBounds = kPrmBoundsFields;
const std::span<const Field> kUiBounds = kUiBoundsFields;
const std::span<const Field> kDiffPower = kDiffPowerFields;
const std::span<const Field> kPulseSup = kPulseSupFields;
const std::span<const Field> kDelay = kDelayFields;
const std::span<const Field> kFillThreshold = kFillThresholdFields;
const std::span<const Field> kNgen = kNgenFields;
const std::span<const Field> kFilter = kFilterFields;
const std::span<const Field> kParamID = kParamIDFields;
const std::span<const Field> kVersion = kVersionFields;

}  // namespace tables

std::vector<BlockPlace> layout(const KeyCancelParam&) {
  Sequence blocks;
  add_head(blocks);
  add_noise(blocks);
  blocks.add("ns_nr.", tables::kNsNrHead).add("ns_nr.", tables::kNsNrCommon);
  add_pulse(blocks);
  blocks.add("", tables::kParamID).add("", tables::kVersion);
  return blocks.take();
}

std::vector<BlockPlace> layout(const BeamFormingKeyCancelParam&) {
  Sequence blocks;
  add_head(blocks);
  blocks.add("fbf.", tables::kFbf);
  add_noise(blocks);
  blocks.add("ns_nr.", tables::kNsNrBfHead).add("ns_nr.", tables::kNsNrCommon).add("ns_nr.", tables::kNsNrBfTail);
  add_pulse(blocks);
  blocks.add("", tables::kFilter).add("", tables::kParamID).add("", tables::kVersion);
  return blocks.take();
}

}  // namespace sonivo::classic
