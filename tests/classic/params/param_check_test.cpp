#include "classic/param_check.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "classic/built_in_params.h"

namespace sonivo::classic {
namespace {

BeamFormingKeyCancelParam usable_beams() {
  const KeyCancelParam& one = NrModelParam();
  BeamFormingKeyCancelParam param{};
  param.head = one.head;
  param.fbf = {2, 2, 192, 257, 512, 2};
  param.noise = one.noise;
  param.ns_nr.sources = 2;
  param.ns_nr.bins = one.ns_nr.bins;
  param.ns_nr.fine_nbin = one.ns_nr.fine_nbin;
  param.ns_nr.coarse_nbin = one.ns_nr.coarse_nbin;
  param.ns_nr.dly_frame = one.ns_nr.dly_frame;
  param.ns_nr.common = one.ns_nr.common;
  param.ns_nr.nbin_avg_g_L = 0;
  param.ns_nr.nbin_avg_g_H = 55;
  param.pulse = one.pulse;
  param.version_major = 1;
  return param;
}

/// What the two records share, under one name each.
struct Parts {
  CommonHead& head;
  NoisePath& noise;
  NsNrCommon& common;
  std::uint16_t& bins;
  std::uint16_t& fine_nbin;
  std::uint16_t& coarse_nbin;
  std::uint16_t& dly_frame;
  PulsePath& pulse;
};

template <typename Param>
Parts parts_of(Param& param) {
  auto& ns_nr = param.ns_nr;
  return {param.head,      param.noise,       ns_nr.common,    ns_nr.bins,
          ns_nr.fine_nbin, ns_nr.coarse_nbin, ns_nr.dly_frame, param.pulse};
}

struct Change {
  std::string text;
  std::function<void(const Parts&)> apply;
};

#define CHANGE(statement)                         \
  Change {                                        \
#statement, [](const Parts& p) { statement; } \
  }

const std::vector<Change> kHarmful{
    CHANGE(p.head.hop = 191),
    CHANGE(p.head.bins = 513),
    CHANGE(p.head.syk1.nbin = 0),
    CHANGE(p.head.syk1.nbin = 13),
    CHANGE(p.head.syk1.nbin = 65535),
    CHANGE(p.head.syk1.f[5] = p.head.syk1.f[4]),
    CHANGE(p.head.syk1.f[5] = 65535),
    CHANGE(p.head.syk1.f[12] = 513),
    CHANGE(p.head.syk2.nbin = 0),
    CHANGE(p.head.syk2.nbin = 61),
    CHANGE(p.head.syk2.f[1] = 0),
    CHANGE(p.head.syk2.f[55] = 513),
    CHANGE(p.head.nbin_param_tbl[3] = 7),
    CHANGE(p.head.nbin_param_tbl[12] = 56),
    CHANGE(p.head.ain.frame = 193),
    CHANGE(p.head.ain.stage_num = 7),
    CHANGE(p.noise.ana.hop = 64),
    CHANGE(p.noise.ana.fft = 2048),
    CHANGE(p.noise.ana.fnum_base_out = -1),
    CHANGE(p.noise.ana.fnum_out = -1),
    CHANGE(p.noise.ana.fnum_out = 513),
    CHANGE(p.noise.ana.fnum_base_out = 2),
    CHANGE(p.noise.ana.fnum_base_out = INT32_MAX),
    CHANGE(p.noise.syn.hop = 191),
    CHANGE(p.noise.syn.fft = 512),
    CHANGE(p.noise.pwr_snd.nbin = 13),
    CHANGE(p.noise.nl_snd.nbin = 11),
    CHANGE(p.noise.vds.nbin = 55),
    CHANGE(p.noise.pwr_snd_vd.nbin = 12),
    CHANGE(p.noise.pwr_bf.nbin = 60),
    CHANGE(p.noise.pwr_bf_nl.nbin = 54),
    CHANGE(p.noise.nl_bf.nbin = 56),
    CHANGE(p.noise.nl2_bf.nbin = 65535),
    CHANGE(p.noise.nl2_bf.base_freq = 55),
    CHANGE(p.bins = 511),
    CHANGE(p.fine_nbin = 56),
    CHANGE(p.coarse_nbin = 11),
    CHANGE(p.dly_frame = 17),
    CHANGE(p.common.nw_det_band_max = p.common.nw_det_band_min),
    CHANGE(p.common.nw_det_band_min = static_cast<std::uint16_t>(p.common.nw_det_band_max + 1)),
    CHANGE(p.common.nw_det_band_max = static_cast<std::uint16_t>(p.common.nw_det_band_min + 61)),
    CHANGE(p.common.nw_start_nbin[0] = 55),
    CHANGE(p.common.nw_start_nbin[2] = 65535),
    CHANGE(p.common.nw_end_nbin_param[1] = 13),
    CHANGE(p.pulse.hop = 192),
    CHANGE(p.pulse.bins = 65),
    CHANGE(p.pulse.ana_pulse.hop = 192),
    CHANGE(p.pulse.ana_pulse.fft = 1024),
    CHANGE(p.pulse.ana_pulse.fnum_out = 65),
    CHANGE(p.pulse.ana_pulse.fnum_base_out = 2),
    CHANGE(p.pulse.syn_pulse.hop = 192),
    CHANGE(p.pulse.syn_pulse.fft = 1024),
    CHANGE(p.pulse.syk_pulse.nbin = 0),
    CHANGE(p.pulse.syk_pulse.nbin = 61),
    CHANGE(p.pulse.syk_pulse.f[16] = 65),
    CHANGE(p.pulse.syk_pulse.f[3] = 2),
    CHANGE(p.pulse.syk_pulse_prm.nbin = 0),
    CHANGE(p.pulse.syk_pulse_prm.nbin = 6),
    CHANGE(p.pulse.syk_pulse_prm.f[3] = 65),
    CHANGE(p.pulse.syk_pulse_prm_ui.nbin = 0),
    CHANGE(p.pulse.syk_pulse_prm_ui.nbin = 6),
    CHANGE(p.pulse.syk_pulse_prm_ui.f[1] = 0),
    CHANGE(p.pulse.nbin_pulse_param_tbl[3] = 17),
    CHANGE(p.pulse.nbin_pulse_param_tbl[1] = 11),
    CHANGE(p.pulse.nbin_pulse_param_ui_tbl[2] = 17),
    CHANGE(p.pulse.nbin_pulse_param_ui_tbl[0] = 7),
    CHANGE(p.pulse.diff_power.nbin = 17),
    CHANGE(p.pulse.diff_power.nbin = -1),
    CHANGE(p.pulse.pwr_pulse.nbin = 15),
    CHANGE(p.pulse.nl_pulse.nbin = 60),
    CHANGE(p.pulse.diff_power.delay_frame = 0),
    CHANGE(p.pulse.diff_power.window_len = 0),
    CHANGE(p.pulse.diff_power.window_len = INT32_MAX),
    CHANGE(p.pulse.diff_power.delay_frame = INT32_MAX),
    CHANGE(p.pulse.diff_power.delay_frame = 257 - p.pulse.diff_power.window_len),
    CHANGE(p.pulse.pulse_sup.bins = 63),
    CHANGE(p.pulse.pulse_sup.pulse_nbin = 17),
    CHANGE(p.pulse.pulse_sup.prm_nbin = 4),
    CHANGE(p.pulse.pulse_sup.ui_nbin = 3),
    CHANGE(p.pulse.pulse_sup.npm_num = 4),
    CHANGE(p.pulse.pulse_sup.npm_band_num[0] = 4),
    CHANGE(p.pulse.pulse_sup.npm_band_num[2] = 4),
    CHANGE(p.pulse.pulse_sup.npm_band[0][2] = 16),
    CHANGE(p.pulse.pulse_sup_delay.block = 64),
    CHANGE(p.pulse.pulse_sup_delay.delay = -1),
    CHANGE(p.pulse.pulse_sup_delay.delay = 8193),
    CHANGE(p.pulse.pulse_sup_add_delay.block = 0),
    CHANGE(p.pulse.pulse_sup_add_delay.delay = INT32_MIN),
    CHANGE(p.pulse.pulse_sup_add_delay.delay = 8193),
    CHANGE(p.pulse.ngen_f_pulse.frame = 65),
    CHANGE(p.pulse.ngen_f_pulse.pulse_nbin = 17),
    CHANGE(p.pulse.ngen_f_pulse.prm_nbin = 4),
};

const std::vector<Change> kHarmless{
    CHANGE(p.head.syk2.f[0] = 0),
    CHANGE(p.head.syk1.f[12] = 300),
    CHANGE(p.head.nbin_param_tbl[3] = p.head.nbin_param_tbl[2]),
    CHANGE(p.head.nbin_param_tbl[12] = 52),
    CHANGE(p.head.ain.stage_num = 6),
    CHANGE(p.head.ain.stage_num = 0),
    CHANGE(p.noise.ana.fnum_base_out = 1),
    CHANGE(p.noise.ana.fnum_out = 0),
    CHANGE(p.noise.nl2_bf.base_freq = 54),
    CHANGE(p.dly_frame = 16),
    CHANGE(p.common.nw_det_band_max = static_cast<std::uint16_t>(p.common.nw_det_band_min + 60)),
    CHANGE(p.common.nw_det_band_max = static_cast<std::uint16_t>(p.common.nw_det_band_min + 1)),
    CHANGE(p.common.nw_start_nbin[0] = 54),
    CHANGE(p.common.nw_end_nbin_param[2] = 12),
    CHANGE(p.pulse.ana_pulse.fnum_base_out = 1),
    CHANGE(p.pulse.nbin_pulse_param_tbl[3] = 12),
    CHANGE(p.pulse.diff_power.delay_frame = 256 - p.pulse.diff_power.window_len),
    CHANGE(p.pulse.pulse_sup.npm_num = 0),
    CHANGE(p.pulse.pulse_sup.npm_num = 3),
    CHANGE(p.pulse.pulse_sup.npm_band[2][2] = 65535),
    CHANGE(p.pulse.pulse_sup.npm_band_num[2] = 3),
    CHANGE(p.pulse.pulse_sup.npm_band[0][2] = 15),
    CHANGE(p.pulse.pulse_sup_delay.delay = 0),
    CHANGE(p.pulse.pulse_sup_add_delay.delay = 8192),
};

#undef CHANGE

TEST(ParamCheck, RefusesWhatLeadsOutsideOfAnArray) {
  for (const Change& change : kHarmful) {
    auto one = std::make_unique<KeyCancelParam>(NrModelParam());
    change.apply(parts_of(*one));
    EXPECT_FALSE(usable(*one)) << change.text;
    EXPECT_TRUE(first_fault(*one)) << change.text;
    auto two = std::make_unique<BeamFormingKeyCancelParam>(usable_beams());
    change.apply(parts_of(*two));
    EXPECT_FALSE(usable(*two)) << change.text;
  }
}

TEST(ParamCheck, TakesEveryLimitItself) {
  for (const Change& change : kHarmless) {
    auto one = std::make_unique<KeyCancelParam>(NrModelParam());
    change.apply(parts_of(*one));
    EXPECT_TRUE(usable(*one)) << change.text << ": " << first_fault(*one).value_or("");
    auto two = std::make_unique<BeamFormingKeyCancelParam>(usable_beams());
    change.apply(parts_of(*two));
    EXPECT_TRUE(usable(*two)) << change.text << ": " << first_fault(*two).value_or("");
  }
}

TEST(ParamCheck, RefusesAnotherBeamformer) {
  for (std::uint16_t FbfHeader::*const field : {&FbfHeader::inputs, &FbfHeader::outputs, &FbfHeader::hop,
                                                &FbfHeader::bins, &FbfHeader::fft, &FbfHeader::partitions}) {
    for (const int change : {-1, 1}) {
      auto param = std::make_unique<BeamFormingKeyCancelParam>(usable_beams());
      param->fbf.*field = static_cast<std::uint16_t>(param->fbf.*field + change);
      EXPECT_FALSE(usable(*param));
    }
  }
}

TEST(ParamCheck, RefusesAMeanOfTheGainOverNoBands) {
  auto param = std::make_unique<BeamFormingKeyCancelParam>(usable_beams());
  param->ns_nr.nbin_avg_g_L = 54;
  EXPECT_TRUE(usable(*param));
  param->ns_nr.nbin_avg_g_L = 55;
  EXPECT_FALSE(usable(*param));
  param->ns_nr.nbin_avg_g_L = 0;
  param->ns_nr.nbin_avg_g_H = 56;
  EXPECT_FALSE(usable(*param));
}

TEST(ParamCheck, RefusesOtherCountsOfSources) {
  for (const std::uint16_t sources : std::initializer_list<std::uint16_t>{0, 1, 3}) {
    auto param = std::make_unique<BeamFormingKeyCancelParam>(usable_beams());
    param->ns_nr.sources = sources;
    EXPECT_FALSE(usable(*param)) << sources;
  }
}

TEST(ParamCheck, SaysWhichRuleIsBroken) {
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  param->pulse.pulse_sup_delay.delay = -1;
  EXPECT_EQ(first_fault(*param), "pulse_sup_delay is not 0 to 8192 floats in blocks of 128");
  param->head.hop = 0;
  EXPECT_EQ(first_fault(*param), "the hop of the noise path is not 192");
}

TEST(ParamCheck, RefusesNumbersThatWouldStay) {
  auto one = std::make_unique<KeyCancelParam>(NrModelParam());
  one->ns_nr.common.vol = std::numeric_limits<float>::quiet_NaN();
  EXPECT_FALSE(usable(*one));
  EXPECT_EQ(first_fault(*one), "ns_nr.vol makes no finite number");
  auto two = std::make_unique<BeamFormingKeyCancelParam>(usable_beams());
  two->filter[0][1][0][0].re = std::numeric_limits<float>::infinity();
  EXPECT_FALSE(usable(*two));
  EXPECT_EQ(first_fault(*two), "fd_fbf_ain_flt[0][1] makes no finite number");
}

TEST(ParamCheck, DoesNotAskForTheVersion) {
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  param->version_major = 7;
  EXPECT_TRUE(usable(*param));
}

}  // namespace
}  // namespace sonivo::classic
