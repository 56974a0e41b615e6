#include "classic/par_listing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <sstream>

#include "classic/built_in_params.h"

namespace sonivo::classic {
namespace {

struct Line {
  std::size_t offset = 0;
  std::string value;
};

/// The lines of a listing by name.
template <typename Param>
std::map<std::string, Line> listed(const Param& param) {
  std::ostringstream output;
  list_fields(output, param);
  std::map<std::string, Line> lines;
  std::istringstream input(output.str());
  for (std::string text; std::getline(input, text);) {
    std::istringstream words(text);
    Line line;
    std::string name;
    words >> line.offset >> name >> std::ws;
    std::getline(words, line.value);
    lines.emplace(name, line);
  }
  return lines;
}

void expect_line(const std::map<std::string, Line>& lines, const std::string& name, std::size_t offset,
                 const std::string& value) {
  ASSERT_TRUE(lines.contains(name)) << name;
  EXPECT_EQ(lines.at(name).offset, offset) << name;
  EXPECT_EQ(lines.at(name).value, value) << name;
}

TEST(ParListing, ShowsEachElementWithOffsetNameAndValue) {
  KeyCancelParam param{};
  param.head.nbin_param_tbl[12] = 55;
  param.head.ain.coefficients[5].minus_a2 = -0.25f;
  param.noise.vds.Nef_floor[12] = 1.5f;
  param.ns_nr.common.g_floor_nw[2][11] = 0.1f;
  param.pulse.pulse_sup.npm_band[1][2] = 7;
  param.pulse.pulse_sup_delay.delay = -3;
  param.pulse.ngen_f_pulse.min_nl[59] = 1e-10f;
  param.version_minor = 4;
  const auto lines = listed(param);
  expect_line(lines, "nbin_param_tbl[12]", 30, "55");
  expect_line(lines, "ain.coefficients[5][4]", 964, "-0.25");
  expect_line(lines, "vds.Nef_floor[12]", 6716, "1.5");
  expect_line(lines, "ns_nr.g_floor_nw[2][11]", 7280, "0.100000001");
  expect_line(lines, "pulse_sup.npm_band[1][2]", 15378, "7");
  expect_line(lines, "pulse_sup_delay.delay", 15408, "-3");
  expect_line(lines, "ngen_f_pulse.min_nl[59]", 15796, "1.00000001e-10");
  expect_line(lines, "version_minor", 15804, "4");
}

TEST(ParListing, ShowsTheEndsOfWindowsAndSpectra) {
  auto param = std::make_unique<BeamFormingKeyCancelParam>();
  param->noise.ana.window[0] = 0.5f;
  param->noise.ana.window[1023] = 0.25f;
  param->pulse.syn_pulse.window[127] = 2.0f;
  param->filter[1][0][1][256] = {-1.0f, 0.5f};
  const auto lines = listed(*param);
  expect_line(lines, "ana.window", 988, "1024 values, first 0.5, last 0.25");
  expect_line(lines, "syn_pulse.window", 12716, "128 values, first 0, last 2");
  expect_line(lines, "fd_fbf_ain_flt[1][0].partition[1]", 16180 + 5 * 257 * 8,
              "257 values, first (0, 0), last (-1, 0.5)");
}

TEST(ParListing, LeavesNoByteOut) {
  std::ostringstream output;
  list_fields(output, NrModelParam());
  std::istringstream input(output.str());
  std::size_t expected = 0;  // where the next field lies, when the previous one takes 4 bytes for each value
  for (std::string text; std::getline(input, text);) {
    const std::size_t offset = std::stoul(text);
    EXPECT_TRUE(offset == expected || offset + 2 == expected) << text;
    const std::size_t values = text.find(" values, first ");
    const std::size_t count = values == std::string::npos ? 1 : std::stoul(text.substr(text.rfind(' ', values - 1)));
    expected = offset + 4 * count;
  }
  EXPECT_EQ(expected, sizeof(KeyCancelParam) + 2);
}

}  // namespace
}  // namespace sonivo::classic
