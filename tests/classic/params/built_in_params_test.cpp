#include "classic/built_in_params.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <sstream>
#include <vector>

#include "classic/par_reader.h"
#include "classic/param_check.h"
#include "test_files.h"

namespace sonivo::classic {
namespace {

TEST(BuiltInParams, AreSetNumberTwoOfTheirFirstVersion) {
  const KeyCancelParam& param = NrModelParam();
  EXPECT_EQ(param.paramID, 2);
  EXPECT_EQ(param.version_major, 0);
  EXPECT_EQ(param.version_minor, 8);
  EXPECT_EQ(param.head.hop, 192);
  EXPECT_EQ(param.head.bins, 512);
  EXPECT_EQ(param.head.all_bypass, 0);
}

TEST(BuiltInParams, HaveTheirBands) {
  const CommonHead& head = NrModelParam().head;
  EXPECT_THAT(head.nbin_param_tbl, testing::ElementsAre(0, 4, 8, 12, 16, 20, 24, 29, 33, 40, 45, 52, 55));
  ASSERT_EQ(head.syk1.nbin, 12);
  EXPECT_THAT(std::vector<int>(head.syk1.f, head.syk1.f + 13),
              testing::ElementsAre(0, 4, 8, 12, 16, 24, 32, 47, 62, 96, 131, 256, 512));
}

/// A coarse band and its fine bands cover the same bins.
TEST(BuiltInParams, HaveFineBandsInsideTheirCoarseBands) {
  const CommonHead& head = NrModelParam().head;
  ASSERT_EQ(head.syk2.nbin, 55);
  for (int p = 0; p <= 12; ++p) EXPECT_EQ(head.syk2.f[head.nbin_param_tbl[p]], head.syk1.f[p]) << p;
}

TEST(BuiltInParams, HavePulseBandsInsideTheirGroups) {
  const PulsePath& pulse = NrModelParam().pulse;
  for (int p = 0; p <= pulse.syk_pulse_prm.nbin; ++p) {
    EXPECT_EQ(pulse.syk_pulse.f[pulse.nbin_pulse_param_tbl[p]], pulse.syk_pulse_prm.f[p]) << p;
  }
  for (int p = 0; p <= pulse.syk_pulse_prm_ui.nbin; ++p) {
    EXPECT_EQ(pulse.syk_pulse.f[pulse.nbin_pulse_param_ui_tbl[p]], pulse.syk_pulse_prm_ui.f[p]) << p;
  }
}

TEST(BuiltInParams, AreUsable) { EXPECT_EQ(first_fault(NrModelParam()), std::nullopt); }

TEST(BuiltInParams, AreMadeOnce) { EXPECT_EQ(&NrModelParam(), &NrModelParam()); }

TEST(BuiltInParams, ReduceNoiseAndKeyStrokes) {
  const KeyCancelParam& param = NrModelParam();
  EXPECT_EQ(param.ns_nr.bypass, 0);
  EXPECT_EQ(param.pulse.pulse_sup.bypass, 0);
  for (const float floor : param.ns_nr.common.g_floor_ns) EXPECT_FLOAT_EQ(floor, std::pow(10.0f, -16.0f / 20));
}

/// Coefficients of recursions lie in 0..1, and no value is without a number.
TEST(BuiltInParams, AreFiniteAndStable) {
  const KeyCancelParam& param = NrModelParam();
  const NsNrCommon& common = param.ns_nr.common;
  const PulseSupBlock& sup = param.pulse.pulse_sup;
  std::vector<float> coefficients{common.comp_pwc_up, common.comp_pwc_dn};
  for (const PwrBlock& block : {param.noise.pwr_snd, param.noise.pwr_snd_vd, param.noise.pwr_bf, param.noise.pwr_bf_nl,
                                param.pulse.pwr_pulse}) {
    coefficients.insert(coefficients.end(), {block.PWCup, block.PWCdn});
  }
  for (const auto* array :
       {&common.pwc_g_up_voice, &common.pwc_g_up_noise, &common.pwc_g_dn_voice, &common.pwc_g_dn_noise}) {
    coefficients.insert(coefficients.end(), std::begin(*array), std::end(*array));
  }
  for (const auto* array : {&sup.pwc_g_up, &sup.pwc_g_up_tail, &sup.pwc_g_dn, &sup.pwc_np_dn, &sup.pwc_npm_dn}) {
    coefficients.insert(coefficients.end(), std::begin(*array), std::end(*array));
  }
  for (const float c : coefficients) {
    EXPECT_GE(c, 0.0f);
    EXPECT_LT(c, 1.0f);
  }
  for (const auto* slopes : {&common.gn_nl_slope, &common.avg_g_slope, &sup.avg_g_slope}) {
    for (const float slope : *slopes) EXPECT_TRUE(std::isfinite(slope) && slope > 0);
  }
}

/// Remembers which entries answered.
class Watched final : public ParSource {
 public:
  explicit Watched(std::span<const ParEntry> entries) : ParSource(text_), list_(entries, text_) {}
  std::optional<double> number(const std::string& key) override {
    keys_.insert(key);
    return list_.number(key);
  }
  const std::set<std::string>& keys() const { return keys_; }
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  ParList list_;
  std::set<std::string> keys_;
};

TEST(BuiltInParams, LackNoKeyAndListNoneInVain) {
  Watched source(NrModelEntries());
  KeyCancelParam param{};
  EXPECT_EQ(ReadParams(source, param), 0);
  EXPECT_EQ(source.text(), "");
  param.version_minor = 8;
  EXPECT_EQ(bytes_of(param), bytes_of(NrModelParam()));

  for (std::size_t i = 0; i < NrModelEntries().size(); ++i) {
    std::vector<ParEntry> others(NrModelEntries().begin(), NrModelEntries().end());
    others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
    Watched without(others);
    KeyCancelParam changed{};
    const bool missed = ReadParams(without, changed) != 0 || bytes_of(changed) != bytes_of(NrModelParam());
    EXPECT_TRUE(missed) << NrModelEntries()[i].name;
  }
}

TEST(ParList, PrefersTheClosestName) {
  const std::vector<ParEntry> entries{
      {"a[12]", {7}}, {"a[%d]", {1, 2}}, {"b[%d][%d]", {3}}, {"b[1][%d]", {4, 5}}, {"c", {6}}};
  std::ostringstream messages;
  ParList list(entries, messages);
  EXPECT_EQ(list.number("a[12]"), 7.0);
  EXPECT_EQ(list.number("a[1]"), 2.0);
  EXPECT_EQ(list.number("b[0][2]"), 3.0);
  EXPECT_EQ(list.number("b[1][1]"), 5.0);
  EXPECT_EQ(list.number("c"), 6.0);
  EXPECT_EQ(messages.str(), "");
  EXPECT_EQ(list.number("a[2]"), std::nullopt);
  EXPECT_EQ(list.number("d"), std::nullopt);
  EXPECT_EQ(messages.str(), "a[2] is not in the list\nd is not in the list\n");
}

}  // namespace
}  // namespace sonivo::classic
