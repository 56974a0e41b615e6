#include "classic/par_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <sstream>

#include "classic/param_check.h"
#include "reference_blob.h"
#include "test_files.h"

namespace sonivo::classic {
namespace {

using reference::Blob;
using reference::Kind;
using reference::Shape;

constexpr char kUntouched = 0x5A;

class ParReader : public testing::Test {
 protected:
  std::string path() const { return folder_ / "tuning.par"; }

  template <typename Param>
  int read(const std::string& text, Param& param) {
    write_file(path(), text);
    messages_.str("");
    ParFile file(path(), messages_);
    return ReadParams(file, param);
  }

  void write_filters(const Blob& blob) const {
    for (std::size_t o = 0; o < 2; ++o) {
      for (std::size_t i = 0; i < 2; ++i) {
        const auto& taps = blob.taps()[o][i];
        write_file(folder_ / ("flt" + std::to_string(o) + std::to_string(i) + ".bin"),
                   {reinterpret_cast<const char*>(taps.data()), taps.size() * sizeof taps[0]});
      }
    }
  }

  std::string messages() const { return messages_.str(); }

  const TemporaryFolder folder_;
  std::ostringstream messages_;
};

/// The lines without those that begin with one of the texts, and with others instead.
std::string replaced(const Blob& blob, const std::vector<std::string>& removed, const std::string& added = "") {
  std::string text = added;
  for (const std::string& line : blob.lines()) {
    const bool gone =
        std::any_of(removed.begin(), removed.end(), [&](const auto& key) { return line.starts_with(key); });
    if (!gone) text += line + "\n";
  }
  return text;
}

void expect_same_bytes(const std::string& read, const std::string& expected, std::size_t end) {
  ASSERT_GE(read.size(), end);
  ASSERT_GE(expected.size(), end);
  for (std::size_t i = 0; i < end; ++i) ASSERT_EQ(read[i], expected[i]) << "at byte " << i;
}

const std::vector<Shape> kShapes{
    {},
    {.coarse = 1, .fine = 1, .pulse = 1, .prm = 1, .ui = 1, .stages = 0},
    {.coarse = 7, .fine = 60, .pulse = 60, .prm = 5, .ui = 5, .stages = 2},
    {.coarse = 12, .fine = 33, .pulse = 20, .prm = 4, .ui = 1, .stages = 3},
};

TEST_F(ParReader, FillsAKeyCancelBlobByteForByte) {
  unsigned seed = 1;
  for (const Shape& shape : kShapes) {
    for (int variant = 0; variant < 4; ++variant) {
      const Blob blob(Kind::key_cancel, shape, seed++, kUntouched);
      ASSERT_EQ(blob.bytes().size(), sizeof(KeyCancelParam));
      KeyCancelParam param;
      std::memset(&param, kUntouched, sizeof param);
      EXPECT_EQ(read(blob.text(), param), 0);
      EXPECT_EQ(messages(), "");
      expect_same_bytes(bytes_of(param), blob.bytes(), sizeof param);
    }
  }
}

TEST_F(ParReader, FillsABeamFormingBlobByteForByteFromZero) {
  unsigned seed = 100;
  for (const Shape& shape : kShapes) {
    const Blob blob(Kind::beam_forming, shape, seed++, '\0');
    ASSERT_EQ(blob.bytes().size(), sizeof(BeamFormingKeyCancelParam));
    write_filters(blob);
    BeamFormingKeyCancelParam param;
    std::memset(&param, kUntouched, sizeof param);
    EXPECT_EQ(read(blob.text(), param), 0);
    EXPECT_EQ(messages(), "");
    const std::string bytes = bytes_of(param);
    const std::size_t filters = offsetof(BeamFormingKeyCancelParam, filter);
    const std::size_t tail = offsetof(BeamFormingKeyCancelParam, paramID);
    expect_same_bytes(bytes, blob.bytes(), filters);
    EXPECT_EQ(bytes.substr(tail), blob.bytes().substr(tail));

    // Spectra of taps up to 1 are sums of up to 192 of them: 1e-5 is an ulp of the largest.
    std::vector<float> expected((tail - filters) / sizeof(float));
    std::memcpy(expected.data(), blob.bytes().data() + filters, tail - filters);
    const float* const spectra = &param.filter[0][0][0][0].re;
    for (std::size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(spectra[i], expected[i], 1e-5f) << i;
  }
}

TEST_F(ParReader, StoresThePartitionWithTheLaterTapsFirst) {
  const Blob blob(Kind::beam_forming, {}, 5, '\0');
  write_filters(blob);
  std::vector<double> taps(384, 0.0);
  taps[0] = 1;
  taps[192] = 0.25;
  write_file(folder_ / "flt01.bin", {reinterpret_cast<const char*>(taps.data()), 3072});
  BeamFormingKeyCancelParam param;
  ASSERT_EQ(read(blob.text(), param), 0);
  for (std::size_t k = 0; k < kBeamBins; ++k) {
    EXPECT_EQ(param.filter[0][1][0][k].re, 0.25f);
    EXPECT_EQ(param.filter[0][1][0][k].im, 0.0f);
    EXPECT_EQ(param.filter[0][1][1][k].re, 1.0f);
    EXPECT_EQ(param.filter[0][1][1][k].im, 0.0f);
  }
}

TEST_F(ParReader, TurnsADelayedTapByANegativePhase) {
  const Blob blob(Kind::beam_forming, {}, 5, '\0');
  write_filters(blob);
  std::vector<double> taps(384, 0.0);
  taps[1] = 1;
  write_file(folder_ / "flt10.bin", {reinterpret_cast<const char*>(taps.data()), 3072});
  BeamFormingKeyCancelParam param;
  ASSERT_EQ(read(blob.text(), param), 0);
  EXPECT_NEAR(param.filter[1][0][1][128].re, 0.0f, 1e-7f);  // a quarter turn at a quarter of the rate
  EXPECT_EQ(param.filter[1][0][1][128].im, -1.0f);
}

TEST_F(ParReader, NamesEveryMissingKey) {
  const Blob blob(Kind::key_cancel, {.coarse = 3, .fine = 7, .pulse = 5, .prm = 2, .ui = 3, .stages = 2}, 11, '\0');
  constexpr std::size_t kParts = 5;  // each key is missing in one of the files
  for (std::size_t part = 0; part < kParts; ++part) {
    std::set<std::string> missing;
    std::string text;
    for (std::size_t i = 0; i < blob.lines().size(); ++i) {
      const std::string& line = blob.lines()[i];
      const std::string key = line.substr(0, line.find_first_of(" \t=,"));
      const bool decides_how_much_is_read = key.ends_with("nbin") || key.ends_with("stage_num");
      if (i % kParts == part && !decides_how_much_is_read) {
        missing.insert(key + " is not include par file");
      } else {
        text += line + "\n";
      }
    }
    KeyCancelParam param{};
    EXPECT_EQ(static_cast<std::size_t>(read(text, param)), missing.size());
    std::set<std::string> named;
    std::istringstream lines(messages());
    for (std::string line; std::getline(lines, line);) named.insert(line);
    EXPECT_EQ(named, missing);
  }
}

TEST_F(ParReader, CountsEveryKeyOfAnEmptyFile) {
  KeyCancelParam param{};
  const Blob blob(Kind::key_cancel, {.coarse = 0, .fine = 1, .pulse = 1, .prm = 0, .ui = 0, .stages = 0}, 1, '\0');
  // With no bands the tables have one edge each; the drawn set has a fine and a pulse band more.
  const int errors = read("", param);
  std::size_t named = 0;
  std::istringstream lines(messages());
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(line.ends_with(" is not include par file")) << line;
    ++named;
  }
  EXPECT_EQ(static_cast<std::size_t>(errors), named);
  constexpr std::size_t kPerFineBand = 2;   // syk2.f, ns_nr.eq
  constexpr std::size_t kPerPulseBand = 2;  // syk_pulse.f, ngen_f_pulse.min_nl
  EXPECT_EQ(named, blob.lines().size() - kPerFineBand - kPerPulseBand);
}

TEST_F(ParReader, KeepsTheFieldOfAMalformedKey) {
  const Blob blob(Kind::key_cancel, {}, 12, kUntouched);
  KeyCancelParam param{};
  param.noise.pwr_snd.PWCup = 3;
  EXPECT_EQ(read(replaced(blob, {"pwr_snd.PWCup"}, "pwr_snd.PWCup = fast\n"), param), 1);
  EXPECT_EQ(messages(), "pwr_snd.PWCup = fast is bad format\n");
  EXPECT_EQ(param.noise.pwr_snd.PWCup, 3.0f);
}

/// Each key is named in the messages, in this order.
void expect_named_in_order(const std::string& messages, const std::vector<std::string>& keys) {
  std::size_t previous = 0;
  for (const std::string& key : keys) {
    const std::size_t place = ("\n" + messages).find("\n" + key + " is not include par file\n");
    ASSERT_NE(place, std::string::npos) << key;
    EXPECT_GE(place, previous) << key;
    previous = place;
  }
}

TEST_F(ParReader, ReadsInOrderOfDependencies) {
  KeyCancelParam param{};
  read("", param);
  expect_named_in_order(messages(), {"all_bypass",
                                     "syk1.nbin",
                                     "syk2.nbin",
                                     "nbin_param_tbl[0]",
                                     "ain.stage_num",
                                     "ana.fnum_out",
                                     "pwr_snd.Pin_init",
                                     "nl_snd.init_wait",
                                     "pwr_snd_vd.Pin_init",
                                     "vds.ID",
                                     "pwr_bf.Pin_init",
                                     "pwr_bf_nl.Pin_init",
                                     "nl_bf.init_wait",
                                     "nl2_bf.init_wait",
                                     "ns_nr.bypass",
                                     "paramID",
                                     "ana_pulse.fnum_out",
                                     "syk_pulse.nbin",
                                     "syk_pulse_prm.nbin",
                                     "syk_pulse_prm_ui.nbin",
                                     "nbin_pulse_param_tbl[0]",
                                     "nbin_pulse_param_ui_tbl[0]",
                                     "diff_power.delay_frame",
                                     "pulse_sup.bypass",
                                     "pulse_sup_delay.delay",
                                     "pulse_sup_add_delay.delay",
                                     "pulse_sup_add.gn_th",
                                     "pwr_pulse.Pin_init",
                                     "nl_pulse.init_wait",
                                     "ngen_f_pulse.init_wait"});
}

TEST_F(ParReader, ReadsTheFiltersBehindTheStagesAndTheBandsOfTheMeanBehindTheVolume) {
  BeamFormingKeyCancelParam param;
  read("", param);
  expect_named_in_order(messages(), {"all_bypass",
                                     "syk1.nbin",
                                     "syk2.nbin",
                                     "nbin_param_tbl[0]",
                                     "ain.stage_num",
                                     "fd_fbf_ain_flt[0][0]",
                                     "fd_fbf_ain_flt[0][1]",
                                     "fd_fbf_ain_flt[1][0]",
                                     "fd_fbf_ain_flt[1][1]",
                                     "ana.fnum_base_out",
                                     "ana.fnum_out",
                                     "pwr_snd.Pin_init",
                                     "nl2_bf.init_wait",
                                     "ns_nr.bypass",
                                     "ns_nr.ID",
                                     "ns_nr.noise_mix_w[0]",
                                     "ns_nr.noise_mix_w[1]",
                                     "ns_nr.nn_mgn_voice",
                                     "ns_nr.nn_mgn_noise",
                                     "ns_nr.dly_frame",
                                     "ns_nr.nw_det_band_min",
                                     "ns_nr.vol",
                                     "ns_nr.nbin_avg_g_L",
                                     "ns_nr.nbin_avg_g_H",
                                     "paramID",
                                     "ana_pulse.fnum_base_out",
                                     "syk_pulse.nbin",
                                     "pulse_sup.bypass",
                                     "ngen_f_pulse.init_wait"});
}

TEST_F(ParReader, NamesFiltersThatAreMissing) {
  const Blob blob(Kind::beam_forming, {}, 13, '\0');
  write_filters(blob);
  std::filesystem::remove(folder_ / "flt10.bin");
  write_file(folder_ / "flt11.bin", "short");
  BeamFormingKeyCancelParam param;
  EXPECT_EQ(read(replaced(blob, {"fd_fbf_ain_flt[0][1]"}), param), 3);
  EXPECT_EQ(messages(),
            "fd_fbf_ain_flt[0][1] is not include par file\n"
            "fd_fbf_ain_flt[1][0] is bad value\ncan not open " +
                (folder_ / "flt10.bin") + "\n" + "fd_fbf_ain_flt[1][1] is bad value\ncan not read " +
                (folder_ / "flt11.bin") + "\n");
}

TEST_F(ParReader, RefusesDiffPowerWithoutDelayOrWindow) {
  const Blob blob(Kind::key_cancel, {}, 14, '\0');
  KeyCancelParam param{};
  EXPECT_EQ(read(replaced(blob, {"diff_power."}, "diff_power.delay_frame = 0\ndiff_power.window_len = -2\n"), param),
            2);
  EXPECT_EQ(messages(), "error: diff_power.delay_frame is less than 1\nerror: diff_power.window_len is less than 1\n");
  EXPECT_EQ(param.pulse.diff_power.delay_frame, 0);
  EXPECT_EQ(param.pulse.diff_power.window_len, 0);
}

TEST_F(ParReader, LeavesTheRestOfThePulseSuppressorAtTooManyGroups) {
  const Blob blob(Kind::key_cancel, {}, 15, kUntouched);
  KeyCancelParam param;
  std::memset(&param, kUntouched, sizeof param);
  EXPECT_EQ(
      read(replaced(blob, {"pulse_sup.npm_num", "pulse_sup.npm_band", "pulse_sup.det_keep"}, "pulse_sup.npm_num = 4\n"),
           param),
      0);
  EXPECT_EQ(messages(), "npm_num must be less than NS_NR_MAX_NPM_NUM");
  const std::size_t block = offsetof(KeyCancelParam, pulse) + offsetof(PulsePath, pulse_sup);
  const std::size_t npm_num = block + offsetof(PulseSupBlock, npm_num);
  const std::size_t behind = npm_num + sizeof param.pulse.pulse_sup.npm_num;
  const std::size_t end = block + sizeof(PulseSupBlock);
  const std::string bytes = bytes_of(param);
  EXPECT_EQ(bytes.substr(0, npm_num), blob.bytes().substr(0, npm_num));
  EXPECT_EQ(param.pulse.pulse_sup.npm_num, 4);
  EXPECT_EQ(bytes.substr(behind, end - behind), std::string(end - behind, kUntouched));
  EXPECT_EQ(bytes.substr(end), blob.bytes().substr(end));
}

TEST_F(ParReader, LeavesTheRestOfThePulseSuppressorAtTooManyBandsInAGroup) {
  const Blob blob(Kind::key_cancel, {}, 16, kUntouched);
  KeyCancelParam param;
  std::memset(&param, kUntouched, sizeof param);
  EXPECT_EQ(read(replaced(blob, {"pulse_sup.npm_band", "pulse_sup.det_keep"},
                          "pulse_sup.npm_band_num[0] = 3\npulse_sup.npm_band_num[1] = 4\n"),
                 param),
            0);
  EXPECT_EQ(messages(), "npm_band_num must be less than NS_NR_MAX_NPM_BAND_NUM");
  EXPECT_EQ(param.pulse.pulse_sup.npm_band_num[0], 3);
  EXPECT_EQ(param.pulse.pulse_sup.npm_band_num[1], 4);
  EXPECT_EQ(param.pulse.pulse_sup.npm_band_num[2], 0x5A5A);
  EXPECT_EQ(param.pulse.pulse_sup.npm_band[0][0], 0x5A5A);
  EXPECT_EQ(param.pulse.pulse_sup.det_keep_npm_num[2], 0x5A5A);
}

TEST_F(ParReader, CountsTheErrorsBeforeABlockEnded) {
  const Blob blob(Kind::key_cancel, {}, 17, '\0');
  KeyCancelParam param{};
  EXPECT_EQ(read(replaced(blob, {"pulse_sup.npm_num", "pulse_sup.g_floor[1]"}, "pulse_sup.npm_num = 4\n"), param), 1);
  EXPECT_EQ(messages(), "pulse_sup.g_floor[1] is not include par file\nnpm_num must be less than NS_NR_MAX_NPM_NUM");
}

TEST_F(ParReader, MakesNothingUsableOfABlockThatEndedAtItsGroups) {
  const Blob blob(Kind::key_cancel, {}, 21, '\0');
  for (const std::string& line :
       {std::string("pulse_sup.npm_num = 4\n"), std::string("pulse_sup.npm_num = 65535\n"),
        std::string("pulse_sup.npm_band_num[0] = 4\n"), std::string("pulse_sup.npm_band_num[2] = 65535\n")}) {
    for (const std::string& groups : {std::string(), std::string("pulse_sup.npm_num = 1\n")}) {
      KeyCancelParam param{};
      EXPECT_EQ(read(line + groups + blob.text(), param), 0);
      EXPECT_EQ(first_fault(param), "pulse_sup has more than 3 groups, more than 3 bands in one or a band outside")
          << line;
    }
  }
}

struct Capacity {
  std::string key;
  std::string message;
  int highest;
};

/// Reads into a record full of large numbers, so that a count taken from it would lead far outside.
TEST_F(ParReader, NeverFillsMoreThanARecordHolds) {
  const Blob blob(Kind::key_cancel, {}, 18, '\0');
  for (const auto& [key, message, highest] :
       {Capacity{"syk1.nbin", "error: syk1.nbin is more than 12\n", 12},
        Capacity{"syk2.nbin", "error: syk2.nbin is more than 60\n", 60},
        Capacity{"ain.stage_num", "error: ain.stage_num is more than 6\n", 6},
        Capacity{"syk_pulse.nbin", "error: syk_pulse.nbin is more than 60\n", 60},
        Capacity{"syk_pulse_prm.nbin", "error: syk_pulse_prm.nbin is more than 5\n", 5},
        Capacity{"syk_pulse_prm_ui.nbin", "error: syk_pulse_prm_ui.nbin is more than 5\n", 5}}) {
    for (const std::string& count : {std::to_string(highest + 1), std::string("65535"), std::string()}) {
      struct {
        KeyCancelParam param;
        std::array<std::uint8_t, 1 << 18> behind;
      } record;
      std::memset(&record, 0xFF, sizeof record);
      EXPECT_GE(read(replaced(blob, {key}, count.empty() ? "" : key + " = " + count + "\n"), record.param), 1);
      const std::string said = count.empty() ? key + " is not include par file\n" : message;
      EXPECT_NE(messages().find(said), std::string::npos) << messages();
      for (const std::uint8_t byte : record.behind) ASSERT_EQ(byte, 0xFF);
    }
    KeyCancelParam param{};
    read(replaced(blob, {key}, key + " = " + std::to_string(highest) + "\n"), param);
    EXPECT_EQ(messages().find(message), std::string::npos);
  }
}

TEST_F(ParReader, SkipsTheRestOfABlockWithTooManyBands) {
  const Blob blob(Kind::key_cancel, {}, 19, '\0');
  KeyCancelParam param{};
  EXPECT_EQ(read(replaced(blob, {"syk_pulse_prm_ui.nbin"}, "syk_pulse_prm_ui.nbin = 6\n"), param), 1);
  EXPECT_EQ(bytes_of(param.pulse.syk_pulse_prm_ui), std::string(sizeof(BandTable), '\0'));
  EXPECT_EQ(param.pulse.pulse_sup.ui_nbin, 0);
}

TEST_F(ParReader, MakesAParameterSetOnlyFromACompleteFile) {
  const Blob blob(Kind::key_cancel, {}, 20, '\0');
  write_file(path(), blob.text());
  std::ostringstream messages;
  const auto param = MakeParams<KeyCancelParam>(path(), messages);
  ASSERT_NE(param, nullptr);
  EXPECT_EQ(bytes_of(*param), blob.bytes());
  EXPECT_EQ(messages.str(), "");

  write_file(path(), replaced(blob, {"paramID"}));
  EXPECT_EQ(MakeParams<KeyCancelParam>(path(), messages), nullptr);
  EXPECT_EQ(messages.str(), "paramID is not include par file\nparametre error\n");
}

TEST_F(ParReader, MakesABeamFormingSetOnlyWithAllFilters) {
  const Blob blob(Kind::beam_forming, {}, 22, '\0');
  write_file(path(), blob.text());
  write_filters(blob);
  std::ostringstream messages;
  EXPECT_NE(MakeParams<BeamFormingKeyCancelParam>(path(), messages), nullptr);
  EXPECT_EQ(messages.str(), "");

  std::filesystem::remove(folder_ / "flt10.bin");
  EXPECT_EQ(MakeParams<BeamFormingKeyCancelParam>(path(), messages), nullptr);
  EXPECT_EQ(messages.str(),
            "fd_fbf_ain_flt[1][0] is bad value\ncan not open " + (folder_ / "flt10.bin") + "\nparametre error\n");
}

TEST_F(ParReader, FindsTheFiltersOfAParFileInTheCurrentFolder) {
  const Blob blob(Kind::beam_forming, {}, 23, '\0');
  write_file(path(), blob.text());
  write_filters(blob);
  const auto there = MakeParams<BeamFormingKeyCancelParam>(path());
  ASSERT_NE(there, nullptr);

  const std::filesystem::path elsewhere = std::filesystem::current_path();
  std::filesystem::current_path(folder_ / "");
  const auto here = MakeParams<BeamFormingKeyCancelParam>("tuning.par");
  std::filesystem::current_path(elsewhere);
  ASSERT_NE(here, nullptr);
  EXPECT_EQ(bytes_of(*here), bytes_of(*there));
}

TEST_F(ParReader, MakesBlobsThatAreUsable) {
  unsigned seed = 200;
  for (const Shape& shape : kShapes) {
    const Blob blob(Kind::beam_forming, shape, seed++, '\0');
    write_filters(blob);
    BeamFormingKeyCancelParam param;
    ASSERT_EQ(read(blob.text(), param), 0);
    EXPECT_EQ(first_fault(param), std::nullopt);
    const Blob other(Kind::key_cancel, shape, seed++, '\0');
    KeyCancelParam single{};
    ASSERT_EQ(read(other.text(), single), 0);
    EXPECT_EQ(first_fault(single), std::nullopt);
  }
}

}  // namespace
}  // namespace sonivo::classic
