#include "classic/param_numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "classic/built_in_params.h"

namespace sonivo::classic {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct Number {
  std::string name;
  std::function<float&(KeyCancelParam&)> place;
};

#define NUMBER(name, place)                                   \
  Number {                                                    \
    name, [](KeyCancelParam& p) -> float& { return p.place; } \
  }

/// The built-in set has 12, 55, 16, 5 and 4 bands.
const std::vector<Number> kKeyed{
    NUMBER("pwr_snd.Pin_init", noise.pwr_snd.Pin_init),
    NUMBER("pwr_bf_nl.PWCdn", noise.pwr_bf_nl.PWCdn),
    NUMBER("nl2_bf.freq_dh_dn_coef", noise.nl2_bf.freq_dh_dn_coef),
    NUMBER("vds.Nef_floor[11]", noise.vds.Nef_floor[11]),
    NUMBER("vds.Nef_floor[12]", noise.vds.Nef_floor[12]),
    NUMBER("ns_nr.eq[54]", noise.ns_nr_eq[54]),
    NUMBER("ns_nr.g_floor_nw[2][3]", ns_nr.common.g_floor_nw[2][3]),
    NUMBER("ns_nr.vol", ns_nr.common.vol),
    NUMBER("pulse_sup.g_floor[0]", pulse.pulse_sup.g_floor[0]),
    NUMBER("pulse_sup_add.gn_th", pulse.pulse_sup_add_gn_th),
    NUMBER("ngen_f_pulse.min_nl[15]", pulse.ngen_f_pulse.min_nl[15]),
};

TEST(ParamNumbers, NamesTheKeyThatMakesNone) {
  for (const Number& number : kKeyed) {
    for (const float value : {kNaN, kInfinity, -kInfinity}) {
      auto param = std::make_unique<KeyCancelParam>(NrModelParam());
      number.place(*param) = value;
      EXPECT_EQ(harmful_number(*param), number.name + " makes no finite number");
    }
  }
}

TEST(ParamNumbers, NamesTheKeyWhoseNumberIsAbsurd) {
  constexpr float k200Db = 1e10f;
  for (const Number& number : kKeyed) {
    if (number.name == "pwr_bf_nl.PWCdn") continue;  // a recursion that grows from 1 on
    for (const float sign : {-1.0f, 1.0f}) {
      auto param = std::make_unique<KeyCancelParam>(NrModelParam());
      number.place(*param) = sign * k200Db;
      EXPECT_EQ(harmful_number(*param), std::nullopt) << number.name;
      number.place(*param) = std::nextafter(sign * k200Db, sign * kInfinity);
      EXPECT_EQ(harmful_number(*param), number.name + " makes a number beyond 1e10");
    }
  }
}

TEST(ParamNumbers, SaysWhichComputedOneIsAbsurd) {
  const auto fault = [](auto&& change) {
    auto param = std::make_unique<BeamFormingKeyCancelParam>();
    change(*param);
    return harmful_number(*param);
  };
  EXPECT_EQ(fault([](auto& p) {
              p.head.syk1.nbin = 1;
              p.head.syk1.inv_width[0] = 1.5f;
            }),
            "a width of syk1 is less than a bin");
  EXPECT_EQ(fault([](auto& p) {
              p.noise.ana.fft = kFft;
              p.noise.ana.window[1023] = 2e10f;
            }),
            "a window of ana is beyond 1e10");
  EXPECT_EQ(fault([](auto& p) {
              p.head.ain.stage_num = 1;
              p.head.ain.coefficients[0].b0 = -2e10f;
            }),
            "the filter of ain.Q[0] and ain.f0[0] makes a number beyond 1e10");
  EXPECT_EQ(fault([](auto& p) { p.filter[0][1][0][3].re = 2e10f; }), "fd_fbf_ain_flt[0][1] makes a number beyond 1e10");
}

const std::vector<Number> kComputed{
    NUMBER("a width of syk1 is not finite", head.syk1.inv_width[11]),
    NUMBER("a width of syk2 is not finite", head.syk2.inv_width[0]),
    NUMBER("a width of syk_pulse is not finite", pulse.syk_pulse.inv_width[15]),
    NUMBER("a window of ana is not finite", noise.ana.window[1023]),
    NUMBER("a window of ana is not finite", noise.syn.window[383]),
    NUMBER("a window of ana_pulse is not finite", pulse.ana_pulse.window[127]),
    NUMBER("a window of ana_pulse is not finite", pulse.syn_pulse.window[127]),
    NUMBER("a slope of ns_nr.gn_nl_thi1 to ns_nr.gn_nl_tho2 is not finite", ns_nr.common.gn_nl_slope[0]),
    NUMBER("a slope of ns_nr.avg_g_thi1 to ns_nr.avg_g_tho2 is not finite", ns_nr.common.avg_g_slope[1]),
    NUMBER("a slope of pulse_sup.avg_g_thi1 to pulse_sup.avg_g_tho2 is not finite", pulse.pulse_sup.avg_g_slope[2]),
};

TEST(ParamNumbers, SaysWhichComputedOneIsNotFinite) {
  for (const Number& number : kComputed) {
    auto param = std::make_unique<KeyCancelParam>(NrModelParam());
    number.place(*param) = kNaN;
    EXPECT_EQ(harmful_number(*param), number.name);
  }
}

TEST(ParamNumbers, LetsBeWhatNoChainLooksAt) {
  const std::vector<Number> unread{
      NUMBER("", head.syk1.inv_width[12]),     NUMBER("", head.syk2.inv_width[55]),
      NUMBER("", noise.ns_nr_eq[55]),          NUMBER("", pulse.ana_pulse.window[128]),
      NUMBER("", pulse.syn_pulse.window[128]), NUMBER("", pulse.ngen_f_pulse.min_nl[16]),
      NUMBER("", pulse.ngen_f_pulse.eq[5]),
  };
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  for (const Number& number : unread) number.place(*param) = kNaN;
  EXPECT_EQ(harmful_number(*param), std::nullopt);
}

#undef NUMBER

TEST(ParamNumbers, LetsASegmentThatIsEmptyHaveAnySlope) {
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  NsNrCommon& ns_nr = param->ns_nr.common;
  ns_nr.avg_g_thi1 = 0;
  ns_nr.avg_g_slope[0] = kNaN;
  EXPECT_EQ(harmful_number(*param), std::nullopt);
  ns_nr.avg_g_thi2 = 0;
  ns_nr.avg_g_slope[1] = kInfinity;
  EXPECT_EQ(harmful_number(*param), std::nullopt);
  ns_nr.avg_g_slope[2] = kInfinity;
  EXPECT_NE(harmful_number(*param), std::nullopt);
}

TEST(ParamNumbers, RefusesARecursionThatGrows) {
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  float& coefficient = param->noise.pwr_bf.PWCup;
  for (const float bounded : {-1.0f, 0.0f, 1.0f}) {
    coefficient = bounded;
    EXPECT_EQ(harmful_number(*param), std::nullopt) << bounded;
  }
  for (const float growing : {std::nextafter(-1.0f, -2.0f), std::nextafter(1.0f, 2.0f)}) {
    coefficient = growing;
    EXPECT_EQ(harmful_number(*param), "pwr_bf.PWCup is less than half a frame") << growing;
  }
}

TEST(ParamNumbers, LooksAtTheInputFiltersThatAreInUse) {
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  AinBlock& ain = param->head.ain;
  ain.stage_num = 2;
  ain.Q[2] = kNaN;
  ain.coefficients[2] = {kNaN, 0, 0, 0, 0};
  EXPECT_EQ(harmful_number(*param), std::nullopt);
  ain.Q[1] = kNaN;
  EXPECT_EQ(harmful_number(*param), "ain.Q[1] makes no finite number");
  ain.Q[1] = 0;
  ain.coefficients[1].b2 = kInfinity;
  EXPECT_EQ(harmful_number(*param), "the filter of ain.Q[1] and ain.f0[1] is not finite");
}

TEST(ParamNumbers, RefusesAFilterWithAPoleOutsideOfTheUnitCircle) {
  auto param = std::make_unique<KeyCancelParam>(NrModelParam());
  AinBlock& ain = param->head.ain;
  ain.stage_num = 1;
  const auto fault = [&](float a1, float a2) {
    ain.coefficients[0] = {1, 0, 0, -a1, -a2};
    return harmful_number(*param);
  };
  // Poles p and q: a1 = -(p + q), a2 = p q.
  EXPECT_EQ(fault(-1.5f, 0.5625f), std::nullopt);  // 0.75 twice
  EXPECT_EQ(fault(-2.0f, 1.0f), std::nullopt);     // 1 twice
  EXPECT_EQ(fault(0.0f, 1.0f), std::nullopt);      // j and -j
  const std::string unstable = "the filter of ain.Q[0] and ain.f0[0] is not stable";
  EXPECT_EQ(fault(-2.5f, 1.5625f), unstable);  // 1.25 twice
  EXPECT_EQ(fault(0.0f, 1.5625f), unstable);   // 1.25 j and -1.25 j
  EXPECT_EQ(fault(-1.75f, 0.625f), unstable);  // 1.25 and 0.5
  EXPECT_EQ(fault(1.75f, 0.625f), unstable);   // -1.25 and -0.5
  EXPECT_EQ(fault(0.75f, -0.625f), unstable);  // 0.5 and -1.25
}

TEST(ParamNumbers, NamesABeamFilterThatHasNone) {
  auto param = std::make_unique<BeamFormingKeyCancelParam>();
  EXPECT_EQ(harmful_number(*param), std::nullopt);
  param->filter[1][0][1][256].im = kNaN;
  EXPECT_EQ(harmful_number(*param), "fd_fbf_ain_flt[1][0] makes no finite number");
  param->ns_nr.noise_mix_w[1] = kInfinity;
  EXPECT_EQ(harmful_number(*param), "ns_nr.noise_mix_w[1] makes no finite number");
}

}  // namespace
}  // namespace sonivo::classic
