#include "classic/built_in_params.h"

#include <iostream>
#include <memory>
#include <vector>

#include "classic/par_list.h"
#include "classic/par_reader.h"

namespace sonivo::classic {

// As a par file would have them: levels and gains in dB, times in ms, bands by their first bin.
std::span<const ParEntry> NrModelEntries() {
  static const std::vector<ParEntry> list{
      {"all_bypass", {0}},
      {"paramID", {2}},

      // Bins are 46.9 Hz wide: single bins up to 750 Hz, then bands that widen with frequency.
      {"syk1.nbin", {12}},
      {"syk1.f[%d]", {0, 4, 8, 12, 16, 24, 32, 47, 62, 96, 131, 256, 512}},
      {"syk2.nbin", {55}},
      {"syk2.f[%d]", {0,  1,  2,  3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,  16,  18, 20,
                      22, 24, 26, 28,  30,  32,  35,  38,  41,  44,  47,  51,  55,  58,  62,  67,  72,  77, 82,
                      87, 91, 96, 103, 110, 117, 124, 131, 146, 162, 179, 197, 216, 236, 256, 341, 426, 512}},
      {"nbin_param_tbl[%d]", {0, 4, 8, 12, 16, 20, 24, 29, 33, 40, 45, 52, 55}},

      // High-pass against rumble.
      {"ain.stage_num", {1}},
      {"ain.type[%d]", {2}},
      {"ain.Q[%d]", {0.707}},
      {"ain.f0[%d]", {60}},
      {"ain.gain[%d]", {0}},

      {"ana.fnum_base_out", {0}},
      {"ana.fnum_out", {512}},

      // Levels and their minima; noise levels start far above any noise.
      {"pwr_snd.Pin_init", {-40}},
      {"pwr_snd.PWCup", {12}},
      {"pwr_snd.PWCdn", {40}},
      {"nl_snd.init_wait", {40}},
      {"nl_snd.update_cycle_noise", {400}},
      {"nl_snd.update_cycle_voice", {1500}},
      {"nl_snd.Nin_init", {40}},
      {"pwr_snd_vd.Pin_init", {-40}},
      {"pwr_snd_vd.PWCup", {8}},
      {"pwr_snd_vd.PWCdn", {24}},
      {"vds.ID", {2}},
      {"vds.Nef_floor[%d]", {-40}},
      {"vds.Nef_floor[12]", {4}},
      {"vds.vd_w[%d]", {0, 0.5, 1, 1, 1, 1, 1, 1, 0.7, 0.4, 0.2, 0}},
      {"vds.th_coef", {3}},
      {"vds.upc_fb", {12}},
      {"vds.dnc_fb", {200}},
      {"pwr_bf.Pin_init", {-40}},
      {"pwr_bf.PWCup", {6}},
      {"pwr_bf.PWCdn", {10}},
      {"pwr_bf_nl.Pin_init", {-40}},
      {"pwr_bf_nl.PWCup", {30}},
      {"pwr_bf_nl.PWCdn", {30}},
      {"nl_bf.init_wait", {40}},
      {"nl_bf.update_cycle_noise", {400}},
      {"nl_bf.update_cycle_voice", {1500}},
      {"nl_bf.Nin_init", {40}},
      {"nl2_bf.init_wait", {40}},
      {"nl2_bf.update_cycle_noise", {400}},
      {"nl2_bf.update_cycle_voice", {1500}},
      {"nl2_bf.base_freq", {2}},
      {"nl2_bf.Nin_init", {40}},
      {"nl2_bf.freq_dh_pwc", {0.3}},
      {"nl2_bf.freq_dh_up_coef", {2}},
      {"nl2_bf.freq_dh_dn_coef", {0.2}},

      {"ns_nr.eq[%d]", {0}},
      {"ns_nr.bypass", {0}},
      {"ns_nr.ID", {2}},
      {"ns_nr.dly_frame", {0}},

      // Wide-band noise such as wind: only where the lowest bands are louder than a voice makes them.
      {"ns_nr.nw_det_band_min", {0}},
      {"ns_nr.nw_det_band_max", {8}},
      {"ns_nr.nw_start_nbin[%d]", {2, 3, 4}},
      {"ns_nr.nw_end_nbin_param[%d]", {5, 6, 7}},
      {"ns_nr.nw_det_th[%d]", {32, 36, 40}},
      {"ns_nr.freq_dh_pwc[%d]", {0.8, 0.85, 0.9}},
      {"ns_nr.g_floor_nw[%d][%d]", {-15}},
      {"ns_nr.nw_ns_sub_coef[%d][%d]", {1}},
      {"ns_nr.nw_mgn_voice", {1}},
      {"ns_nr.nw_mgn_noise", {1.2}},

      // The gain: down to the floor in noise, gentle while somebody speaks.
      {"ns_nr.g_floor_ns[%d]", {-16}},
      {"ns_nr.pwc_g_up_voice[%d]", {6}},
      {"ns_nr.pwc_g_up_noise[%d]", {16}},
      {"ns_nr.pwc_g_dn_voice[%d]", {24}},
      {"ns_nr.pwc_g_dn_noise[%d]", {40}},
      {"ns_nr.sig_ns_sub_coef_voice[%d]", {1.4}},
      {"ns_nr.sig_ns_sub_coef_noise[%d]", {2.4}},
      {"ns_nr.ns_mgn_voice", {1.2}},
      {"ns_nr.ns_mgn_noise", {2}},
      {"ns_nr.mask_pwc_up[%d]", {-10}},
      {"ns_nr.mask_pwc_dn[%d]", {-16}},
      {"ns_nr.mask_coef[%d]", {-20}},
      {"ns_nr.g_enf_coef_noise", {0}},
      {"ns_nr.g_enf_coef_voice", {2}},
      {"ns_nr.gn_nl_thi1", {0.2}},
      {"ns_nr.gn_nl_thi2", {0.7}},
      {"ns_nr.gn_nl_tho1", {0.16}},
      {"ns_nr.gn_nl_tho2", {0.76}},
      {"ns_nr.avg_g_thi1", {0.2}},
      {"ns_nr.avg_g_thi2", {0.5}},
      {"ns_nr.avg_g_tho1", {0.1}},
      {"ns_nr.avg_g_tho2", {0.9}},
      {"ns_nr.sup_det_gn_th", {0.5}},
      {"ns_nr.sup_det_count_th", {50}},
      {"ns_nr.sup_det_weight[%d]", {1}},
      {"ns_nr.sup_det_weight_th", {2}},

      // The compressor, at unity gain: it only catches what exceeds full scale.
      {"ns_nr.vad_det_gn_th_on", {0.5}},
      {"ns_nr.vad_det_weight_on[%d]", {1}},
      {"ns_nr.vad_det_weight_th_on", {8}},
      {"ns_nr.vad_det_count_th_on", {3}},
      {"ns_nr.vad_det_gn_th_off", {0.3}},
      {"ns_nr.vad_det_weight_off[%d]", {1}},
      {"ns_nr.vad_det_weight_th_off", {4}},
      {"ns_nr.vad_det_count_th_off", {50}},
      {"ns_nr.comp_on", {0}},
      {"ns_nr.comp_gain", {0}},
      {"ns_nr.comp_pwc_up", {200}},
      {"ns_nr.comp_pwc_dn", {10}},
      {"ns_nr.comp_clip_th", {24}},
      {"ns_nr.comp_clip_gain", {-6}},
      {"ns_nr.vol", {0}},

      // Key strokes, in bins 375 Hz wide: found one sub-block late, hence the delay of one sub-block.
      {"ana_pulse.fnum_base_out", {0}},
      {"ana_pulse.fnum_out", {64}},
      {"syk_pulse.nbin", {16}},
      {"syk_pulse.f[%d]", {0, 1, 2, 3, 4, 5, 6, 7, 8, 10, 12, 15, 19, 24, 31, 40, 64}},
      {"syk_pulse_prm.nbin", {3}},
      {"syk_pulse_prm.f[%d]", {0, 4, 12, 64}},
      {"syk_pulse_prm_ui.nbin", {2}},
      {"syk_pulse_prm_ui.f[%d]", {0, 6, 64}},
      {"nbin_pulse_param_tbl[%d]", {0, 4, 10, 16}},
      {"nbin_pulse_param_ui_tbl[%d]", {0, 6, 16}},
      {"diff_power.delay_frame", {3}},
      {"diff_power.window_len", {12}},
      {"pulse_sup.g_floor[%d]", {-18, -24}},
      {"pulse_sup.pwc_g_up[%d]", {16}},
      {"pulse_sup.pwc_g_up_tail[%d]", {40}},
      {"pulse_sup.pwc_g_dn[%d]", {1.5}},
      {"pulse_sup.pwc_g_up_tail_th[%d]", {-3}},
      {"pulse_sup.min_diff_p[%d]", {18, 15}},
      {"pulse_sup.min_npm_det[%d]", {42}},
      {"pulse_sup.min_diff_p2max_diff_p", {8}},
      {"pulse_sup.min_npm_det2max_npm_det", {8}},
      {"pulse_sup.pwc_g_up2pwc_in_up", {0.1}},
      {"pulse_sup.pwc_g_dn2pwc_in_dn", {2}},
      {"pulse_sup.bypass", {0}},
      {"pulse_sup.sig_np_sub_coef_voice[%d]", {0.7}},
      {"pulse_sup.sig_np_sub_coef_noise[%d]", {1}},
      {"pulse_sup.np_mgn_voice[%d]", {1}},
      {"pulse_sup.np_mgn_noise[%d]", {1.5}},
      {"pulse_sup.pwc_np_dn[%d]", {8}},
      {"pulse_sup.pwc_npm_dn[%d]", {8}},
      {"pulse_sup.mask_pwc_up[%d]", {-10}},
      {"pulse_sup.mask_pwc_dn[%d]", {-16}},
      {"pulse_sup.mask_coef[%d]", {-20}},
      {"pulse_sup.g_enf_coef_noise", {0}},
      {"pulse_sup.g_enf_coef_voice", {2}},
      {"pulse_sup.avg_g_thi1", {0.2}},
      {"pulse_sup.avg_g_thi2", {0.8}},
      {"pulse_sup.avg_g_tho1", {0.1}},
      {"pulse_sup.avg_g_tho2", {0.9}},
      {"pulse_sup.sup_det_gn_th", {0.5}},
      {"pulse_sup.sup_det_fnum_th", {4}},
      {"pulse_sup.sup_det_count_th", {150}},
      {"pulse_sup.npm_num", {1}},
      {"pulse_sup.npm_band_num[%d]", {3, 0, 0}},
      {"pulse_sup.npm_band[0][%d]", {8, 11, 14}},
      {"pulse_sup.npm_band[%d][%d]", {0}},
      {"pulse_sup.det_keep_num[%d]", {4}},
      {"pulse_sup.det_keep_npm_num[%d]", {4}},
      {"pulse_sup_delay.delay", {128}},
      {"pulse_sup_add_delay.delay", {1536}},
      {"pulse_sup_add.gn_th", {-9}},
      {"pwr_pulse.Pin_init", {-40}},
      {"pwr_pulse.PWCup", {20}},
      {"pwr_pulse.PWCdn", {20}},
      {"nl_pulse.init_wait", {40}},
      {"nl_pulse.update_cycle_noise", {400}},
      {"nl_pulse.update_cycle_voice", {1500}},
      {"nl_pulse.Nin_init", {40}},
      {"ngen_f_pulse.init_wait", {150}},
      {"ngen_f_pulse.lvl", {0}},
      {"ngen_f_pulse.target_gn[%d]", {-6}},
      {"ngen_f_pulse.eq[%d]", {0}},
      {"ngen_f_pulse.min_nl[%d]", {-80}},
  };
  return list;
}

const KeyCancelParam& NrModelParam() {
  static const std::unique_ptr<const KeyCancelParam> param = [] {
    auto built = std::make_unique<KeyCancelParam>();
    ParList list(NrModelEntries(), std::cerr);
    ReadParams(list, *built);
    built->version_minor = 8;
    return built;
  }();
  return *param;
}

}  // namespace sonivo::classic
