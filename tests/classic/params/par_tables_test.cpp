#include "classic/par_tables.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace sonivo::classic {
namespace {

/// Where each field of a blob starts, by its full name.
template <typename Param>
std::map<std::string, std::size_t> offsets() {
  std::map<std::string, std::size_t> all;
  for (const BlockPlace& block : layout(Param{})) {
    for (const Field& field : block.fields)
      all.emplace(std::string(block.prefix) + field.name, block.offset + field.offset);
  }
  return all;
}

template <typename Param>
void expect_no_gap() {
  std::size_t end = 0;
  for (const BlockPlace& block : layout(Param{})) {
    EXPECT_EQ(block.offset, end) << block.prefix;
    for (const Field& field : block.fields) {
      EXPECT_EQ(block.offset + field.offset, end) << block.prefix << field.name;
      end += field.size();
    }
  }
  EXPECT_EQ(end, sizeof(Param));
}

TEST(ParTables, CoverEveryByteOnce) {
  expect_no_gap<KeyCancelParam>();
  expect_no_gap<BeamFormingKeyCancelParam>();
}

TEST(ParTables, NameTheFieldsOfTheKeyCancelRecord) {
  using P = KeyCancelParam;
  const auto at = offsets<P>();
  const std::size_t noise = offsetof(P, noise);
  const std::size_t ns_nr = offsetof(P, ns_nr);
  const std::size_t common = ns_nr + offsetof(NsNrBlock, common);
  const std::size_t pulse = offsetof(P, pulse);
  const std::size_t sup = pulse + offsetof(PulsePath, pulse_sup);
  EXPECT_EQ(at.at("all_bypass"), offsetof(CommonHead, all_bypass));
  EXPECT_EQ(at.at("syk2.inv_width[%d]"), offsetof(CommonHead, syk2) + offsetof(BandTable, inv_width));
  EXPECT_EQ(at.at("ain.coefficients[%d][%%d]"), offsetof(CommonHead, ain) + offsetof(AinBlock, coefficients));
  EXPECT_EQ(at.at("ana.fnum_out"), noise + offsetof(NoisePath, ana) + offsetof(AnaBlock, fnum_out));
  EXPECT_EQ(at.at("vds.Nef_floor[12]"), noise + offsetof(NoisePath, vds) + offsetof(VdsBlock, Nef_floor) + 48);
  EXPECT_EQ(at.at("vds.dnc_fb"), noise + offsetof(NoisePath, vds) + offsetof(VdsBlock, dnc_fb));
  EXPECT_EQ(at.at("nl2_bf.freq_dh_up_coef"), noise + offsetof(NoisePath, nl2_bf) + offsetof(Nl2Block, freq_dh_up_coef));
  EXPECT_EQ(at.at("ns_nr.eq[%d]"), noise + offsetof(NoisePath, ns_nr_eq));
  EXPECT_EQ(at.at("ns_nr.dly_frame"), ns_nr + offsetof(NsNrBlock, dly_frame));
  EXPECT_EQ(at.at("ns_nr.nw_ns_sub_coef[%d][%%d]"), common + offsetof(NsNrCommon, nw_ns_sub_coef));
  EXPECT_EQ(at.at("ns_nr.avg_g_slope[%d]"), common + offsetof(NsNrCommon, avg_g_slope));
  EXPECT_EQ(at.at("ns_nr.vad_det_weight_off[%d]"), common + offsetof(NsNrCommon, vad_det_weight_off));
  EXPECT_EQ(at.at("ns_nr.vol"), common + offsetof(NsNrCommon, vol));
  EXPECT_EQ(at.at("nbin_pulse_param_ui_tbl[%d]"), pulse + offsetof(PulsePath, nbin_pulse_param_ui_tbl));
  EXPECT_EQ(at.at("diff_power.window_len"),
            pulse + offsetof(PulsePath, diff_power) + offsetof(DiffPowerBlock, window_len));
  EXPECT_EQ(at.at("pulse_sup.ui_nbin"), sup + offsetof(PulseSupBlock, ui_nbin));
  EXPECT_EQ(at.at("pulse_sup.npm_band[%d][%%d]"), sup + offsetof(PulseSupBlock, npm_band));
  EXPECT_EQ(at.at("pulse_sup.det_keep_npm_num[%d]"), sup + offsetof(PulseSupBlock, det_keep_npm_num));
  EXPECT_EQ(at.at("pulse_sup_add.gn_th"), pulse + offsetof(PulsePath, pulse_sup_add_gn_th));
  EXPECT_EQ(at.at("ngen_f_pulse.min_nl[%d]"), pulse + offsetof(PulsePath, ngen_f_pulse) + offsetof(NgenBlock, min_nl));
  EXPECT_EQ(at.at("paramID"), offsetof(P, paramID));
  EXPECT_EQ(at.at("version_minor"), offsetof(P, version_minor));
}

TEST(ParTables, NameTheFieldsOfTheBeamFormingRecord) {
  using P = BeamFormingKeyCancelParam;
  const auto at = offsets<P>();
  const std::size_t ns_nr = offsetof(P, ns_nr);
  EXPECT_EQ(at.at("fbf.partitions"), offsetof(P, fbf) + offsetof(FbfHeader, partitions));
  EXPECT_EQ(at.at("ns_nr.noise_mix_w[%d]"), ns_nr + offsetof(NsNrBfBlock, noise_mix_w));
  EXPECT_EQ(at.at("ns_nr.nn_mgn_noise"), ns_nr + offsetof(NsNrBfBlock, nn_mgn_noise));
  EXPECT_EQ(at.at("ns_nr.vol"), ns_nr + offsetof(NsNrBfBlock, common) + offsetof(NsNrCommon, vol));
  EXPECT_EQ(at.at("ns_nr.nbin_avg_g_H"), ns_nr + offsetof(NsNrBfBlock, nbin_avg_g_H));
  EXPECT_EQ(at.at("fd_fbf_ain_flt[0][0].partition[%d][%%d]"), offsetof(P, filter));
  EXPECT_EQ(at.at("fd_fbf_ain_flt[1][0].partition[%d][%%d]"), offsetof(P, filter) + sizeof(P::filter) / 2);
  EXPECT_EQ(at.at("paramID"), offsetof(P, paramID));
}

}  // namespace
}  // namespace sonivo::classic
